// The two kinds of stored subscript and the chain that a view keeps of them.
#pragma once

#include <boost/container/small_vector.hpp>
#include <cstdint>
#include <optional>
#include <variant>
#include <vector>

// One fixed position in one dimension. As written by the caller (possibly negative) until
// normalised, from then on between 0 and length - 1.
struct IntegerIndexItem {
  std::int64_t m_index = 0;
  bool m_isNormalized = false;

  // False leaves the item as it was. A negative length and an index past the end set RuntimeError;
  // an index below -length sets no error, since every caller sets one of its own.
  bool normalizeAgainstLength(std::int64_t length) {
    if (length < 0 || m_index >= length || m_index < -length) return refuse(length);
    if (m_index < 0) m_index += length;
    m_isNormalized = true;
    return true;
  }

 private:
  bool refuse(std::int64_t length) const;
};

// A run of positions in one dimension; start included, stop excluded, in either direction.
struct SliceIndexItem {
  std::optional<std::int64_t> m_start;
  std::optional<std::int64_t> m_stop;
  std::optional<std::int64_t> m_step;
  std::optional<std::int64_t> m_slice_len;
  bool m_isNormalized = false;

  // Fills what is empty and clamps the start. False with ValueError set for a step of zero.
  bool normalizeAgainstLength(std::int64_t length);
  // The positions of the run in order. `length` serves the message of the one failure, an item
  // that was not normalised: success is false then and RuntimeError is set.
  std::vector<std::int64_t> getIntegerIndexValues(std::int64_t length, bool& success) const;
  // How many positions the run yields by start, stop and step, and position number k of them.
  // Constant time; for a normalised item only.
  std::int64_t numberOfValues() const;
  std::int64_t valueAt(std::int64_t k) const { return *m_start + k * *m_step; }
};

using IndexVariant = std::variant<IntegerIndexItem, SliceIndexItem>;

// Item k addresses dimension k of the storage: integers first, then at most one slice. A chain of
// one item, all that the views of a matrix need, lies inside the view.
using IndexChain = boost::container::small_vector<IndexVariant, 1>;

// One index a dimension, in storage coordinates. Up to six dimensions without a heap block.
using Position = boost::container::small_vector<std::int64_t, 6>;
