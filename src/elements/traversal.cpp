// Steps that carry, and tests of positions.
#include "elements/traversal.hpp"

#include <algorithm>

namespace traversal {

bool carry(Position& position, std::span<const std::int64_t> shape, const IndexChain& chain) {
  for (auto k = static_cast<std::int64_t>(position.size()) - 1;; --k) {
    // A fixed dimension ends the walk: it never carries into the dimensions before it.
    if (k == 0 || getStepFromShapeDimsAndRestrictingIndices(k, shape, chain) == 0) return false;
    const Step step =
        takeStep(position[static_cast<std::size_t>(k - 1)], rangeOf(k - 1, shape, chain));
    if (step == Step::Outside) return false;
    if (step == Step::AtEnd) continue;
    for (auto after = static_cast<std::size_t>(k); after < position.size(); ++after) {
      position[after] = getStartFromShapeDimsAndRestrictingIndices(static_cast<std::int64_t>(after),
                                                                   shape, chain);
    }
    return true;
  }
}

}  // namespace traversal

bool containsElementWithIndices(const Position& position, std::int64_t numberOfDimensions,
                                std::span<const std::int64_t> shape, const IndexChain& chain) {
  const auto available = static_cast<std::int64_t>(std::min(shape.size(), position.size()));
  if (numberOfDimensions > available) return false;
  for (std::int64_t k = 0; k < numberOfDimensions; ++k) {
    const std::int64_t length = shape[static_cast<std::size_t>(k)];
    auto [start, stop, step] = traversal::rangeOf(k, shape, chain);
    std::int64_t entry = position[static_cast<std::size_t>(k)];
    if (entry < 0) entry += length;
    if (start < 0) start += length;
    if (step < 0) {
      if (entry > start) return false;
      // Deliberate: a run that reaches down to 0 ends the test without a look at the dimensions
      // behind it, because a stop below 0 has no position to compare with.
      if (stop < 0) return true;
      if (entry <= stop) return false;
    } else {
      if (entry < start) return false;
      if (stop < 0) stop += length;
      if (entry >= stop) return false;
    }
  }
  return true;
}

Position getStartElement(std::span<const std::int64_t> shape, const IndexChain& chain,
                         std::int64_t length) {
  Position position(static_cast<std::size_t>(length), 0);
  const std::size_t count = std::min(position.size(), shape.size());
  for (std::size_t k = 0; k < count; ++k) {
    position[k] =
        getStartFromShapeDimsAndRestrictingIndices(static_cast<std::int64_t>(k), shape, chain);
  }
  return position;
}
