// Bodies of the assignments.
#pragma once

#include <string>

#include "construct/element_conversion_impl.hpp"
#include "construct/final_constructor_parser.hpp"
#include "indexing/element_write.hpp"
#include "indexing/index_items.hpp"
#include "indexing/run_writer_impl.hpp"
#include "module/support.hpp"
#include "storage/mcpy_array.hpp"

namespace element_write {

inline int fail(PyObject* exceptionType, const std::string& message) {
  setError(exceptionType, message);
  return -1;
}

// Reads a value completely, before anything is written.
template <class T>
bool flatten(FinalConstructorParser<T>& parser, PyObject* value) {
  return parser.flattenWithUnspecifiedDimensions(value, false);
}

}  // namespace element_write

template <class T>
bool MDArrayWrapper::setElementFromIndices(const Position& position, T element) {
  const std::int64_t offset = getElementOffsetFromIndices(position);
  return reportUnlessStored(ElementWriter<T>(*this).write(offset, element));
}

template <class T>
bool MCppPyArray::setElementFromIndices(const Position& position, T element) {
  const WrapperAccess storage = wrapper();
  return storage && storage->setElementFromIndices(position, element);
}

template <class T>
int MCppPyArray::setItemViaFinalIntegerIndex(std::int64_t index, PyObject* value) {
  if (value == nullptr) return element_write::fail(PyExc_RuntimeError, messages::nullDataPointer);
  const auto element = convertPyObjectToElement<T>(value, false);
  if (!element.value) {
    return element_write::fail(element.failure->exceptionClass, element.failure->message);
  }
  if (!integersComeFirst()) return -1;
  const WrapperAccess storage = wrapper();
  if (!storage) return -1;
  const std::int64_t offset = storage->getElementOffset(
      static_cast<std::size_t>(m_numberOfIntegerIndicesSoFar) + 1, positionBehindIntegers(index));
  return reportUnlessStored(ElementWriter<T>(*storage).write(offset, *element.value)) ? 0 : -1;
}

template <class T>
int MCppPyArray::setMultipleElementsFromNonFinalIntegerIndex(std::int64_t index, PyObject* value) {
  FinalConstructorParser<T> parser;
  if (!element_write::flatten(parser, value)) return -1;
  const WrapperAccess storage = wrapper();
  if (!storage) return -1;
  const std::vector<std::int64_t>& shape = storage->shape();
  const std::vector<std::int64_t>& given = parser.getCalculatedDimensions();
  const auto first = static_cast<std::size_t>(m_numberOfIntegerIndicesSoFar) + 1;
  if (first > shape.size() || !std::equal(shape.begin() + static_cast<std::ptrdiff_t>(first),
                                          shape.end(), given.begin(), given.end())) {
    return element_write::fail(PyExc_ValueError, messages::unequalShapes);
  }
  bool success = false;
  Position position = getIntegerIndicesSoFar(success);
  if (!success) return -1;
  position.push_back(index);
  position.resize(shape.size(), 0);
  const std::int64_t count = parser.getNumberOfFlattenedElements();
  const RunResult result =
      storeAlong(*storage, m_indices, std::move(position), parser.getFlattenedElements(), count);
  return reportUnlessStored(result.status) && result.stored == count ? 0 : -1;
}

template <class T>
int MCppPyArray::setMultipleElementsFromNonFinalSliceIndex(SliceIndexItem& slice, PyObject* value,
                                                           std::int64_t length) {
  using element_write::fail;
  FinalConstructorParser<T> parser;
  if (!element_write::flatten(parser, value)) return -1;
  const bool isEmpty = slice.m_slice_len == 0;
  if (parser.calculateNumberOfElements() == 0) {
    if (isEmpty) return 0;
    return fail(PyExc_ValueError, "slice is nonempty but values are empty.");
  }
  if (isEmpty) {
    return fail(PyExc_ValueError,
                "slice is empty, but number of elements assigned is greater than zero.");
  }
  // Deliberate: strong, so that the temporary of a weak view has no storage to write to.
  MCppPyArray target(*this, false);
  if (sliceInFinalPreexistingPosition()) {
    if (!getReplacementIndexForSliceAndSlice(slice, length)) return -1;
    target.m_indices.pop_back();
  }
  target.appendIndexItem(slice);
  const WrapperAccess storage = target.wrapper();
  if (!storage) return -1;
  const auto dimensions = static_cast<std::int64_t>(storage->shape().size());
  const std::int64_t count = parser.getNumberOfFlattenedElements();
  const RunResult result = storeAlong(
      *storage, target.m_indices, getStartElement(storage->shape(), target.m_indices, dimensions),
      parser.getFlattenedElements(), count);
  if (!reportUnlessStored(result.status)) return -1;
  if (!result.moved && result.stored == count) return 0;
  return fail(PyExc_ValueError, "length of slice does not match number of elements.");
}

template <class T>
int MCppPyArray::setIndividualElementsFromFlatSeqOfMultipleIntegerIndices(
    const std::vector<std::int64_t>& indices, PyObject* value) {
  FinalConstructorParser<T> parser;
  if (!element_write::flatten(parser, value)) return -1;
  if (parser.getCalculatedDimensions().size() != 1 ||
      parser.getNumberOfFlattenedElements() != static_cast<std::int64_t>(indices.size())) {
    return element_write::fail(PyExc_ValueError, messages::unequalShapes);
  }
  bool success = false;
  Position position = getIntegerIndicesSoFar(success);
  if (!success) return -1;
  const WrapperAccess storage = wrapper();
  if (!storage) return -1;
  return reportUnlessStored(
             storeEach(*storage, std::move(position), indices, parser.getFlattenedElements()))
             ? 0
             : -1;
}

template <class T>
int MCppPyArray::setItemsFromFinalOrNonFinalIntegerIndex(std::int64_t index, std::int64_t length,
                                                         PyObject* value) {
  IntegerIndexItem item{index, false};
  if (!item.normalizeAgainstLength(length)) {
    return element_write::fail(PyExc_IndexError, messages::invalidIndex + std::to_string(index));
  }
  if (!convertSliceAndIntegerToInteger(item)) return -1;
  return m_numberOfIntegerIndicesSoFar == getNumberOfDimensions() - 1
             ? setItemViaFinalIntegerIndex<T>(item.m_index, value)
             : setMultipleElementsFromNonFinalIntegerIndex<T>(item.m_index, value);
}

namespace element_write {

// T is the element type itself here, complex or not.
template <class T>
int setViaSlice(MCppPyArray& view, SliceIndexItem& slice, PyObject* value, std::int64_t length,
                bool isLastDimension) {
  if (!isLastDimension) {
    return view.setMultipleElementsFromNonFinalSliceIndex<T>(slice, value, length);
  }
  // Deliberate: the positions are used as they stand, so that a slice at the view's end has no say.
  bool success = false;
  const std::vector<std::int64_t> indices = slice.getIntegerIndexValues(length, success);
  if (!success) return fail(PyExc_RuntimeError, "unable to normalize index.");
  return view.setIndividualElementsFromFlatSeqOfMultipleIntegerIndices<T>(indices, value);
}

template <class T>
int setViaIndex(MCppPyArray& view, PyObject* index, PyObject* value) {
  const std::int64_t fixed = view.getNumberOfIntegerIndicesSoFar();
  // As for reads: an expired view has -1 dimensions, a slice of a weak view never had storage.
  const int dimensions = view.getNumberOfDimensions();
  if (dimensions < 0 && !view.hasWeakPtrToWrapper()) return -1;
  if (dimensions <= fixed) return fail(PyExc_RuntimeError, messages::tooManyIndices);
  // Deliberate: the length in the storage, whatever slice the view ends in.
  const std::int64_t length = view.shape()[static_cast<std::size_t>(fixed)];
  if (const auto integer = getIntegerIndexFromIndexObject(index)) {
    return view.setItemsFromFinalOrNonFinalIntegerIndex<T>(*integer, length, value);
  }
  if (Py_TYPE(index) != &PySlice_Type) {
    return fail(PyExc_RuntimeError, messages::indexIsNoIndex);
  }
  SliceIndexItem item;
  if (!getSliceData(index, length, item)) return -1;
  return setViaSlice<T>(view, item, value, length, fixed == dimensions - 1);
}

}  // namespace element_write

template <class T>
int MCPyArray_SetViaIndex(PyObject* self, PyObject* index, PyObject* value) {
  MCppPyArray* view = getInitializedView(self);
  if (view == nullptr) return -1;
  if constexpr (!std::is_same_v<T, bool>) {
    if (view->isComplex()) return element_write::setViaIndex<std::complex<T>>(*view, index, value);
  }
  return element_write::setViaIndex<T>(*view, index, value);
}
