// Walks over the part of an index space that a chain of subscripts leaves open. Pure functions of a
// shape and a chain; a step allocates nothing.
#pragma once

#include <cstdint>
#include <span>

#include "storage/index_chain.hpp"

namespace traversal {

struct Range {
  std::int64_t start;
  std::int64_t stop;
  std::int64_t step;
};

// The range of dimension k: that of the chain's item, or the whole dimension behind the chain. The
// step of a dimension that an integer fixes is 0. A dimension that the shape lacks has no
// positions.
inline Range rangeOf(std::int64_t k, std::span<const std::int64_t> shape, const IndexChain& chain) {
  const auto place = static_cast<std::size_t>(k);
  const auto integers = chain.integers();
  if (place < integers.size()) {
    const IntegerIndexItem& item = integers[place];
    return {getStart(item), getStop(item), getStep(item)};
  }
  const SliceIndexItem* slice = place == integers.size() ? chain.finalSlice() : nullptr;
  if (slice != nullptr) return {getStart(*slice), getStop(*slice), getStep(*slice)};
  return {0, place < shape.size() ? shape[place] : 0, 1};
}

}  // namespace traversal

inline std::int64_t getStartFromShapeDimsAndRestrictingIndices(std::int64_t k,
                                                               std::span<const std::int64_t> shape,
                                                               const IndexChain& chain) {
  return traversal::rangeOf(k, shape, chain).start;
}
inline std::int64_t getStopFromShapeDimsAndRestrictingIndices(std::int64_t k,
                                                              std::span<const std::int64_t> shape,
                                                              const IndexChain& chain) {
  return traversal::rangeOf(k, shape, chain).stop;
}
inline std::int64_t getStepFromShapeDimsAndRestrictingIndices(std::int64_t k,
                                                              std::span<const std::int64_t> shape,
                                                              const IndexChain& chain) {
  return traversal::rangeOf(k, shape, chain).step;
}

inline bool indexIsContainedWithinHalfOpenRange(std::int64_t index, std::int64_t start,
                                                std::int64_t stop, std::int64_t step) {
  if (step >= 0) return start <= index && index < stop;
  return index <= start && stop < index;
}
inline bool indexIsAtLastPositionWithinHalfOpenRange(std::int64_t index, std::int64_t stop,
                                                     std::int64_t step) {
  if (step == 0) return true;
  // Without index + step, which may overflow.
  if (step > 0) return index < stop && stop - index <= step;
  return index > stop && stop - index >= step;
}

namespace traversal {

enum class Step { Taken, AtEnd, Outside };

// Moves an entry of a position on, if its range has a position left.
inline Step takeStep(std::int64_t& entry, const Range& range) {
  if (!indexIsContainedWithinHalfOpenRange(entry, range.start, range.stop, range.step)) {
    return Step::Outside;
  }
  if (indexIsAtLastPositionWithinHalfOpenRange(entry, range.stop, range.step)) return Step::AtEnd;
  entry += range.step;
  return Step::Taken;
}

// The rest of a move whose last entry is at the end of its dimension.
bool carry(Position& position, std::span<const std::int64_t> shape, const IndexChain& chain);

}  // namespace traversal

// Moves to the next position, last entry fastest. False when the walk is over; the position stays.
// In the header because every element of a loop comes through here.
inline bool incrementIndices(Position& position, std::span<const std::int64_t> shape,
                             const IndexChain& chain) {
  if (position.empty()) return true;
  const auto last = static_cast<std::int64_t>(position.size()) - 1;
  const traversal::Step step =
      traversal::takeStep(position.back(), traversal::rangeOf(last, shape, chain));
  if (step != traversal::Step::AtEnd) return step == traversal::Step::Taken;
  return traversal::carry(position, shape, chain);
}

// Whether the first entries of a position lie in their ranges. A position between two of a slice
// counts as contained.
bool containsElementWithIndices(const Position& position, std::int64_t numberOfDimensions,
                                std::span<const std::int64_t> shape, const IndexChain& chain);
// The first position of a walk, with `length` entries. Entries past the shape are 0.
Position getStartElement(std::span<const std::int64_t> shape, const IndexChain& chain,
                         std::int64_t length);
