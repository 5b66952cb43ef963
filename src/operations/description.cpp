// The numbers that describe an array, as Python objects.
#include "operations/description.hpp"

#include <cstdint>
#include <vector>

#include "module/py_ref.hpp"
#include "module/support.hpp"
#include "storage/mcpy_array.hpp"

namespace {

PyObject* refuse(const char* message) {
  setError(PyExc_RuntimeError, message);
  return nullptr;
}

// Takes the item, which may be null with an error set.
bool setItem(PyObject* tuple, Py_ssize_t place, PyObject* item) {
  return item != nullptr && PyTuple_SetItem(tuple, place, item) == 0;
}

}  // namespace

PyObject* MCPyArray_GetBytewiseStrides(PyObject* self, PyObject*) {
  const MCppPyArray* view = getInitializedView(self);
  if (view == nullptr) return nullptr;
  std::vector<std::int64_t> strides;  // of its own, since making an object can run any code
  {
    const WrapperAccess storage = view->wrapper();
    if (!storage) return nullptr;
    strides.assign(storage->bytewiseStrides(),
                   storage->bytewiseStrides() + storage->getNumberOfDimensions());
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
    shape = storage->shape();
  }
  const auto fixed = static_cast<std::size_t>(view->getNumberOfIntegerIndicesSoFar());
  const IndexChain chain = view->getRestrictingIndices();
  const std::size_t others = chain.size() - fixed;
  if (others > 1) return refuse("at most one slice expected.");
  // Reshaped under the view.
  if (shape.size() < fixed + others) return refuse(messages::tooManyIndices);
  PyRef tuple = PyRef::steal(PyTuple_New(static_cast<Py_ssize_t>(shape.size() - fixed)));
  if (!tuple) return nullptr;
  if (others == 1) {
    const auto* slice = std::get_if<SliceIndexItem>(&chain[fixed]);
    if (slice == nullptr) return refuse("slice expected in final position.");
    if (!setItem(tuple.get(), 0, makePyObjectFromLong(slice->m_slice_len.value_or(0)))) {
      return nullptr;
    }
  }
  for (std::size_t k = fixed + others; k < shape.size(); ++k) {
    if (!setItem(tuple.get(), static_cast<Py_ssize_t>(k - fixed), makePyObjectFromLong(shape[k]))) {
      return nullptr;
    }
  }
  return tuple.release();
}

PyObject* MCPyArray_GetElementSize(PyObject* self, void*) {
  const MCppPyArray* view = getInitializedView(self);
  if (view == nullptr) return nullptr;
  const std::int64_t size = view->getElementSizeInBytes();
  if (size < 0) return nullptr;
  PyObject* number = PyLong_FromSsize_t(size);
  return number != nullptr ? number : refuse("unable to return size of element.");
}

PyObject* MCPyArray_GetIsComplexAsAttrib(PyObject* self, void*) {
  const MCppPyArray* view = getInitializedView(self);
  return view != nullptr ? PyBool_FromLong(view->isComplex() ? 1 : 0) : nullptr;
}
