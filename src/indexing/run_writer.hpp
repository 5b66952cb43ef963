// Stores of many elements: through memory, or at the positions of a traversal.
#pragma once

#include <algorithm>
#include <optional>
#include <span>

#include "elements/source.hpp"
#include "elements/transfer.hpp"
#include "elements/traversal.hpp"
#include "storage/element_writer.hpp"
#include "storage/mcpy_array.hpp"

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
  const std::span<const std::int64_t> shape = wrapper.shape();
  const auto row = static_cast<std::int64_t>(position.size()) - 1;  // the dimension that runs
  const std::int64_t stop = getStopFromShapeDimsAndRestrictingIndices(row, shape, chain);
  const std::int64_t step = getStepFromShapeDimsAndRestrictingIndices(row, shape, chain);
  const std::int64_t unit =
      wrapper.bytewiseStrides()[static_cast<std::size_t>(row)] / wrapper.getElementSizeInBytes();
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

// Stores one element at each position of the slice in the dimension behind the fixed ones. There
// are as many elements as positions. Sets no error.
template <class T>
WriteStatus storeEach(MDArrayWrapper& wrapper, Position fixed, const SliceIndexItem& slice,
                      std::span<const T> elements) {
  if (elements.empty()) return WriteStatus::Stored;  // shared contents stay shared
  ElementWriter<T> writer(wrapper);
  fixed.push_back(0);
  for (std::size_t k = 0; k < elements.size(); ++k) {
    fixed.back() = slice.valueAt(static_cast<std::int64_t>(k));
    const WriteStatus status =
        writer.write(wrapper.getElementOffsetFromIndices(fixed), elements[k]);
    if (status != WriteStatus::Stored) return status;
  }
  return WriteStatus::Stored;
}

// The ways through memory. Empty, with no error set and nothing written, when they cannot be taken;
// the ways through positions then decide.

// Stores dense elements, in nesting order, in the part of the storage that a chain leaves open.
template <class T>
std::optional<WriteStatus> tryStoreDense(MDArrayWrapper& wrapper, const IndexChain& part,
                                         std::span<const T> elements) {
  const std::optional<Region> region = findRegion(wrapper, part);
  if (!region || region->count != static_cast<std::int64_t>(elements.size())) return std::nullopt;
  const Lanes dense = denseLanes(region->lanes, sizeof(T), false);
  return ElementWriter<T>(wrapper).writeWith([&](std::byte* memory) {
    copyElements(reinterpret_cast<const std::byte*>(elements.data()), dense, sizeof(T),
                 region->lanes, memory + region->offset);
  });
}

// Stores the elements of an array of ours, without a copy in between. Only for an array with
// storage of its own, of the same shape, whose elements all convert: then nothing can fail after
// the first write.
template <class T>
std::optional<WriteStatus> tryStoreArray(MDArrayWrapper& wrapper, const IndexChain& part,
                                         PyObject* value) {
  if (value == nullptr || !MCPyArray_Check(value)) return std::nullopt;
  Source source;
  if (!source.find(value)) return std::nullopt;
  constexpr auto type = foundation::velmardata::arrayTypeOf<T>;
  if (getMCPyArrayFromPyObject(value)->mcppPyArray->findWrapper() == &wrapper ||
      !alwaysConverts(source.box().type, type)) {
    return std::nullopt;
  }
  const std::optional<Region> region = findRegion(wrapper, part);
  if (!region || !haveSameCounts(region->lanes, source.box().lanes)) return std::nullopt;
  return ElementWriter<T>(wrapper).writeWith([&](std::byte* memory) {
    tryTransfer(source.box(), Purpose::Assignment, type, region->lanes, memory + region->offset);
  });
}
