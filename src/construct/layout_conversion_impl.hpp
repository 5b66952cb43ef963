// Bodies of the layout conversion.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>

#include "construct/layout_conversion.hpp"
#include "construct/memory_error.hpp"
#include "module/element_types.hpp"
#include "module/support.hpp"

namespace layout_conversion {

// Offsets of the positions of some dimensions: multiples of one stride where a single dimension
// counts, a list otherwise.
struct Offsets {
  std::int64_t count = 1;
  std::int64_t stride = 0;
  std::vector<std::int64_t> list;

  std::int64_t at(std::int64_t k) const {
    return list.empty() ? k * stride : list[static_cast<std::size_t>(k)];
  }
};

// The reorder as the transposition of a matrix whose rows are the positions of the leading
// dimensions and whose columns are those of the others:
//   target[row + columns.at(column)] = source[rows.at(row) + column]
struct Transposition {
  Offsets rows;
  Offsets columns;
};

// Dimensions of length 1 move no element, and a space of one other dimension has one order only.
bool isSameInBothOrders(const std::vector<std::int64_t>& dimensions);

// False with RecursionError set.
bool makeTransposition(const std::vector<std::int64_t>& dimensions, Transposition& result);

// An element that may lie at any address.
template <class From>
From load(const std::byte* source, std::int64_t index) {
  From element;
  std::memcpy(&element, source + index * static_cast<std::int64_t>(sizeof(From)), sizeof(From));
  return element;
}

// Walks in tiles of one cache line by a few rows: a walk down whole columns would fetch a line of
// the source for every element. The lines of rows to come are fetched ahead, since the processor
// does not foresee jumps of a whole row.
template <class From, class T>
void transpose(const Transposition& plan, const std::byte* source, T* target) {
  constexpr std::int64_t rowsAhead = 32;
  constexpr std::int64_t tileRows = 8;
  constexpr std::int64_t tileColumns =
      std::max<std::int64_t>(64 / static_cast<std::int64_t>(sizeof(T)), 8);
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
          // The last element of the row's part: the line of the first came with the tile before.
          __builtin_prefetch(source + (plan.rows.at(ahead) + column + columns - 1) *
                                          static_cast<std::int64_t>(sizeof(From)));
        }
      }
      for (std::int64_t c = 0; c < columns; ++c) {
        T* to = target + row + columnOffsets[static_cast<std::size_t>(c)];
        for (std::int64_t r = 0; r < rows; ++r) {
          to[r] = static_cast<T>(load<From>(source, rowOffsets[static_cast<std::size_t>(r)] + c));
        }
      }
    }
  }
}

template <class T>
foundation::velmardata::Array adopt(foundation::velmardata::standalone::ClientArrayFactory& factory,
                                    ElementBuffer<T>&& buffer,
                                    const std::vector<std::int64_t>& dimensions) {
  const auto deleter = buffer.get_deleter();
  return factory.createArrayFromBuffer(
      std::vector<unsigned long>(dimensions.begin(), dimensions.end()),
      foundation::velmardata::arrayTypeOf<T>,
      std::unique_ptr<void, void (*)(void*)>(buffer.release(), deleter),
      velmar::data::MemoryLayout::Default);
}

}  // namespace layout_conversion

template <class T>
std::optional<foundation::velmardata::Array> makeTypedArrayFromBuf(
    ElementBuffer<T>&& buffer, bool bufferInStorageOrder,
    foundation::velmardata::standalone::ClientArrayFactory& factory,
    const std::vector<std::int64_t>& dimensions, const std::vector<std::int64_t>& storedDimensions,
    std::int64_t numberOfElements) {
  if (numberOfElements < 2 || bufferInStorageOrder) {
    return layout_conversion::adopt(factory, std::move(buffer), dimensions);
  }
  if (layout_conversion::isSameInBothOrders(dimensions)) {
    return layout_conversion::adopt(factory, std::move(buffer), storedDimensions);
  }
  return convertRowMajorBufferToColumnMajor(factory, static_cast<const T*>(buffer.get()),
                                            dimensions, storedDimensions, numberOfElements);
}

template <class T>
std::optional<foundation::velmardata::Array> convertRowMajorBufferToColumnMajor(
    foundation::velmardata::standalone::ClientArrayFactory& factory, const T* source,
    const std::vector<std::int64_t>& dimensions, const std::vector<std::int64_t>& storedDimensions,
    std::int64_t numberOfElements) {
  layout_conversion::Transposition plan;
  if (!layout_conversion::makeTransposition(dimensions, plan)) return std::nullopt;
  ElementBuffer<T> target =
      createElementBuffer<T>(factory, static_cast<std::uint64_t>(numberOfElements));
  if (target == nullptr) {
    setOutOfMemory(static_cast<std::uint64_t>(numberOfElements), typeWord<T>);
    return std::nullopt;
  }
  layout_conversion::transpose<T>(plan, reinterpret_cast<const std::byte*>(source), target.get());
  return layout_conversion::adopt(factory, std::move(target), storedDimensions);
}

template <class Index, class Placeholder>
bool HybridTraversal::generateIndices(const std::vector<Index>& extents,
                                      const std::vector<Index>& strides,
                                      std::vector<Index>& indices, std::vector<Index>& counters,
                                      bool fromLastDimension) {
  const auto rank = static_cast<std::int64_t>(extents.size());
  if (rank == 0) return true;
  return fromLastDimension ? generateIndicesImpl<Index, Placeholder>(extents, strides, 0, -1, rank,
                                                                     indices, counters, rank - 1)
                           : generateIndicesImpl<Index, Placeholder>(extents, strides, rank - 1, 1,
                                                                     rank, indices, counters, 0);
}

template <class Index, class Placeholder>
bool HybridTraversal::generateIndicesImpl(const std::vector<Index>& extents,
                                          const std::vector<Index>& strides,
                                          std::int64_t lastDimension, std::int64_t step,
                                          std::int64_t rank, std::vector<Index>& indices,
                                          std::vector<Index>& counters, std::int64_t dimension) {
  const RecursionGuard guard(" while reordering elements");
  if (!guard) return false;
  const auto place = static_cast<std::size_t>(dimension);
  if (extents[place] == counters[place]) {  // on entry only: no positions at all
    counters[place] = 0;
    return true;
  }
  for (;;) {
    if (dimension != lastDimension) {
      if (!generateIndicesImpl<Index, Placeholder>(extents, strides, lastDimension, step, rank,
                                                   indices, counters, dimension + step)) {
        return false;
      }
    } else {
      Index sum = 0;
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
