// The chain of subscripts that restricts a view.
#pragma once

#include <boost/container/small_vector.hpp>
#include <cassert>
#include <cstddef>
#include <optional>
#include <span>

#include "storage/index_items.hpp"

// Item k addresses dimension k of the storage, in coordinates of the storage. Invariant: integers
// come first, and at most one slice stands behind them. Everything a chain holds is held by value;
// a chain with one integer, which is all that views of a matrix need, allocates nothing.
class IndexChain {
 public:
  IndexChain() = default;
  // Integers at these positions, marked as not normalised.
  explicit IndexChain(const Position& positions) {
    m_integers.reserve(positions.size());
    for (const std::int64_t position : positions) m_integers.push_back({position, false});
  }

  std::size_t size() const { return m_integers.size() + (m_slice ? 1 : 0); }
  bool isEmpty() const { return m_integers.empty() && !m_slice; }
  std::span<const IntegerIndexItem> integers() const {
    return {m_integers.data(), m_integers.size()};
  }
  // Null without a slice.
  const SliceIndexItem* finalSlice() const { return m_slice ? &*m_slice : nullptr; }

  // A chain with one subscript more, in coordinates of the storage: the item takes the place of a
  // slice at the end.
  IndexChain(const IndexChain& parent, const IntegerIndexItem& item) {
    m_integers.reserve(parent.m_integers.size() + 1);
    for (const IntegerIndexItem& integer : parent.m_integers) m_integers.push_back(integer);
    m_integers.push_back(item);
  }
  IndexChain(const IndexChain& parent, const SliceIndexItem& item) : m_integers(parent.m_integers) {
    append(item);
  }

  // There must not be a slice: a subscript behind one replaces it.
  void append(const IntegerIndexItem& item) {
    assert(!m_slice);
    m_integers.push_back(item);
  }
  void append(const SliceIndexItem& item) {
    assert(!m_slice);
    m_slice = item;
  }

 private:
  boost::container::small_vector<IntegerIndexItem, 1> m_integers;
  std::optional<SliceIndexItem> m_slice;
};
