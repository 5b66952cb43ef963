// What native clients reach through the capsule: library arrays to Python arrays and back.
#include "module/entry/capsule.hpp"

#include <memory>
#include <utility>
#include <velmar/capsule_table.hpp>

#include "construct/memory_error.hpp"
#include "module/py_ref.hpp"
#include "module/support.hpp"
#include "module/type_objects.hpp"
#include "operations/outside_buffer.hpp"
#include "storage/mcpy_array.hpp"

namespace vd = foundation::velmardata;
using velmar::data::impl::ArrayImpl;

namespace MCPyArrayAPI {
namespace {

constexpr int firstElementType = 4;  // the number of class 0 among element types
constexpr int complexTypes = 10;     // between the numbers of a class and of its complex form

template <class Pointer = PyObject*>
Pointer refuse(const char* message) {
  setError(PyExc_RuntimeError, message);
  return nullptr;
}

PyObject* MCPyArray_MDAImplToMCPyArray(void* impl) {
  if (impl == nullptr) return refuse(messages::nullDataPointer);
  vd::Array array(static_cast<ArrayImpl*>(impl));  // the caller's reference, to be given up
  const TypeAndComplexity type = getTypeAndComplexityFromArrayType(array.getType());
  if (!type.isValid) return refuse("invalid type.");
  PyRef record = PyRef::steal(allocMCPyArray(typeObjectOf(type.supportedArrayEnum)));
  if (!record) return nullptr;
  const std::uint64_t count = array.getNumberOfElements();
  auto view = std::make_unique<MCppPyArray>(std::move(array), type.supportedArrayEnum,
                                            type.isComplex, true);
  if (!view->wrapper()->hasMirror()) {
    setOutOfMemory(count, typeWordOf(type.supportedArrayEnum));
    return nullptr;
  }
  view->buf();  // filled now: the client may hold the elements, too
  getMCPyArrayFromPyObject(record.get())->mcppPyArray = view.release();
  return record.release();
}

void* MCPyArray_MCPyArrayToMDAImpl(PyObject* object) {
  if (object == nullptr || !MCPyArray_Check(object)) {
    return refuse<void*>(messages::objectNotInitialized);
  }
  MCppPyArray* view = getInitializedView(object);
  if (view == nullptr) return nullptr;
  if (view->indicesAreEmpty()) {
    const WrapperAccess storage = view->wrapper();
    return storage ? velmar::data::impl::addReference(storage->array().impl()) : nullptr;
  }
  const std::optional<vd::Array> copy =
      view->getIndexedArrayAsMDA(velmar::data::MemoryLayout::Default, true);
  return copy ? velmar::data::impl::addReference(copy->impl()) : nullptr;
}

// The class called with the object. Null with an error set.
PyObject* construct(PyTypeObject* type, PyObject* object, bool isComplex) {
  if (type == nullptr) return refuse(messages::cannotInitializeObject);
  const auto create = reinterpret_cast<newfunc>(PyType_GetSlot(type, Py_tp_new));
  const PyRef arguments = PyRef::steal(Py_BuildValue("(O)", object));
  if (!arguments) return nullptr;
  if (!isComplex) return create(type, arguments.get(), nullptr);
  PyRef keywords = PyRef::steal(PyDict_New());
  if (!keywords || PyDict_SetItemString(keywords.get(), "is_complex", Py_True) != 0) return nullptr;
  PyObject* array = create(type, arguments.get(), keywords.get());
  keepForever(std::move(keywords));  // deliberate: this dict is not given back
  return array;
}

PyObject* MCPyArray_BufferObjectToMCPyArray(PyObject* object, int* type) {
  if (type == nullptr) return refuse(messages::nullDataPointer);
  *type = 0;
  bool isComplex = false;
  Py_buffer view;
  const int number = fillPyBuffer(object, &view, &isComplex);
  if (number < 0) return nullptr;
  *type = isComplex ? number + complexTypes : number;
  PyObject* array = construct(
      TypeObjectPointers[static_cast<std::size_t>(number - firstElementType)], object, isComplex);
  PyBuffer_Release(&view);
  return array;
}

void MCPyArray_DestroyMCPyArray(PyObject* object) {
  if (object != nullptr && MCPyArray_Check(object)) MCPyArray_Delete(object);
}

bool MCPyArray_SatisfiesBufferProtocol(PyObject* object) {
  return object != nullptr && PyObject_CheckBuffer(object) != 0;
}

const velmar::MCPyArrayAPITable table = {
    MCPyArray_MDAImplToMCPyArray, MCPyArray_MCPyArrayToMDAImpl, MCPyArray_BufferObjectToMCPyArray,
    MCPyArray_DestroyMCPyArray, MCPyArray_SatisfiesBufferProtocol};

}  // namespace
}  // namespace MCPyArrayAPI

PyObject* makeCapsule() {
  return PyCapsule_New(const_cast<velmar::MCPyArrayAPITable*>(&MCPyArrayAPI::table),
                       velmar::capsuleName, nullptr);
}
