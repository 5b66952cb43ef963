// Arithmetic of slices of slices.
#include "indexing/view_composition.hpp"

#include <algorithm>
#include <cassert>
#include <limits>

#include "module/support.hpp"

namespace {

constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();

// Products and sums of extreme steps stop at the ends of the range. A run with such a step has one
// position, so any number past its stop will do.
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

}  // namespace

std::int64_t getLengthOfActiveDimension(const MCppPyArray& view) {
  if (const SliceIndexItem* slice = view.chain().finalSlice()) {
    assert(slice->m_slice_len);
    return *slice->m_slice_len;
  }
  const MDArrayWrapper* storage = view.borrowWrapper();
  if (storage == nullptr) return -1;
  const std::size_t active = view.chain().integers().size();
  if (active >= storage->shape().size()) {
    setError(PyExc_RuntimeError, messages::tooManyIndices);
    return -1;
  }
  return storage->shape()[active];
}

bool getReplacementIndexForSliceAndInt(const SliceIndexItem& parent, IntegerIndexItem& item) {
  if (item.m_index < 0 || parent.numberOfValues() <= item.m_index) {
    setError(PyExc_RuntimeError, "unable to index into slice.");
    return false;
  }
  item.m_index = parent.valueAt(item.m_index);
  item.m_isNormalized = false;
  return true;
}

void getReplacementIndexForSliceAndSlice(const SliceIndexItem& parent, SliceIndexItem& item) {
  assert(parent.m_isNormalized && item.m_isNormalized);
  // The item may have been normalised against another length than the parent's.
  [[maybe_unused]] const bool isNormalized = item.normalizeAgainstLength(*parent.m_slice_len);
  assert(isNormalized);

  const std::int64_t count = parent.numberOfValues();
  if (count == 0) {
    item = parent;
    return;
  }
  if (count <= *item.m_start) {
    item.makeCanonicalEmpty();
    return;
  }
  const std::int64_t newStart = parent.valueAt(*item.m_start);
  const std::int64_t newStep = saturatedProduct(*parent.m_step, *item.m_step);
  const std::int64_t newLength = std::min(count, *item.m_slice_len);
  item.m_start = newStart;
  item.m_stop = saturatedSum(saturatedProduct(newStep, newLength), newStart);
  item.m_step = newStep;
  item.m_slice_len = newLength;
}
