// Exports of memory: the buffer protocol, memoryviews, addresses.
#include <cstdint>

#include "module/element_types.hpp"
#include "module/py_ref.hpp"
#include "module/support.hpp"
#include "operations/handlers.hpp"
#include "operations/materialisation.hpp"
#include "storage/mcpy_array.hpp"

namespace {

int refuseExport(PyObject* exceptionType, const char* message) {
  setError(exceptionType, message);
  return -1;
}

// The array whose memory goes out: the view itself if it is a whole array, its cached copy
// otherwise. Null, with or without an error set.
MCppPyArray* findTarget(MCppPyArray& view) {
  if (view.indicesAreEmpty()) return &view;
  updateIndexRestrictedMCppPyArrayIfNecessary(view);
  MCppPyArray* copy = view.caches().indexRestrictedMCppPyArray();
  // Code that ran meanwhile can have made another copy and let this one fail.
  if (copy != nullptr) PyErr_Clear();
  return copy;
}

bool has(int flags, int request) {
  return (flags & request) == request;
}

}  // namespace

int MCPyArray_GetBuffer(PyObject* self, Py_buffer* buffer, int flags) {
  if (buffer != nullptr) buffer->obj = nullptr;  // until nothing can fail any more
  MCppPyArray* view = getInitializedView(self);
  if (view == nullptr) return refuseExport(PyExc_RuntimeError, messages::objectNotInitialized);
  if (buffer == nullptr) {
    return refuseExport(PyExc_RuntimeError, "null pointer to view object null.");
  }
  MCppPyArray* target = findTarget(*view);
  const WrapperAccess storage =
      target != nullptr ? target->wrapper() : WrapperAccess(static_cast<MDArrayWrapper*>(nullptr));
  if (!storage) return refuseExport(PyExc_RuntimeError, messages::nullDataPointer);

  buffer->buf = storage->buf();
  buffer->len = storage->getBufferSizeInBytes();
  buffer->itemsize = storage->getElementSizeInBytes();
  buffer->ndim = storage->getNumberOfDimensions();
  if (has(flags, PyBUF_WRITABLE)) {
    return refuseExport(PyExc_ValueError, "underlying buffer is not writable.");
  }
  buffer->readonly = storage->isReadOnly();
  buffer->format = has(flags, PyBUF_FORMAT) ? classid2format(storage->getType()) : nullptr;
  // Deliberate: by the request alone, even if the memory is C-contiguous, so that the answer does
  // not depend on the shape.
  if (has(flags, PyBUF_C_CONTIGUOUS)) {
    return refuseExport(PyExc_ValueError, "underlying buffer not C-contiguous.");
  }
  ArrayDescription& description = storage->exportedDescription();
  buffer->shape = description.shape().data();
  buffer->strides = description.strides().data();
  buffer->suboffsets = nullptr;
  buffer->obj = PyRef::borrow(self).release();
  return 0;
}

void MCPyArray_ReleaseBuffer(PyObject*, Py_buffer*) noexcept {}

PyObject* MCPyArray_ToMemoryView(PyObject* self, PyObject*) {
  return PyMemoryView_FromObject(self);
}

PyObject* MCPyArray_BufferInfo(PyObject* self, PyObject*) {
  const MCppPyArray* view = getInitializedView(self);
  if (view == nullptr) return nullptr;
  unsigned long long address = 0;
  std::int64_t count = 0;
  {
    const WrapperAccess storage = view->wrapper();
    if (!storage) return nullptr;
    address = reinterpret_cast<std::uintptr_t>(storage->buf());
    count = storage->getNumberOfElements();
  }
  const PyRef first = PyRef::steal(PyLong_FromUnsignedLongLong(address));
  const PyRef second = PyRef::steal(PyLong_FromSsize_t(count));
  return first && second ? PyTuple_Pack(2, first.get(), second.get()) : nullptr;
}
