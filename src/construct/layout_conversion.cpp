// The reorder from row-major to column-major, and its plan.
#include "construct/layout_conversion.hpp"

#include <algorithm>
#include <array>
#include <cassert>
#include <cstring>
#include <iterator>

#include "module/dimensions.hpp"
#include "module/support.hpp"

namespace vd = foundation::velmardata;

std::optional<vd::Array> makeTypedArrayFromBuf(const ElementFacts& element, UntypedBuffer&& buffer,
                                               bool bufferInStorageOrder,
                                               const std::vector<std::int64_t>& dimensions,
                                               std::int64_t numberOfElements) {
  if (numberOfElements < 2 || bufferInStorageOrder || isSameInBothOrders(dimensions)) {
    return makeArrayFromBuffer(element.type, std::move(buffer), dimensions);
  }
  const UntypedBuffer source = std::move(buffer);
  return convertRowMajorBufferToColumnMajor(element, source.get(), dimensions, numberOfElements);
}

std::optional<vd::Array> convertRowMajorBufferToColumnMajor(
    const ElementFacts& element, const void* source, const std::vector<std::int64_t>& dimensions,
    std::int64_t numberOfElements) {
  const auto plan = layout_conversion::makeTransposition(dimensions);
  if (!plan) return std::nullopt;
  const auto count = static_cast<std::uint64_t>(numberOfElements);
  UntypedBuffer target = tryCreateBuffer(element.type, count);
  if (target == nullptr) {
    setOutOfMemory(count, element.word);
    return std::nullopt;
  }
  layout_conversion::transpose(*plan, element.size, source, target.get());
  return makeArrayFromBuffer(element.type, std::move(target), dimensions);
}

void computeRowMajorStrides(std::span<const std::int64_t> dimensions,
                            std::span<std::int64_t> strides) {
  assert(strides.size() == dimensions.size());
  std::int64_t stride = 1;
  for (std::size_t i = dimensions.size(); i-- > 0;) {
    strides[i] = stride;
    stride *= dimensions[i];
  }
}

bool HybridTraversal::generateIndices(const std::vector<std::int64_t>& extents,
                                      const std::vector<std::int64_t>& strides,
                                      std::vector<std::int64_t>& indices,
                                      std::vector<std::int64_t>& counters, bool fromLastDimension) {
  assert(strides.size() == extents.size() && counters.size() == extents.size());
  const auto rank = static_cast<std::int64_t>(extents.size());
  if (rank == 0) return true;
  return fromLastDimension
             ? generateIndicesImpl(extents, strides, 0, -1, rank, indices, counters, rank - 1)
             : generateIndicesImpl(extents, strides, rank - 1, 1, rank, indices, counters, 0);
}

bool HybridTraversal::generateIndicesImpl(const std::vector<std::int64_t>& extents,
                                          const std::vector<std::int64_t>& strides,
                                          std::int64_t lastDimension, std::int64_t step,
                                          std::int64_t rank, std::vector<std::int64_t>& indices,
                                          std::vector<std::int64_t>& counters,
                                          std::int64_t dimension) {
  const RecursionGuard guard(" while reordering elements");
  if (!guard) return false;
  const auto place = static_cast<std::size_t>(dimension);
  if (extents[place] == counters[place]) {  // on entry only: an extent of 0 has no positions
    counters[place] = 0;
    return true;
  }
  for (;;) {
    if (dimension != lastDimension) {
      if (!generateIndicesImpl(extents, strides, lastDimension, step, rank, indices, counters,
                               dimension + step)) {
        return false;
      }
    } else {
      std::int64_t sum = 0;
      for (std::size_t i = 0; i < static_cast<std::size_t>(rank); ++i) {
        sum += counters[i] * strides[i];
      }
      indices.push_back(sum);
    }
    if (++counters[place] == extents[place]) {
      counters[place] = 0;
      return true;
    }
  }
}

namespace layout_conversion {

namespace {

// Empty with RecursionError set.
std::optional<Offsets> makeOffsets(const std::vector<std::int64_t>& extents,
                                   const std::vector<std::int64_t>& strides,
                                   bool fromLastDimension) {
  Offsets offsets;
  offsets.count = static_cast<std::int64_t>(wrappedProduct(extents));
  if (extents.size() == 1) {
    offsets.stride = strides.front();
    return offsets;
  }
  std::vector<std::int64_t> counters(extents.size(), 0);
  offsets.list.reserve(static_cast<std::size_t>(offsets.count));
  if (!HybridTraversal::generateIndices(extents, strides, offsets.list, counters,
                                        fromLastDimension)) {
    return std::nullopt;
  }
  return offsets;
}

// Walks in tiles of one cache line by a few rows: a walk down whole columns would fetch a line of
// the source for every element. Lines of later rows are fetched ahead on both sides, because the
// processor does not predict steps of a whole row or column.
template <std::size_t Size>
void transposeElements(const Transposition& plan, const std::byte* source, std::byte* target) {
  constexpr auto size = static_cast<std::int64_t>(Size);
  constexpr std::int64_t rowsAhead = 32;
  constexpr std::int64_t targetBytesAhead = 256;
  constexpr std::int64_t tileRows = 8;
  constexpr std::int64_t tileColumns = std::max<std::int64_t>(64 / size, 8);
  std::array<std::int64_t, static_cast<std::size_t>(tileRows)> rowOffsets;
  std::array<std::int64_t, static_cast<std::size_t>(tileColumns)> columnOffsets;
  for (std::int64_t column = 0; column < plan.columns.count; column += tileColumns) {
    const auto columns = std::min(tileColumns, plan.columns.count - column);
    for (std::int64_t c = 0; c < columns; ++c) {
      columnOffsets[static_cast<std::size_t>(c)] = plan.columns.at(column + c);
    }
    for (std::int64_t row = 0; row < plan.rows.count; row += tileRows) {
      const auto rows = std::min(tileRows, plan.rows.count - row);
      for (std::int64_t r = 0; r < rows; ++r) {
        rowOffsets[static_cast<std::size_t>(r)] = plan.rows.at(row + r) + column;
        if (const std::int64_t ahead = row + r + rowsAhead; ahead < plan.rows.count) {
          // The last element of the row's part: the tile before fetched the line of the first.
          __builtin_prefetch(source + (plan.rows.at(ahead) + column + columns - 1) * size);
        }
      }
      for (std::int64_t c = 0; c < columns; ++c) {
        std::byte* to = target + (row + columnOffsets[static_cast<std::size_t>(c)]) * size;
        // Without a test for the end of the target: a fetch past it does nothing.
        for (std::int64_t k = 0; k < tileRows * size; k += 64) {
          __builtin_prefetch(to + targetBytesAhead + k, 1);
        }
        for (std::int64_t r = 0; r < rows; ++r) {
          std::memcpy(to + r * size, source + (rowOffsets[static_cast<std::size_t>(r)] + c) * size,
                      Size);
        }
      }
    }
  }
}

}  // namespace

std::optional<Transposition> makeTransposition(const std::vector<std::int64_t>& dimensions) {
  std::vector<std::int64_t> extents;  // without the dimensions of length 1
  std::copy_if(dimensions.begin(), dimensions.end(), std::back_inserter(extents),
               [](std::int64_t dimension) { return dimension != 1; });
  if (extents.size() < 2) extents.insert(extents.begin(), 2 - extents.size(), 1);
  std::vector<std::int64_t> sourceStrides(extents.size());
  computeRowMajorStrides(extents, sourceStrides);
  std::vector<std::int64_t> targetStrides(extents.size(), 1);
  for (std::size_t i = 1; i < extents.size(); ++i) {
    targetStrides[i] = targetStrides[i - 1] * extents[i - 1];
  }

  // About as many rows as columns keep both lists short.
  const auto total = static_cast<std::int64_t>(wrappedProduct(extents));
  std::size_t leading = 1;
  while (leading + 1 < extents.size() && targetStrides[leading] * targetStrides[leading] < total) {
    ++leading;
  }
  const auto split = static_cast<std::ptrdiff_t>(leading);
  const std::vector<std::int64_t> rowExtents(extents.begin(), extents.begin() + split);
  const std::vector<std::int64_t> rowStrides(sourceStrides.begin(), sourceStrides.begin() + split);
  const std::vector<std::int64_t> columnExtents(extents.begin() + split, extents.end());
  const std::vector<std::int64_t> columnStrides(targetStrides.begin() + split, targetStrides.end());
  std::optional<Offsets> rows = makeOffsets(rowExtents, rowStrides, true);
  if (!rows) return std::nullopt;
  std::optional<Offsets> columns = makeOffsets(columnExtents, columnStrides, false);
  if (!columns) return std::nullopt;
  return Transposition{std::move(*rows), std::move(*columns)};
}

void transpose(const Transposition& plan, std::size_t elementSize, const void* source,
               void* target) {
  const auto* from = static_cast<const std::byte*>(source);
  auto* to = static_cast<std::byte*>(target);
  switch (elementSize) {
    case 1:
      return transposeElements<1>(plan, from, to);
    case 2:
      return transposeElements<2>(plan, from, to);
    case 4:
      return transposeElements<4>(plan, from, to);
    case 8:
      return transposeElements<8>(plan, from, to);
    default:
      assert(elementSize == 16);
      return transposeElements<16>(plan, from, to);
  }
}

}  // namespace layout_conversion
