// The walk of a transposition and its plan.
#include "construct/transposition.hpp"

#include <algorithm>
#include <array>
#include <cassert>
#include <cstring>
#include <iterator>

#include "construct/streaming.hpp"
#include "module/dimensions.hpp"

void computeRowMajorStrides(std::span<const std::int64_t> dimensions,
                            std::span<std::int64_t> strides) {
  assert(strides.size() == dimensions.size());
  std::int64_t stride = 1;
  for (std::size_t i = dimensions.size(); i-- > 0;) {
    strides[i] = stride;
    stride *= dimensions[i];
  }
}

HybridTraversal::HybridTraversal(std::span<const std::int64_t> extents,
                                 std::span<const std::int64_t> strides, bool fromLastDimension)
    : m_isEmpty(extents.empty() || std::find(extents.begin(), extents.end(), 0) != extents.end()) {
  assert(strides.size() == extents.size());
  m_dimensions.reserve(extents.size());
  for (std::size_t i = 0; i < extents.size(); ++i) {
    m_dimensions.push_back({extents[i], strides[i], 0});
  }
  if (!fromLastDimension) std::reverse(m_dimensions.begin(), m_dimensions.end());
}

// False after the last position, and back at the first.
bool HybridTraversal::moveOn() {
  for (Dimension& dimension : m_dimensions) {
    m_sum += dimension.stride;
    if (++dimension.index < dimension.extent) return true;
    m_sum -= dimension.stride * dimension.extent;
    dimension.index = 0;
  }
  return false;
}

std::size_t HybridTraversal::generateIndices(std::span<std::int64_t> sums) {
  if (m_isEmpty) return 0;
  std::size_t count = 0;
  while (count < sums.size()) {
    sums[count++] = m_sum;
    if (!moveOn()) break;
  }
  return count;
}

namespace transposition {

namespace {

using Numbers = boost::container::small_vector<std::int64_t, 8>;

std::span<const std::int64_t> spanOf(const Numbers& numbers) {
  return {numbers.data(), numbers.size()};
}

constexpr std::int64_t longestList = 4096;

// Walks in tiles of one cache line by a few rows: a walk down whole columns would fetch a line of
// the source for every element. Lines of later rows are fetched ahead on both sides, because the
// processor does not predict steps of a whole row or column.
template <std::size_t Size>
void transposePiece(const Offsets& rows, const Offsets& columns, const std::byte* source,
                    std::byte* target) {
  constexpr auto size = static_cast<std::int64_t>(Size);
  constexpr std::int64_t rowsAhead = 32;          // For speed only, so no test detects a change.
  constexpr std::int64_t targetBytesAhead = 256;  // For speed only, so no test detects a change.
  constexpr std::int64_t tileRows = 8;            // For speed only, so no test detects a change.
  // For speed only, so no test detects a change.
  constexpr std::int64_t tileColumns = std::max<std::int64_t>(64 / size, 8);
  static_assert(longestList % tileRows == 0 && longestList % tileColumns == 0);
  std::array<std::int64_t, static_cast<std::size_t>(tileRows)> rowOffsets;
  std::array<std::int64_t, static_cast<std::size_t>(tileColumns)> columnOffsets;
  source += columns.first() * size;
  target += rows.first() * size;
  // Elements of a cache line of the source that lie before the first column. A tile ends where a
  // line ends. Where tiles end affects only the speed, so no test detects a change.
  const auto before =
      static_cast<std::int64_t>(reinterpret_cast<std::uintptr_t>(source) % 64) / size;
  std::int64_t columnCount = 0;  // Set in the loop, so no test detects a change.
  for (std::int64_t column = 0; column < columns.size(); column += columnCount) {
    columnCount = std::min(tileColumns - (column + before) % tileColumns, columns.size() - column);
    for (std::int64_t c = 0; c < columnCount; ++c) {
      columnOffsets[static_cast<std::size_t>(c)] = columns.at(column + c);
    }
    for (std::int64_t row = 0; row < rows.size(); row += tileRows) {
      const auto rowCount = std::min(tileRows, rows.size() - row);
      for (std::int64_t r = 0; r < rowCount; ++r) {
        rowOffsets[static_cast<std::size_t>(r)] = rows.at(row + r) + column;
        // Which row is fetched affects only the speed, so no test detects a change of
        // `row + r` to `row - r` or of the condition to `false`.
        if (const std::int64_t ahead = row + r + rowsAhead; ahead < rows.size()) {
          // The last element of the row's part: the tile before fetched the line of the first.
          // A fetch from any address is harmless, so no test detects a change.
          __builtin_prefetch(source + (rows.at(ahead) + column + columnCount - 1) * size);
        }
      }
      for (std::int64_t c = 0; c < columnCount; ++c) {
        std::byte* to = target + (row + columnOffsets[static_cast<std::size_t>(c)]) * size;
        // Without a test for the end of the target: a fetch past it does nothing. Which lines are
        // fetched affects only the speed, so no test detects a change of `0`, `<`, `*`, `64`,
        // `+` or `1`.
        for (std::int64_t k = 0; k < tileRows * size; k += 64) {
          __builtin_prefetch(to + targetBytesAhead + k, 1);
        }
        for (std::int64_t r = 0; r < rowCount; ++r) {
          std::memcpy(to + r * size, source + (rowOffsets[static_cast<std::size_t>(r)] + c) * size,
                      Size);
        }
      }
    }
  }
}

// A few rows of a piece, and the rows just before them. Rows are counted from the first of the
// panel: those before have negative numbers.
struct Panel {
  std::int64_t begin;           // the first row that has an offset; 0 if it is the first panel
  std::int64_t end;             // the number of rows of the panel
  bool isLast;                  // whether the piece ends here
  const std::int64_t* offsets;  // of each row in the source, in bytes
};

// Stores those lines of a column that end in the panel; the first can begin before it. `from` is
// the element of the column in a row with the offset 0, `to` its place for the first row of the
// panel.
template <std::size_t Size>
void streamColumn(const Panel& panel, const std::byte* from, std::byte* to) {
  constexpr auto size = static_cast<std::int64_t>(Size);
  constexpr auto perLine = static_cast<std::int64_t>(streaming::lineSize) / size;
  const auto load = [&](std::int64_t row, std::byte* element) {
    std::memcpy(element, from + panel.offsets[row], Size);
  };
  const auto intoLine =
      static_cast<std::int64_t>(reinterpret_cast<std::uintptr_t>(to) % streaming::lineSize);
  std::int64_t row = -intoLine / size;
  // A whole line is the same without streaming, so no test detects a change of `<` to `<=`.
  if (row < panel.begin) {  // the first line has elements of other columns
    row += perLine;
    for (std::int64_t k = 0; k < std::min(row, panel.end); ++k) load(k, to + k * size);
  }
  for (; row + perLine <= panel.end; row += perLine) {
    std::array<std::byte, streaming::lineSize> line;
    for (std::int64_t k = 0; k < perLine; ++k) load(row + k, line.data() + k * size);
    streaming::storeLine(to + row * size, line.data());
  }
  // The next panel would store the same again, so no test detects a change of the condition to
  // `true`.
  if (panel.isLast) {
    for (; row < panel.end; ++row) load(row, to + row * size);
  }
}

// Walks in panels of a few rows, because the processor fetches ahead only in a few rows at once,
// and within a panel along the rows.
template <std::size_t Size>
void streamPiece(const Offsets& rows, const Offsets& columns, const std::byte* source,
                 std::byte* target) {
  constexpr auto size = static_cast<std::int64_t>(Size);
  constexpr auto perLine = static_cast<std::int64_t>(streaming::lineSize) / size;
  constexpr std::int64_t panelRows = 32;  // For speed only, so no test detects a change.
  constexpr std::int64_t linesAhead = 4;  // For speed only, so no test detects a change.
  static_assert(perLine <= panelRows);
  source += columns.first() * size;
  target += rows.first() * size;
  std::array<std::int64_t, static_cast<std::size_t>(perLine + panelRows)> offsets;
  std::int64_t* const offsetOf = offsets.data() + perLine;  // of a row from the panel's first
  for (std::int64_t first = 0; first < rows.size(); first += panelRows) {
    const std::int64_t left = rows.size() - first;
    const Panel panel = {first == 0 ? 0 : -perLine, std::min(panelRows, left), left <= panelRows,
                         offsetOf};
    for (std::int64_t row = panel.begin; row < panel.end; ++row) {
      offsetOf[row] = rows.at(first + row) * size;
    }
    std::int64_t stripEnd = 0;
    for (std::int64_t column = 0; column < columns.size(); column = stripEnd) {
      stripEnd = std::min(column + perLine, columns.size());
      const std::byte* const ahead = source + (column + linesAhead * perLine) * size;
      // What is fetched affects only the speed, so no test detects a change.
      for (std::int64_t row = 0; row < panel.end; ++row) __builtin_prefetch(ahead + offsetOf[row]);
      for (std::int64_t k = column; k < stripEnd; ++k) {
        streamColumn<Size>(panel, source + k * size, target + (first + columns.at(k)) * size);
      }
    }
  }
}

template <std::size_t Size>
void transposeElements(Transposition& plan, bool isStreamed, const std::byte* source,
                       std::byte* target) {
  while (plan.rows.findPiece()) {
    while (plan.columns.findPiece()) {
      // With smaller elements the work on each takes longer than the memory does.
      if constexpr (Size >= 4) {
        if (isStreamed) {
          streamPiece<Size>(plan.rows, plan.columns, source, target);
          continue;
        }
      }
      transposePiece<Size>(plan.rows, plan.columns, source, target);
    }
  }
}

// Whether streaming is faster: targets below 8 MiB are often read again from a cache, and with few
// rows there are few whole lines.
bool isWorthStreaming(const Transposition& plan, std::size_t elementSize) {
  constexpr std::int64_t leastBytes = 1 << 23;  // For speed only, so no test detects a change.
  constexpr std::int64_t leastRows = 64;        // For speed only, so no test detects a change.
  const std::int64_t rows = plan.rows.count();
  // For speed only, so no test detects a change.
  const std::int64_t bytes = rows * plan.columns.count() * static_cast<std::int64_t>(elementSize);
  // Affects only the speed, so no test detects a change.
  return streaming::isPossible && rows >= leastRows && bytes >= leastBytes;
}

}  // namespace

Offsets::Offsets(std::span<const std::int64_t> extents, std::span<const std::int64_t> strides,
                 bool fromLastDimension)
    : m_count(static_cast<std::int64_t>(wrappedProduct(extents))),
      m_stride(strides.front()),
      m_traversal(extents, strides, fromLastDimension) {
  if (extents.size() > 1) m_list.resize(static_cast<std::size_t>(std::min(m_count, longestList)));
}

bool Offsets::findPiece() {
  m_first += m_size;
  if (m_first == m_count) {
    m_first = 0;
    m_size = 0;
    return false;
  }
  m_size =
      m_list.empty() ? m_count : static_cast<std::int64_t>(m_traversal.generateIndices(m_list));
  return true;
}

Transposition makeTransposition(const std::vector<std::int64_t>& dimensions) {
  Numbers extents;  // without the dimensions of length 1
  std::copy_if(dimensions.begin(), dimensions.end(), std::back_inserter(extents),
               [](std::int64_t dimension) { return dimension != 1; });
  if (extents.size() < 2) extents.insert(extents.begin(), 2 - extents.size(), 1);
  Numbers sourceStrides(extents.size());
  computeRowMajorStrides(spanOf(extents), {sourceStrides.data(), sourceStrides.size()});
  Numbers targetStrides(extents.size(), 1);
  for (std::size_t i = 1; i < extents.size(); ++i) {
    targetStrides[i] = targetStrides[i - 1] * extents[i - 1];
  }

  // About as many rows as columns keep both sides short.
  const auto total = static_cast<std::int64_t>(wrappedProduct(spanOf(extents)));
  std::size_t leading = 1;
  // The number of rows affects only the speed, so no test detects a change of `1` to `2`, of
  // `targetStrides[leading] * targetStrides[leading] < total` or of the condition.
  while (leading + 1 < extents.size() && targetStrides[leading] * targetStrides[leading] < total) {
    ++leading;
  }
  const auto rows = [&](const Numbers& numbers) { return spanOf(numbers).first(leading); };
  const auto columns = [&](const Numbers& numbers) { return spanOf(numbers).subspan(leading); };
  return {Offsets(rows(extents), rows(sourceStrides), true),
          Offsets(columns(extents), columns(targetStrides), false)};
}

void transpose(Transposition plan, std::size_t elementSize, const void* source, void* target) {
  const auto* from = static_cast<const std::byte*>(source);
  auto* to = static_cast<std::byte*>(target);
  // Lines are made of whole elements.
  const bool isStreamed = isWorthStreaming(plan, elementSize) &&
                          reinterpret_cast<std::uintptr_t>(target) % elementSize == 0;
  switch (elementSize) {
    case 1:
      transposeElements<1>(plan, isStreamed, from, to);
      break;
    case 2:
      transposeElements<2>(plan, isStreamed, from, to);
      break;
    case 4:
      transposeElements<4>(plan, isStreamed, from, to);
      break;
    case 8:
      transposeElements<8>(plan, isStreamed, from, to);
      break;
    default:
      assert(elementSize == 16);
      transposeElements<16>(plan, isStreamed, from, to);
  }
  // Only other threads could see the difference, so no test detects a change of the condition.
  if (isStreamed) streaming::finish();
}

}  // namespace transposition
