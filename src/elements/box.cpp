// Boxes of views.
#include "elements/box.hpp"

#include <algorithm>

namespace {

// Whether a walk over the slice finds exactly the positions start + k * step for k below its
// length.
bool isPlain(const SliceIndexItem& slice) {
  return slice.m_isNormalized && *slice.m_start >= 0 &&
         slice.numberOfValues() == *slice.m_slice_len && *slice.m_slice_len > 0 &&
         slice.valueAt(*slice.m_slice_len - 1) >= 0;
}

}  // namespace

std::optional<Region> findRegion(const MDArrayWrapper& storage, const IndexChain& chain) {
  const auto integers = chain.integers();
  const SliceIndexItem* slice = chain.finalSlice();
  const std::size_t dimensions = storage.shape().size();
  if (integers.size() >= dimensions) return std::nullopt;
  if (slice != nullptr && !isPlain(*slice)) return std::nullopt;
  Region region;
  const auto strides = storage.bytewiseStrides();
  std::int64_t lowest = 0;  // of the offsets of all elements
  std::int64_t highest = 0;
  // A product or sum that overflows leaves the storage.
  const auto move = [&](std::int64_t index, std::int64_t stride, std::int64_t& offset) {
    std::int64_t step = 0;
    return !__builtin_mul_overflow(index, stride, &step) &&
           !__builtin_add_overflow(offset, step, &offset);
  };
  for (std::size_t k = 0; k < integers.size(); ++k) {
    if (!move(integers[k].m_index, strides[k], region.offset)) return std::nullopt;
  }
  for (std::size_t k = integers.size(); k < dimensions; ++k) {
    Lane lane = {storage.shape()[k], strides[k]};
    if (slice != nullptr && k == integers.size()) {
      if (!move(*slice->m_start, strides[k], region.offset)) return std::nullopt;
      // A single position may have a step so large that its product overflows.
      const std::int64_t step = *slice->m_slice_len < 2 ? 1 : *slice->m_step;
      lane.count = *slice->m_slice_len;
      if (__builtin_mul_overflow(step, strides[k], &lane.stride)) return std::nullopt;
    }
    // A stride of 0 moves neither bound, so no test detects a change of `lane.stride < 0` to
    // `lane.stride <= 0`, `lane.stride < 0` to `lane.stride < 1`.
    if (lane.count == 0 || !move(lane.count - 1, lane.stride, lane.stride < 0 ? lowest : highest) ||
        __builtin_mul_overflow(region.count, lane.count, &region.count)) {
      return std::nullopt;
    }
    region.lanes.push_back(lane);
  }
  if (!move(1, region.offset, lowest) || !move(1, region.offset, highest) || lowest < 0 ||
      highest > storage.getBufferSizeInBytes() - storage.getElementSizeInBytes()) {
    return std::nullopt;
  }
  return region;
}

std::optional<Box> findBox(const MCppPyArray& view) {
  const MDArrayWrapper* storage = view.findWrapper();
  if (storage == nullptr) return std::nullopt;
  std::optional<Region> region = findRegion(*storage, view.chain());
  if (!region) return std::nullopt;
  return Box{storage->buf() + region->offset, storage->getType(), std::move(region->lanes),
             region->count};
}

bool haveSameCounts(const Lanes& a, const Lanes& b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](const Lane& x, const Lane& y) { return x.count == y.count; });
}

Lanes denseLanes(const Lanes& dimensions, std::size_t elementSize, bool firstDensest) {
  Lanes lanes = dimensions;
  auto stride = static_cast<std::int64_t>(elementSize);
  const auto take = [&stride](Lane& lane) {
    lane.stride = stride;
    stride *= lane.count;
  };
  if (firstDensest) {
    std::for_each(lanes.begin(), lanes.end(), take);
  } else {
    std::for_each(lanes.rbegin(), lanes.rend(), take);
  }
  return lanes;
}
