// Storing a run of elements at the positions of a traversal, row by row.
#pragma once

#include <algorithm>

#include "indexing/traversal.hpp"
#include "storage/element_writer.hpp"

struct RunResult {
  WriteStatus status = WriteStatus::Stored;
  std::int64_t stored = 0;  // how many elements found a place
  bool moved = true;        // whether the move that follows each element found a position
};

// Stores elements at `position` and the positions after it in what the chain leaves open, for as
// long as there are both. Sets no error.
template <class T>
RunResult storeAlong(MDArrayWrapper& wrapper, const IndexChain& chain, Position position,
                     const T* elements, std::int64_t count) {
  RunResult result;
  if (count == 0) return result;
  if (position.empty()) return {WriteStatus::OutsideStorage};
  ElementWriter<T> writer(wrapper);
  const std::vector<std::int64_t>& shape = wrapper.shape();
  const auto row = static_cast<std::int64_t>(position.size()) - 1;  // the dimension that runs
  const std::int64_t step = getStepFromShapeDimsAndRestrictingIndices(row, shape, chain);
  const std::int64_t stop = getStopFromShapeDimsAndRestrictingIndices(row, shape, chain);
  const std::int64_t unit = wrapper.bytewiseStrides()[row] / wrapper.getElementSizeInBytes();
  while (result.moved && result.stored < count) {
    // A position is written whether or not it is in its range; the move then ends the walk.
    const SliceIndexItem left = {position.back(), stop, step, std::nullopt, true};
    const std::int64_t length =
        std::min(count - result.stored, std::max<std::int64_t>(left.numberOfValues(), 1));
    // The step of a single position can be beyond all arithmetic.
    const std::int64_t stride = length < 2 ? 0 : step * unit;
    std::int64_t offset = wrapper.getElementOffsetFromIndices(position);
    for (std::int64_t k = 0; k < length; ++k, offset += stride) {
      result.status = writer.write(offset, elements[result.stored]);
      if (result.status != WriteStatus::Stored) return result;
      ++result.stored;
    }
    position.back() += (length - 1) * step;
    result.moved = incrementIndices(position, shape, chain);
  }
  return result;
}

// Stores one element at each of the indices behind the fixed position.
template <class T>
WriteStatus storeEach(MDArrayWrapper& wrapper, Position fixed,
                      const std::vector<std::int64_t>& indices, const T* elements) {
  if (indices.empty()) return WriteStatus::Stored;  // shared contents stay shared
  ElementWriter<T> writer(wrapper);
  fixed.push_back(0);
  for (std::int64_t index : indices) {
    fixed.back() = index;
    const WriteStatus status =
        writer.write(wrapper.getElementOffsetFromIndices(fixed), *elements++);
    if (status != WriteStatus::Stored) return status;
  }
  return WriteStatus::Stored;
}
