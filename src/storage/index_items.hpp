// The two kinds of stored subscript.
#pragma once

#include <boost/container/small_vector.hpp>
#include <cassert>
#include <cstdint>
#include <optional>

// One fixed position in one dimension. m_index is the caller's number, possibly negative, until the
// item is normalised. From then on it lies between 0 and length - 1.
struct IntegerIndexItem {
  std::int64_t m_index = 0;
  bool m_isNormalized = false;

  // Counts a negative index from the end. False leaves the item unchanged: RuntimeError is set for
  // a negative length and for an index past the end; no error is set for an index below -length,
  // because every caller reports that one in its own words.
  bool normalizeAgainstLength(std::int64_t length) {
    if (length < 0 || m_index >= length || m_index < -length) return refuse(length);
    if (m_index < 0) m_index += length;
    m_isNormalized = true;
    return true;
  }

 private:
  bool refuse(std::int64_t length) const;
};

// A run of positions in one dimension, from m_start up to or down to m_stop, which is excluded.
// After normalisation all four numbers are present and the step is not zero.
struct SliceIndexItem {
  std::optional<std::int64_t> m_start;
  std::optional<std::int64_t> m_stop;
  std::optional<std::int64_t> m_step;
  std::optional<std::int64_t> m_slice_len;
  bool m_isNormalized = false;

  // Fills absent numbers and clamps the start. False with ValueError set for a step of zero.
  bool normalizeAgainstLength(std::int64_t length);
  // How many positions start, stop and step give, which m_slice_len need not agree with. Needs a
  // normalised item. Constant time.
  std::int64_t numberOfValues() const;
  // Position number k of the run. Needs a normalised item and 0 <= k < numberOfValues().
  std::int64_t valueAt(std::int64_t k) const { return *m_start + k * *m_step; }
  // The empty run from 0 to 0.
  void makeCanonicalEmpty();
};

// A stored item as a range. An integer i is the range from i to i + 1 with step 0, which marks a
// fixed dimension. A slice needs to be normalised.
inline std::int64_t getStart(const IntegerIndexItem& item) {
  return item.m_index;
}
inline std::int64_t getStop(const IntegerIndexItem& item) {
  return item.m_index + 1;
}
inline std::int64_t getStep(const IntegerIndexItem&) {
  return 0;
}
inline std::int64_t getStart(const SliceIndexItem& item) {
  return *item.m_start;
}
inline std::int64_t getStop(const SliceIndexItem& item) {
  return *item.m_stop;
}
inline std::int64_t getStep(const SliceIndexItem& item) {
  return *item.m_step;
}

// One index for each dimension, in coordinates of the storage. Up to six need no heap block.
using Position = boost::container::small_vector<std::int64_t, 6>;
