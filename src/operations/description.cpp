// The numbers that describe an array, as Python objects.
#include <cstdint>
#include <vector>

#include "module/py_ref.hpp"
#include "module/support.hpp"
#include "operations/handlers.hpp"
#include "storage/mcpy_array.hpp"

namespace {

PyObject* refuse(const char* message) {
  setError(PyExc_RuntimeError, message);
  return nullptr;
}

// Takes the item, which may be null with an error set. False with an error set.
bool setItem(PyObject* tuple, Py_ssize_t place, PyObject* item) {
  return item != nullptr && PyTuple_SetItem(tuple, place, item) == 0;
}

}  // namespace

PyObject* MCPyArray_GetBytewiseStrides(PyObject* self, PyObject*) {
  const MCppPyArray* view = getInitializedView(self);
  if (view == nullptr) return nullptr;
  std::vector<std::int64_t> strides;  // a copy, because making an object can run any code
  {
    const WrapperAccess storage = view->wrapper();
    if (!storage) return nullptr;
    strides.assign(storage->bytewiseStrides().begin(), storage->bytewiseStrides().end());
  }
  PyRef tuple = PyRef::steal(PyTuple_New(static_cast<Py_ssize_t>(strides.size())));
  for (std::size_t k = 0; tuple && k < strides.size(); ++k) {
    if (!setItem(tuple.get(), static_cast<Py_ssize_t>(k), PyLong_FromSsize_t(strides[k]))) {
      return nullptr;
    }
  }
  return tuple.release();
}

PyObject* MCPyArray_GetArraySize(PyObject* self, void*) {
  const MCppPyArray* view = getInitializedView(self);
  if (view == nullptr) return nullptr;
  std::vector<std::int64_t> shape;
  {
    const WrapperAccess storage = view->wrapper();
    if (!storage) return nullptr;
    shape.assign(storage->shape().begin(), storage->shape().end());
  }
  const IndexChain chain = view->chain();
  if (shape.size() < chain.size()) return refuse(messages::tooManyIndices);  // was reshaped
  const std::size_t fixed = chain.integers().size();
  PyRef tuple = PyRef::steal(PyTuple_New(static_cast<Py_ssize_t>(shape.size() - fixed)));
  if (!tuple) return nullptr;
  if (const SliceIndexItem* slice = chain.finalSlice()) {
    if (!setItem(tuple.get(), 0, makePyObjectFromLong(*slice->m_slice_len))) return nullptr;
  }
  for (std::size_t k = chain.size(); k < shape.size(); ++k) {
    if (!setItem(tuple.get(), static_cast<Py_ssize_t>(k - fixed), makePyObjectFromLong(shape[k]))) {
      return nullptr;
    }
  }
  return tuple.release();
}

PyObject* MCPyArray_GetElementSize(PyObject* self, void*) {
  const MCppPyArray* view = getInitializedView(self);
  if (view == nullptr) return nullptr;
  const MDArrayWrapper* storage = view->borrowWrapper();
  if (storage == nullptr) return nullptr;
  return PyLong_FromSsize_t(storage->getElementSizeInBytes());
}

PyObject* MCPyArray_GetIsComplexAsAttrib(PyObject* self, void*) {
  const MCppPyArray* view = getInitializedView(self);
  return view != nullptr ? PyBool_FromLong(view->isComplex() ? 1 : 0) : nullptr;
}
