// Bodies of the subscript handlers.
#pragma once

#include <complex>
#include <cstring>
#include <string>

#include "indexing/element_read.hpp"
#include "indexing/element_to_number.hpp"
#include "indexing/index_items.hpp"
#include "module/py_ref.hpp"
#include "module/support.hpp"
#include "module/type_objects.hpp"

namespace element_read {

// The element is taken over before an object is made of it. Null for a null address.
template <class T>
PyObject* makeNumberAt(const std::byte* address) {
  if (address == nullptr || !hasNumber<T>) return nullptr;
  T element;
  std::memcpy(&element, address, sizeof(T));
  return makeNumber(element);
}

// A view of `parent` with one subscript more. The item is in storage coordinates already if the
// parent ends in a slice, which the item then replaces.
template <class T, class Item>
PyObject* makeView(MCppPyArray& parent, Item& item, bool useWeakPtr) {
  PyRef object = PyRef::steal(allocMCPyArray(typeObjectOf(classOf<T>)));
  if (!object) return nullptr;
  auto* view = new MCppPyArray(parent, useWeakPtr);
  getMCPyArrayFromPyObject(object.get())->mcppPyArray = view;
  if (view->sliceInFinalPreexistingPosition()) view->getIndicesRef().pop_back();
  return view->appendIndexItem(item) ? object.release() : nullptr;
}

}  // namespace element_read

template <class T>
PyObject* MCppPyArray::getNumericPyObjectFromNormalizedIntIndices(const Position& position) const {
  return element_read::makeNumberAt<T>(getAddressOfElementFromNormalizedIntIndices(position));
}

template <class T>
PyObject* MCPyArray_GetItem(PyObject* self, Py_ssize_t index) {
  MCppPyArray* view = getInitializedView(self);
  if (view == nullptr) return nullptr;
  const std::int64_t fixed = view->getNumberOfIntegerIndicesSoFar();
  const std::int64_t length = view->getLengthOfActiveDimension();
  if (length < 0) return nullptr;
  // An expired view has -1 dimensions, of which the next test speaks; a slice of a weak view never
  // had storage that could have any.
  const int dimensions = view->getNumberOfDimensions();
  if (dimensions < 0 && !view->hasWeakPtrToWrapper()) return nullptr;
  if (dimensions <= fixed) {
    setError(PyExc_RuntimeError, messages::tooManyIndices);
    return nullptr;
  }
  IntegerIndexItem item{index, false};
  if (!item.normalizeAgainstLength(length)) {
    setError(PyExc_IndexError, messages::invalidIndex + std::to_string(index));
    return nullptr;
  }
  if (view->sliceInFinalPreexistingPosition() &&
      !view->getReplacementIndexForSliceAndInt(item, length)) {
    return nullptr;
  }
  // The last dimension: the element is read without a view of it ever being made.
  if (fixed == dimensions - 1) {
    const std::byte* address = view->getAddressOfElementFromNewIntIndex(item.m_index);
    return view->isComplex() ? element_read::makeNumberAt<std::complex<T>>(address)
                             : element_read::makeNumberAt<T>(address);
  }
  return element_read::makeView<T>(*view, item, view->hasWeakPtrToWrapper());
}

template <class T>
PyObject* MCPyArray_GetViaIndex(PyObject* self, PyObject* index) {
  MCppPyArray* view = getInitializedView(self);
  if (view == nullptr) return nullptr;
  if (const auto integer = getIntegerIndexFromIndexObject(index)) {
    return MCPyArray_GetItem<T>(self, *integer);
  }
  if (Py_TYPE(index) != &PySlice_Type) {
    setError(PyExc_RuntimeError, messages::indexIsNoIndex);
    return nullptr;
  }
  const std::int64_t length = view->getLengthOfActiveDimension();
  if (length < 0) return nullptr;
  SliceIndexItem item;
  if (!getSliceData(index, length, item)) return nullptr;
  if (view->sliceInFinalPreexistingPosition() &&
      !view->getReplacementIndexForSliceAndSlice(item, length)) {
    return nullptr;
  }
  // Deliberate: strong even for a weak parent, whose slice thereby has no storage at all.
  return element_read::makeView<T>(*view, item, false);
}
