// Composition: a new subscript is resolved against the view's final slice, so that every number in
// a chain is a coordinate of the storage.
#include <algorithm>
#include <limits>

#include "module/support.hpp"
#include "storage/mcpp_py_array.hpp"

namespace {

constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();

// Products and sums of extreme steps stop at the ends of the range. A run with such a step has one
// position, for which any number past the other end will do.
std::int64_t saturatedProduct(std::int64_t a, std::int64_t b) {
  std::int64_t product = 0;
  if (!__builtin_mul_overflow(a, b, &product)) return std::max(product, -largest);
  return (a < 0) == (b < 0) ? largest : -largest;
}

std::int64_t saturatedSum(std::int64_t a, std::int64_t b) {
  std::int64_t sum = 0;
  if (!__builtin_add_overflow(a, b, &sum)) return std::max(sum, -largest);
  return a < 0 ? -largest : largest;
}

bool noFinalSlice() {
  setError(PyExc_RuntimeError, messages::noFinalSlice);
  return false;
}

}  // namespace

Position MCppPyArray::getIntegerIndicesSoFar(bool& success) const {
  Position indices;
  success = integersComeFirst();
  if (!success) return indices;
  const auto indexAt = positionBehindIntegers(0);
  indices.resize(static_cast<std::size_t>(m_numberOfIntegerIndicesSoFar));
  for (std::size_t k = 0; k < indices.size(); ++k) indices[k] = indexAt(k);
  return indices;
}

bool MCppPyArray::integersComeFirst() const {
  for (std::size_t k = 0; k < static_cast<std::size_t>(m_numberOfIntegerIndicesSoFar); ++k) {
    if (k < m_indices.size() && m_indices[k].index() == 0) continue;
    setError(PyExc_RuntimeError, messages::unexpectedSlice);
    return false;
  }
  return true;
}

bool MCppPyArray::getReplacementIndexForSliceAndInt(IntegerIndexItem& item,
                                                    std::int64_t length) const {
  const SliceIndexItem* parent = finalSlice();
  if (parent == nullptr) return noFinalSlice();
  if (!parent->m_isNormalized) {
    bool success = false;
    parent->getIntegerIndexValues(length, success);  // sets the error
    return success;
  }
  if (item.m_index < 0 || parent->numberOfValues() <= item.m_index) {
    setError(PyExc_RuntimeError, "unable to index into slice.");
    return false;
  }
  item.m_index = parent->valueAt(item.m_index);
  item.m_isNormalized = false;  // a storage coordinate now, normalised against no length
  return true;
}

bool MCppPyArray::convertSliceAndIntegerToInteger(IntegerIndexItem& item) const {
  if (!sliceInFinalPreexistingPosition()) return true;
  const std::int64_t length = getLengthOfActiveDimension();
  return length >= 0 && getReplacementIndexForSliceAndInt(item, length);
}

bool MCppPyArray::getReplacementIndexForSliceAndSlice(SliceIndexItem& item,
                                                      std::int64_t length) const {
  const SliceIndexItem* parent = finalSlice();
  if (parent == nullptr) return noFinalSlice();
  const std::int64_t parentLength = parent->m_slice_len.value_or(-1);
  if (parentLength < 0) return false;
  if (!item.normalizeAgainstLength(parentLength)) return false;

  std::int64_t count = 0;
  if (parent->m_isNormalized) {
    count = parent->numberOfValues();
  } else {
    bool success = false;
    parent->getIntegerIndexValues(length,
                                  success);  // sets the error; no values, as for an empty run
  }
  if (count == 0) {
    item = *parent;
    return true;
  }
  if (count <= *item.m_start) {
    item.m_start = 0;
    item.m_stop = 0;
    item.m_step = 1;
    item.m_slice_len = 0;
    return true;
  }
  const std::int64_t newStart = parent->valueAt(*item.m_start);
  const std::int64_t newStep = saturatedProduct(*parent->m_step, *item.m_step);
  const std::int64_t newLength = std::min(count, *item.m_slice_len);
  item.m_start = newStart;
  item.m_stop = saturatedSum(saturatedProduct(newStep, newLength), newStart);
  item.m_step = newStep;
  item.m_slice_len = newLength;
  item.m_isNormalized = true;
  return true;
}

bool MCppPyArray::convertSliceAndSliceToSlice(SliceIndexItem& item) const {
  if (!sliceInFinalPreexistingPosition()) return true;
  const std::int64_t length = getLengthOfActiveDimension();
  return length >= 0 && getReplacementIndexForSliceAndSlice(item, length);
}

bool MCppPyArray::appendIndexItem(IntegerIndexItem& item) {
  ++m_numberOfIntegerIndicesSoFar;  // deliberate: first, and kept when the conversion fails
  if (!convertSliceAndIntegerToInteger(item)) return false;
  m_indices.emplace_back(item);
  return true;
}

bool MCppPyArray::appendIndexItem(SliceIndexItem& item) {
  if (!convertSliceAndSliceToSlice(item)) return false;
  m_indices.emplace_back(item);
  return true;
}
