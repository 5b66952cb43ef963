// The functions that native clients reach through the capsule.
#include "module/entry/capsule.hpp"

#include <memory>
#include <utility>
#include <velmar/capsule_table.hpp>

#include "module/entry/guarded.hpp"
#include "module/py_ref.hpp"
#include "module/support.hpp"
#include "module/type_objects.hpp"
#include "operations/materialisation.hpp"
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
  const MCppPyArray* view = giveNewView(record.get(), std::move(array), type.supportedArrayEnum,
                                        type.isComplex, Contents::Client);
  if (view == nullptr) return nullptr;
  view->wrapper()->buf();  // fills the mirror now, because the client may write to the elements
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
    if (!storage) return nullptr;
    if (ArrayImpl* handedOut = storage->tryHandOut()) return handedOut;
    setOutOfMemory(static_cast<std::uint64_t>(storage->getNumberOfElements()),
                   typeWordOf(view->getSupportedArrayEnum()));
    return nullptr;
  }
  const std::optional<vd::Array> copy = getIndexedArrayAsMDA(*view);
  return copy ? velmar::data::impl::addReference(copy->impl()) : nullptr;
}

// Calls the class with the object. New reference; null with an error set.
PyObject* construct(PyTypeObject* type, PyObject* object, bool isComplex) {
  if (type == nullptr) return refuse(messages::cannotInitializeObject);
  const auto create = reinterpret_cast<newfunc>(PyType_GetSlot(type, Py_tp_new));
  const PyRef arguments = PyRef::steal(Py_BuildValue("(O)", object));
  if (!arguments) return nullptr;
  if (!isComplex) return create(type, arguments.get(), nullptr);
  PyRef keywords = PyRef::steal(PyDict_New());
  if (!keywords || PyDict_SetItemString(keywords.get(), "is_complex", Py_True) != 0) return nullptr;
  PyObject* array = create(type, arguments.get(), keywords.get());
  // Deliberate: the dict is not given back, because clients that count references expect it so.
  keepForever(std::move(keywords));
  return array;
}

PyObject* MCPyArray_BufferObjectToMCPyArray(PyObject* object, int* type) {
  if (type == nullptr) return refuse(messages::nullDataPointer);
  *type = 0;
  bool isComplex = false;
  BufferGuard buffer;
  const int number = fillPyBuffer(object, buffer.place(), &isComplex);
  if (number < 0) return nullptr;
  buffer.hold();
  *type = isComplex ? number + complexTypes : number;
  return construct(TypeObjectPointers[static_cast<std::size_t>(number - firstElementType)], object,
                   isComplex);
}

void MCPyArray_DestroyMCPyArray(PyObject* object) {
  if (object != nullptr && MCPyArray_Check(object)) MCPyArray_Delete(object);
}

bool MCPyArray_SatisfiesBufferProtocol(PyObject* object) {
  return object != nullptr && PyObject_CheckBuffer(object) != 0;
}

const velmar::MCPyArrayAPITable table = {
    guarded<MCPyArray_MDAImplToMCPyArray>, guarded<MCPyArray_MCPyArrayToMDAImpl>,
    guarded<MCPyArray_BufferObjectToMCPyArray>, guarded<MCPyArray_DestroyMCPyArray>,
    guarded<MCPyArray_SatisfiesBufferProtocol>};

}  // namespace
}  // namespace MCPyArrayAPI

PyObject* makeCapsule() {
  return PyCapsule_New(const_cast<velmar::MCPyArrayAPITable*>(&MCPyArrayAPI::table),
                       velmar::capsuleName, nullptr);
}
