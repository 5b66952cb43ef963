// The walk of a transposition, which moves the elements.
#include <algorithm>
#include <array>
#include <cassert>
#include <cstring>
#include <iterator>
#include <type_traits>
#include <utility>

#include "construct/streaming.hpp"
#include "construct/transposition.hpp"

namespace transposition {

namespace {

// Some rows and columns of a piece: the offsets in bytes of the rows in the source, and of the
// columns in the target.
struct Tile {
  std::int64_t rowCount = 0;     // Set before it is read, so no test detects a change.
  std::int64_t columnCount = 0;  // Set before it is read, so no test detects a change.
  std::array<std::int64_t, 32> rows;
  std::array<std::int64_t, 64> columns;
};

// Moves the elements of a tile one by one, from a first row and column on.
template <std::size_t Size>
void moveElements(const Tile& tile, std::int64_t firstRow, std::int64_t firstColumn,
                  std::int64_t endColumn, const std::byte* source, std::byte* target) {
  constexpr auto size = static_cast<std::int64_t>(Size);
  for (std::int64_t c = firstColumn; c < endColumn; ++c) {
    const std::byte* from = source + c * size;
    std::byte* to = target + tile.columns[static_cast<std::size_t>(c)];
    for (std::int64_t r = firstRow; r < tile.rowCount; ++r) {
      std::memcpy(to + r * size, from + tile.rows[static_cast<std::size_t>(r)], Size);
    }
  }
}

// As many rows and columns as a register of 16 bytes has elements, here as unsigned numbers.
template <class Unsigned>
struct Square {
  static constexpr std::size_t count = 16 / sizeof(Unsigned);
  typedef Unsigned Register __attribute__((vector_size(16)));
  using Places = std::make_index_sequence<count>;

  // Elements of a and b in turn, from the one at `first` on.
  template <std::size_t first, std::size_t... place>
  static Register mixed(Register a, Register b, std::index_sequence<place...>) {
    return __builtin_shufflevector(a, b, (first + place / 2 + place % 2 * count)...);
  }

  static void move(const std::int64_t* rows, const std::int64_t* columns, const std::byte* source,
                   std::byte* target) {
    Register registers[count];
    for (std::size_t k = 0; k < count; ++k) std::memcpy(&registers[k], source + rows[k], 16);
    // After the last pass each register has one element of every row.
    for (std::size_t pass = 1; pass < count; pass *= 2) {
      Register before[count];
      std::copy(std::begin(registers), std::end(registers), std::begin(before));
      for (std::size_t k = 0; k < count / 2; ++k) {
        registers[2 * k] = mixed<0>(before[k], before[k + count / 2], Places());
        registers[2 * k + 1] = mixed<count / 2>(before[k], before[k + count / 2], Places());
      }
    }
    for (std::size_t k = 0; k < count; ++k) std::memcpy(target + columns[k], &registers[k], 16);
  }
};

template <std::size_t Size>
void moveTile(const Tile& tile, const std::byte* source, std::byte* target) {
  if constexpr (Size >= 8) {  // squares of two elements a side take as long
    moveElements<Size>(tile, 0, 0, tile.columnCount, source, target);
  } else {
    using Unsigned =
        std::conditional_t<Size == 1, std::uint8_t,
                           std::conditional_t<Size == 2, std::uint16_t, std::uint32_t>>;
    constexpr auto count = static_cast<std::int64_t>(Square<Unsigned>::count);
    constexpr auto size = static_cast<std::int64_t>(Size);
    const std::int64_t rows = tile.rowCount - tile.rowCount % count;
    const std::int64_t columns = tile.columnCount - tile.columnCount % count;
    for (std::int64_t r = 0; r < rows; r += count) {
      for (std::int64_t c = 0; c < columns; c += count) {
        Square<Unsigned>::move(&tile.rows[static_cast<std::size_t>(r)],
                               &tile.columns[static_cast<std::size_t>(c)], source + c * size,
                               target + r * size);
      }
    }
    moveElements<Size>(tile, rows, 0, columns, source, target);
    moveElements<Size>(tile, 0, columns, tile.columnCount, source, target);
  }
}

// Walks in tiles of one cache line by a few rows: a walk down whole columns would fetch a line of
// the source for every element. Lines of later rows are fetched ahead on both sides, because the
// processor does not predict steps of a whole row or column.
template <std::size_t Size>
void transposePiece(const Offsets& rows, const Offsets& columns, const std::byte* source,
                    std::byte* target) {
  constexpr auto size = static_cast<std::int64_t>(Size);
  constexpr std::int64_t rowsAhead = 32;          // For speed only, so no test detects a change.
  constexpr std::int64_t targetBytesAhead = 256;  // For speed only, so no test detects a change.
  // For speed only, so no test detects a change.
  constexpr std::int64_t tileRows = Size < 8 ? 32 : 8;
  // For speed only, so no test detects a change.
  constexpr std::int64_t tileColumns = std::max<std::int64_t>(64 / size, 8);
  source += columns.first() * size;
  target += rows.first() * size;
  // Elements of a cache line of the source that lie before the first column. A tile ends where a
  // line ends. Where tiles end affects only the speed, so no test detects a change.
  const auto before =
      static_cast<std::int64_t>(reinterpret_cast<std::uintptr_t>(source) % 64) / size;
  Tile tile;
  for (std::int64_t column = 0; column < columns.size(); column += tile.columnCount) {
    tile.columnCount =
        std::min(tileColumns - (column + before) % tileColumns, columns.size() - column);
    for (std::int64_t c = 0; c < tile.columnCount; ++c) {
      tile.columns[static_cast<std::size_t>(c)] = columns.at(column + c) * size;
    }
    for (std::int64_t row = 0; row < rows.size(); row += tileRows) {
      tile.rowCount = std::min(tileRows, rows.size() - row);
      for (std::int64_t r = 0; r < tile.rowCount; ++r) {
        tile.rows[static_cast<std::size_t>(r)] = (rows.at(row + r) + column) * size;
        // Which row is fetched affects only the speed, so no test detects a change of
        // `row + r` to `row - r` or of the condition to `false`.
        if (const std::int64_t ahead = row + r + rowsAhead; ahead < rows.size()) {
          // The last element of the row's part: the tile before fetched the line of the first.
          // A fetch from any address is harmless, so no test detects a change.
          __builtin_prefetch(source + (rows.at(ahead) + column + tile.columnCount - 1) * size);
        }
      }
      std::byte* const to = target + row * size;
      for (std::int64_t c = 0; c < tile.columnCount; ++c) {
        const std::byte* const begin = to + tile.columns[static_cast<std::size_t>(c)];
        // Without a test for the end of the target: a fetch past it does nothing. Which lines are
        // fetched affects only the speed, so no test detects a change of `0`, `<`, `*`, `64`,
        // `+` or `1`.
        for (std::int64_t k = 0; k < tileRows * size; k += 64) {
          __builtin_prefetch(begin + targetBytesAhead + k, 1);
        }
      }
      moveTile<Size>(tile, source, to);
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
      // What is fetched affects only the speed, so no test detects a change.
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
      // Smaller elements are faster in squares.
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
