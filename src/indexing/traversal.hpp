// Walking the part of an index space that a chain of subscripts leaves open. Pure functions over a
// shape and a chain; nothing is allocated per step.
#pragma once

#include <cstdint>
#include <vector>

#include "indexing/index_items.hpp"
#include "storage/index_items.hpp"

namespace traversal {

// The chain's item for dimension k, or null behind the chain.
inline const IndexVariant* itemAt(std::int64_t k, const IndexChain& chain) {
  const auto place = static_cast<std::size_t>(k);
  return place < chain.size() ? &chain[place] : nullptr;
}
// A dimension that the shape lacks has no positions.
inline std::int64_t lengthAt(std::int64_t k, const std::vector<std::int64_t>& shape) {
  const auto place = static_cast<std::size_t>(k);
  return place < shape.size() ? shape[place] : 0;
}

}  // namespace traversal

// The range of dimension k: that of the chain's item, or the whole dimension behind the chain. The
// step of a dimension fixed by an integer is 0.
inline std::int64_t getStartFromShapeDimsAndRestrictingIndices(std::int64_t k,
                                                               const std::vector<std::int64_t>&,
                                                               const IndexChain& chain) {
  const IndexVariant* item = traversal::itemAt(k, chain);
  return item != nullptr ? getStart(*item) : 0;
}
inline std::int64_t getStopFromShapeDimsAndRestrictingIndices(
    std::int64_t k, const std::vector<std::int64_t>& shape, const IndexChain& chain) {
  const IndexVariant* item = traversal::itemAt(k, chain);
  return item != nullptr ? getStop(*item) : traversal::lengthAt(k, shape);
}
inline std::int64_t getStepFromShapeDimsAndRestrictingIndices(std::int64_t k,
                                                              const std::vector<std::int64_t>&,
                                                              const IndexChain& chain) {
  const IndexVariant* item = traversal::itemAt(k, chain);
  return item != nullptr ? getStep(*item) : 1;
}

inline bool indexIsContainedWithinHalfOpenRange(std::int64_t index, std::int64_t start,
                                                std::int64_t stop, std::int64_t step) {
  if (step >= 0) return start <= index && index < stop;
  return index <= start && stop < index;
}
inline bool indexIsAtLastPositionWithinHalfOpenRange(std::int64_t index, std::int64_t stop,
                                                     std::int64_t step) {
  if (step == 0) return true;
  // Written without index + step, which may not fit.
  if (step > 0) return index < stop && stop - index <= step;
  return index > stop && stop - index >= step;
}

namespace traversal {

enum class Step { Taken, AtEnd, Outside };

// Moves one entry of a position on, if its dimension has a position left.
inline Step takeStep(std::int64_t k, Position& position, const std::vector<std::int64_t>& shape,
                     const IndexChain& chain) {
  std::int64_t& entry = position[static_cast<std::size_t>(k)];
  const std::int64_t stop = getStopFromShapeDimsAndRestrictingIndices(k, shape, chain);
  const std::int64_t step = getStepFromShapeDimsAndRestrictingIndices(k, shape, chain);
  if (!indexIsContainedWithinHalfOpenRange(
          entry, getStartFromShapeDimsAndRestrictingIndices(k, shape, chain), stop, step)) {
    return Step::Outside;
  }
  if (indexIsAtLastPositionWithinHalfOpenRange(entry, stop, step)) return Step::AtEnd;
  entry += step;
  return Step::Taken;
}

// The rest of a move, when the last entry is at its dimension's end.
bool carry(Position& position, const std::vector<std::int64_t>& shape, const IndexChain& chain);

}  // namespace traversal

// Moves to the next position, last entry fastest. False: the walk is over and the position stays.
// In the header since every element that is iterated over comes through here.
inline bool incrementIndices(Position& position, const std::vector<std::int64_t>& shape,
                             const IndexChain& chain) {
  if (position.empty()) return true;
  const auto last = static_cast<std::int64_t>(position.size()) - 1;
  const traversal::Step step = traversal::takeStep(last, position, shape, chain);
  if (step != traversal::Step::AtEnd) return step == traversal::Step::Taken;
  return traversal::carry(position, shape, chain);
}

// Whether the first entries of a position lie in the ranges; positions between two of a slice count
// as contained.
bool containsElementWithIndices(const Position& position, std::int64_t numberOfDimensions,
                                const std::vector<std::int64_t>& shape, const IndexChain& chain);
// The first position, with `length` entries; entries past the shape are 0.
Position getStartElement(const std::vector<std::int64_t>& shape, const IndexChain& chain,
                         std::int64_t length);
