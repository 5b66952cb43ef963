// Allocation, filling and deletion of the Python record.
#include "storage/mcpy_array.hpp"

#include <cassert>
#include <utility>

#include "module/support.hpp"
#include "module/type_objects.hpp"

namespace vd = foundation::velmardata;

PyObject* allocMCPyArray(PyTypeObject* type) {
  // The classes have the interpreter's own allocator, since their specs name none.
  PyObject* record = type != nullptr ? PyType_GenericAlloc(type, 0) : nullptr;
  if (record == nullptr) setError(PyExc_RuntimeError, messages::cannotInitializeObject);
  return record;
}

PyObject* allocMCPyArrayFromMCppPyArray(const MCppPyArray& view) {
  return allocMCPyArray(typeObjectOf(view.getSupportedArrayEnum()));
}

bool MCPyArray_Check(PyObject* object) {
  assert(object != nullptr);
  return PyType_GetSlot(Py_TYPE(object), Py_tp_dealloc) ==
         reinterpret_cast<void*>(MCPyArray_Delete);
}

std::unique_ptr<MCppPyArray> makeNewView(vd::Array&& array, SupportedArrayEnum type, bool isComplex,
                                         Contents contents, bool isColumnMajor,
                                         std::span<const std::int64_t> dimensions) {
  auto view = std::make_unique<MCppPyArray>(std::move(array), type, isComplex, isColumnMajor,
                                            contents, dimensions);
  const WrapperAccess storage = view->wrapper();
  if (storage->hasMirror()) return view;
  setOutOfMemory(static_cast<std::uint64_t>(storage->getNumberOfElements()), typeWordOf(type));
  return nullptr;
}

MCppPyArray* giveNewView(PyObject* record, vd::Array&& array, SupportedArrayEnum type,
                         bool isComplex, Contents contents,
                         std::span<const std::int64_t> dimensions) {
  assert(getMCPyArrayFromPyObject(record)->mcppPyArray == nullptr);
  MCppPyArray* view =
      makeNewView(std::move(array), type, isComplex, contents, true, dimensions).release();
  getMCPyArrayFromPyObject(record)->mcppPyArray = view;
  return view;
}

// Deliberate: PyObject_Free does not give back the record's reference on its class, because
// programs that count those references have always seen them stay.
void MCPyArray_Delete(PyObject* object) noexcept {
  delete getMCPyArrayFromPyObject(object)->mcppPyArray;
  PyObject_Free(object);
}
