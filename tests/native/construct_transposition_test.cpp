// The reorder of elements so many that the target is streamed, at every place of a cache line.
#include "construct/transposition.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>
#include <vector>

#include "python_testing.hpp"  // for Numbers

namespace {

using namespace python_testing;

// Memory that is streamed has 8 MiB and more. Numbers of rows and columns are not multiples of a
// line or of a panel, and pieces of long lists end anywhere.
struct ManyElements {
  const char* label;
  std::size_t wordsPerElement;  // a word has 4 bytes
  Numbers dimensions;
  std::size_t intoLine;  // bytes of a cache line that lie before the target
};

const ManyElements manyElements[] = {
    {"4 bytes", 1, {1453, 1459}, 0},
    {"4 bytes, behind the start of a line", 1, {1453, 1459}, 4},
    {"4 bytes, just before the end of a line", 1, {1453, 1459}, 60},
    {"8 bytes", 2, {1031, 1033}, 0},
    {"8 bytes, behind the start of a line", 2, {1031, 1033}, 24},
    {"8 bytes, not at a multiple of an element", 2, {1031, 1033}, 28},
    {"16 bytes", 4, {727, 733}, 0},
    {"16 bytes, behind the start of a line", 4, {727, 733}, 48},
    {"16 bytes, not at a multiple of an element", 4, {727, 733}, 8},
    {"the least number of rows", 2, {64, 16411}, 0},
    {"one row less", 2, {63, 16691}, 0},
    {"fewer columns than a line has elements", 2, {350003, 3}, 0},
    {"lists of offsets on both sides", 2, {129, 17, 17, 31}, 16},
    {"more rows than a list holds", 2, {2, 52501, 2, 5}, 0},
};

// The row-major numbers of the elements in column-major order.
std::vector<std::size_t> placesOf(const Numbers& dimensions) {
  std::vector<std::size_t> places = {0};
  std::size_t stride = 1;
  for (std::size_t k = dimensions.size(); k-- > 0;) {
    // The positions of the later dimensions are there; those of this one run faster.
    const auto length = static_cast<std::size_t>(dimensions[k]);
    std::vector<std::size_t> more;
    more.reserve(places.size() * length);
    for (const std::size_t place : places) {
      for (std::size_t i = 0; i < length; ++i) more.push_back(place + i * stride);
    }
    places = std::move(more);
    stride *= length;
  }
  return places;
}

TEST(TranspositionOfManyElements, GivesEachElementItsPlace) {
  for (const ManyElements& row : manyElements) {
    SCOPED_TRACE(row.label);
    const std::vector<std::size_t> places = placesOf(row.dimensions);
    const std::size_t words = row.wordsPerElement;
    std::vector<std::uint32_t> source(places.size() * words);
    for (std::size_t k = 0; k < source.size(); ++k) {
      source[k] = static_cast<std::uint32_t>(k) * 0x9E3779B1U;
    }
    constexpr std::uint32_t untouched = 0xA5A5A5A5U;
    constexpr std::size_t lineWords = 16;
    std::vector<std::uint32_t> memory(source.size() + 3 * lineWords, untouched);
    const std::size_t start =
        (2 * lineWords - reinterpret_cast<std::uintptr_t>(memory.data()) / 4 % lineWords) +
        row.intoLine / 4;
    std::vector<std::uint32_t> expected = memory;
    for (std::size_t k = 0; k < places.size(); ++k) {
      std::memcpy(&expected[start + k * words], &source[places[k] * words], words * 4);
    }
    transposition::transpose(transposition::makeTransposition(row.dimensions), words * 4,
                             source.data(), &memory[start]);
    const auto different = std::mismatch(memory.begin(), memory.end(), expected.begin()).first;
    EXPECT_EQ(different - memory.begin(), memory.end() - memory.begin()) << "starts at " << start;
  }
}

}  // namespace
