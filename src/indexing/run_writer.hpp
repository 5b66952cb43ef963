// Storing a run of elements at the positions of a traversal, row by row.
#pragma once

#include <algorithm>
#include <span>

#include "indexing/traversal.hpp"
#include "storage/element_writer.hpp"

struct RunResult {
  WriteStatus status = WriteStatus::Stored;
  std::int64_t stored = 0;  // how many elements were written
  bool moved = true;        // whether there was a position behind the last element written
};

// Stores elements at `position` and at the positions behind it in what the chain leaves open, until
// elements or positions run out. Sets no error.
template <class T>
RunResult storeAlong(MDArrayWrapper& wrapper, const IndexChain& chain, Position position,
                     std::span<const T> elements) {
  RunResult result;
  if (elements.empty()) return result;
  if (position.empty()) return {WriteStatus::OutsideStorage};
  const auto count = static_cast<std::int64_t>(elements.size());
  ElementWriter<T> writer(wrapper);
  const std::vector<std::int64_t>& shape = wrapper.shape();
  const auto row = static_cast<std::int64_t>(position.size()) - 1;  // the dimension that runs
  const std::int64_t stop = getStopFromShapeDimsAndRestrictingIndices(row, shape, chain);
  const std::int64_t step = getStepFromShapeDimsAndRestrictingIndices(row, shape, chain);
  const std::int64_t unit = wrapper.bytewiseStrides()[row] / wrapper.getElementSizeInBytes();
  while (result.moved && result.stored < count) {
    // A position is written whether or not it lies in its range; the move behind it ends the walk.
    const SliceIndexItem left = {position.back(), stop, step, std::nullopt, true};
    const std::int64_t length =
        std::min(count - result.stored, std::max<std::int64_t>(left.numberOfValues(), 1));
    // The step of a single position can be so large that its product overflows.
    const std::int64_t stride = length < 2 ? 0 : step * unit;
    std::int64_t offset = wrapper.getElementOffsetFromIndices(position);
    for (std::int64_t k = 0; k < length; ++k, offset += stride) {
      result.status = writer.write(offset, elements[static_cast<std::size_t>(result.stored)]);
      if (result.status != WriteStatus::Stored) return result;
      ++result.stored;
    }
    position.back() += (length - 1) * step;
    result.moved = incrementIndices(position, shape, chain);
  }
  return result;
}

// Stores one element at each of the indices behind the fixed position, as many as there are. Sets
// no error.
template <class T>
WriteStatus storeEach(MDArrayWrapper& wrapper, Position fixed,
                      std::span<const std::int64_t> indices, const T* elements) {
  if (indices.empty()) return WriteStatus::Stored;  // shared contents stay shared
  ElementWriter<T> writer(wrapper);
  fixed.push_back(0);
  for (const std::int64_t index : indices) {
    fixed.back() = index;
    const WriteStatus status =
        writer.write(wrapper.getElementOffsetFromIndices(fixed), *elements++);
    if (status != WriteStatus::Stored) return status;
  }
  return WriteStatus::Stored;
}
