// From filled buffers to arrays: enumeration of positions, the reorder, adoption without a copy.
#include "construct/layout_conversion.hpp"
#include "construct/transposition.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <complex>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "module/element_types.hpp"
#include "python_testing.hpp"
#include "storage/element_buffer.hpp"

namespace {

using namespace python_testing;
using foundation::velmardata::Array;
using foundation::velmardata::TypedArray;
using velmardata_testing::addressOf;
using velmardata_testing::elementsOf;

std::int64_t productOf(const Numbers& dimensions) {
  std::int64_t product = 1;
  for (const std::int64_t dimension : dimensions) product *= dimension;
  return product;
}

// --- Enumerating positions

struct EnumerationRow {
  const char* label;
  Numbers extents;
  Numbers strides;
  Numbers fromLast;   // the first dimension fastest
  Numbers fromFirst;  // the last dimension fastest
};
const EnumerationRow enumerationRows[] = {
    {"2 by 3, row-major", {2, 3}, {3, 1}, {0, 3, 1, 4, 2, 5}, {0, 1, 2, 3, 4, 5}},
    {"2 by 3, column-major", {2, 3}, {1, 2}, {0, 1, 2, 3, 4, 5}, {0, 2, 4, 1, 3, 5}},
    {"one dimension", {4}, {10}, {0, 10, 20, 30}, {0, 10, 20, 30}},
    {"2 by 2 by 2", {2, 2, 2}, {4, 2, 1}, {0, 4, 2, 6, 1, 5, 3, 7}, {0, 1, 2, 3, 4, 5, 6, 7}},
    {"ones between", {1, 2, 1, 2}, {99, 2, 99, 1}, {0, 2, 1, 3}, {0, 1, 2, 3}},
    {"negative strides", {2, 2}, {-10, 1}, {0, -10, 1, -9}, {0, 1, -10, -9}},
    {"no strides", {2, 2}, {0, 0}, {0, 0, 0, 0}, {0, 0, 0, 0}},
    {"one position", {1, 1, 1}, {5, 5, 5}, {0}, {0}},
    {"zero first", {0, 3}, {3, 1}, {}, {}},
    {"zero last", {3, 0}, {1, 1}, {}, {}},
    {"zero between", {2, 0, 4}, {4, 4, 1}, {}, {}},
    {"no dimensions", {}, {}, {}, {}},
};

// All sums, asked for in pieces of one length.
Numbers sumsOf(const EnumerationRow& row, bool fromLastDimension, std::size_t piece) {
  HybridTraversal traversal(row.extents, row.strides, fromLastDimension);
  const auto expected = static_cast<std::size_t>(row.fromLast.size());
  Numbers sums;
  while (sums.size() < expected) {
    Numbers place(piece, -1);
    const std::size_t count = traversal.generateIndices(place);
    if (count == 0 || count > piece) break;
    sums.insert(sums.end(), place.begin(), place.begin() + static_cast<std::ptrdiff_t>(count));
  }
  return sums;
}

TEST(HybridTraversalTest, EnumeratesInBothDirections) {
  for (const EnumerationRow& row : enumerationRows) {
    SCOPED_TRACE(row.label);
    for (const std::size_t piece : {1U, 2U, 3U, 100U}) {
      EXPECT_EQ(sumsOf(row, true, piece), row.fromLast);
      EXPECT_EQ(sumsOf(row, false, piece), row.fromFirst);
    }
  }
}

TEST(HybridTraversalTest, StartsAnewAfterTheLastPosition) {
  for (const EnumerationRow& row : enumerationRows) {
    SCOPED_TRACE(row.label);
    HybridTraversal traversal(row.extents, row.strides, true);
    for (int round = 0; round < 2; ++round) {
      Numbers place(100, -1);
      EXPECT_EQ(traversal.generateIndices(place), row.fromLast.size());
      place.resize(row.fromLast.size());
      EXPECT_EQ(place, row.fromLast);
    }
  }
}

TEST(RowMajorStrides, AreTheProductsOfTheLaterDimensions) {
  const std::pair<Numbers, Numbers> rows[] = {
      {{2, 3, 4}, {12, 4, 1}},     {{5}, {1}}, {{}, {}}, {{2, 3}, {3, 1}}, {{2, 0, 4}, {0, 4, 1}},
      {{7, 1, 1, 2}, {2, 2, 2, 1}}};
  for (const auto& [dimensions, expected] : rows) {
    Numbers strides(dimensions.size(), -1);
    computeRowMajorStrides(dimensions, strides);
    EXPECT_EQ(strides, expected);
  }
}

// --- The reorder

// Values without a pattern, so that a misplaced element is noticed.
template <class T>
T scattered(std::int64_t i) {
  const auto bits = (static_cast<std::uint64_t>(i) + 1) * 0x9E3779B97F4A7C15U;
  if constexpr (isComplexElement<T>) {
    return T(static_cast<Part<T>>(bits >> 41), static_cast<Part<T>>(bits >> 37));
  } else if constexpr (std::is_same_v<T, bool>) {
    return (bits >> 40) % 2 != 0;
  } else {
    return static_cast<T>(bits >> 41);
  }
}

template <class T>
ElementBuffer<T> scatteredBuffer(std::int64_t count) {
  auto buffer = tryCreateElementBuffer<T>(static_cast<std::uint64_t>(count));
  for (std::int64_t i = 0; i < count; ++i) buffer[static_cast<std::size_t>(i)] = scattered<T>(i);
  return buffer;
}

// The row-major number of the element whose column-major number is k. Computes the indices from the
// first dimension to the last, without strides.
std::int64_t rowMajorPlace(std::int64_t k, const Numbers& dimensions) {
  std::int64_t place = 0;
  std::int64_t rest = k;
  for (const std::int64_t dimension : dimensions) {
    place = place * dimension + rest % dimension;
    rest /= dimension;
  }
  return place;
}

const Numbers shapes[] = {
    {2},
    {7},
    {1, 7},
    {7, 1},
    {2, 3},
    {3, 2},
    {8, 8},
    {9, 17},
    {67, 131},
    {131, 67},
    {1, 97},
    {257, 65},
    {2, 2, 2},
    {2, 1, 2},
    {129, 1, 33},
    {17, 9, 23},
    {1, 1, 19},
    {19, 1, 1},
    {2, 3, 4, 5},
    {33, 5, 7, 11},
    {1, 13, 1, 17},
    {3, 5, 7, 9, 11},
    {11, 1, 9, 1, 65},
    {2, 2, 2, 2, 2},
    {2, 4097, 2},  // more positions than a list of offsets holds
    {3, 5, 2731, 2},
    {2, 2, 67, 67, 3},
};

// target[row + offset of the column] = source[offset of the row + column], checked against the
// same formula as the reorder itself.
TEST(TranspositionPlan, GivesEachElementItsPlace) {
  for (const Numbers& dimensions : shapes) {
    SCOPED_TRACE(testing::PrintToString(dimensions));
    auto plan = transposition::makeTransposition(dimensions);
    const std::int64_t count = productOf(dimensions);
    Numbers sources(static_cast<std::size_t>(count), -1);
    std::int64_t pairs = 0;
    while (plan.rows.findPiece()) {
      while (plan.columns.findPiece()) {
        for (std::int64_t row = 0; row < plan.rows.size(); ++row) {
          for (std::int64_t column = 0; column < plan.columns.size(); ++column, ++pairs) {
            sources.at(
                static_cast<std::size_t>(plan.rows.first() + row + plan.columns.at(column))) =
                plan.rows.at(row) + plan.columns.first() + column;
          }
        }
      }
    }
    EXPECT_EQ(pairs, count) << "each once";
    for (std::int64_t k = 0; k < count; ++k) {
      ASSERT_EQ(sources[static_cast<std::size_t>(k)], rowMajorPlace(k, dimensions)) << k;
    }
  }
}

TEST(TranspositionPlan, HasShortPieces) {
  constexpr std::int64_t longest = 4096;
  const Numbers longShapes[] = {
      {2, 100000, 2}, {2, 2, 100000, 3}, {3, 4097, 5}, {70, 70, 70}, {9000, 2, 9000}};
  for (const Numbers& dimensions : longShapes) {
    SCOPED_TRACE(testing::PrintToString(dimensions));
    auto plan = transposition::makeTransposition(dimensions);
    std::int64_t positions = 1;
    for (transposition::Offsets* side : {&plan.rows, &plan.columns}) {
      std::int64_t found = 0;
      std::int64_t longestFound = 0;
      while (side->findPiece()) {
        ASSERT_EQ(side->first(), found);
        longestFound = std::max(longestFound, side->size());
        found += side->size();
      }
      const bool isOneDimension = longestFound == found;
      EXPECT_TRUE(isOneDimension || longestFound <= longest) << longestFound;
      positions *= found;
    }
    EXPECT_EQ(positions, productOf(dimensions));
  }
}

TYPED_SUITE(Reorder, AllTypes, TypeWords);

TYPED_CASE(Reorder, PutsEachElementInItsPlace) {
  for (const Numbers& dimensions : shapes) {
    SCOPED_TRACE(testing::PrintToString(dimensions));
    const std::int64_t count = productOf(dimensions);
    const auto source = scatteredBuffer<TypeParam>(count);
    for (const bool throughDecision : {false, true}) {
      auto buffer = scatteredBuffer<TypeParam>(count);
      const std::optional<Array> array =
          throughDecision ? makeTypedArrayFromBuf(std::move(buffer), false, dimensions, count)
                          : convertRowMajorBufferToColumnMajor(factsOf<TypeParam>, source.get(),
                                                               dimensions, count);
      ASSERT_TRUE(array);
      EXPECT_EQ(array->getDimensions(), Dimensions(dimensions.begin(), dimensions.end()));
      const TypedArray<TypeParam> typed(*array);
      const TypeParam* const elements = std::to_address(typed.begin());
      for (std::int64_t k = 0; k < count; ++k) {
        ASSERT_EQ(elements[k], scattered<TypeParam>(rowMajorPlace(k, dimensions))) << k;
      }
    }
    for (std::int64_t i = 0; i < count; ++i) {
      ASSERT_EQ(source[static_cast<std::size_t>(i)], scattered<TypeParam>(i)) << "source changed";
    }
  }
}

TEST(ReorderOfDoubles, KnownOrders) {
  struct Row {
    Numbers dimensions;
    std::vector<double> expected;
  };
  const Row rows[] = {{{2, 3}, {1, 4, 2, 5, 3, 6}}, {{2, 2, 2}, {1, 5, 3, 7, 2, 6, 4, 8}}};
  for (const Row& row : rows) {
    auto buffer = tryCreateElementBuffer<double>(row.expected.size());
    for (std::size_t i = 0; i < row.expected.size(); ++i) {
      buffer[i] = static_cast<double>(i + 1);
    }
    const auto array =
        makeTypedArrayFromBuf(std::move(buffer), false, row.dimensions, productOf(row.dimensions));
    ASSERT_TRUE(array);
    EXPECT_EQ(elementsOf(TypedArray<double>(*array)), row.expected);
  }
}

TEST(ReorderFailure, MemoryIsShort) {
  const auto source = scatteredBuffer<double>(4);
  EXPECT_FALSE(convertRowMajorBufferToColumnMajor(factsOf<double>, source.get(), Numbers{2, 2},
                                                  std::int64_t{1} << 60));
  EXPECT_TRUE(raised(PyExc_MemoryError,
                     "unable to allocate memory for array with number of elements = "
                     "1152921504606846976; type = double"));
  const auto characters = scatteredBuffer<char16_t>(4);
  EXPECT_FALSE(convertRowMajorBufferToColumnMajor(factsOf<char16_t>, characters.get(),
                                                  Numbers{2, 2}, std::int64_t{1} << 61));
  EXPECT_TRUE(raised(PyExc_MemoryError,
                     "unable to allocate memory for array with number of elements = "
                     "2305843009213693952; type = double"));
}

// --- Adoption

TYPED_SUITE(Adoption, AllTypes, TypeWords);

// Expects that the array has the block of the buffer it is made of.
template <class T>
void expectAdopted(const Numbers& dimensions, bool bufferInStorageOrder,
                   std::int64_t numberOfElements) {
  const std::int64_t count = productOf(dimensions);
  auto buffer = scatteredBuffer<T>(count);
  const void* const block = buffer.get();
  const std::optional<Array> array =
      makeTypedArrayFromBuf(std::move(buffer), bufferInStorageOrder, dimensions, numberOfElements);
  ASSERT_TRUE(array);
  EXPECT_EQ(buffer.get(), nullptr) << "the function takes the buffer";
  const TypedArray<T> typed(*array);
  EXPECT_EQ(addressOf(typed), block);
  EXPECT_EQ(array->getDimensions(), Dimensions(dimensions.begin(), dimensions.end()));
  for (std::int64_t k = 0; k < count; ++k) ASSERT_EQ(typed.begin()[k], scattered<T>(k));
}

TYPED_CASE(Adoption, OfABufferInStorageOrder) {
  expectAdopted<TypeParam>({2, 3}, true, 6);
  expectAdopted<TypeParam>({3, 5, 7}, true, 105);
}

TYPED_CASE(Adoption, OfABufferThatNeedsNoReordering) {
  expectAdopted<TypeParam>({2, 3}, false, 0);  // no element was flattened
  expectAdopted<TypeParam>({1, 1}, false, 1);
  expectAdopted<TypeParam>({2, 3}, false, 1);  // a single element needs no reordering
  expectAdopted<TypeParam>({1, 1, 1, 1}, false, 1);
  expectAdopted<TypeParam>({0, 0}, false, 0);
  expectAdopted<TypeParam>({3, 0, 2}, false, 0);
  expectAdopted<TypeParam>({1, 2}, false, 2);  // only one length differs from 1
  expectAdopted<TypeParam>({97, 1}, false, 97);
  expectAdopted<TypeParam>({1, 1, 6, 1}, false, 6);
}

// --- Buffers that are not adopted

int s_freed = 0;

// A buffer of samples whose deleter counts.
ElementBuffer<double> countedBuffer(std::size_t count) {
  s_freed = 0;
  auto* const elements = new double[count];
  for (std::size_t i = 0; i < count; ++i) elements[i] = sample<double>(i);
  return {elements, [](void* block) {
            ++s_freed;
            delete[] static_cast<double*>(block);
          }};
}

TEST(ReorderedBuffer, IsFreedAfterwards) {
  auto buffer = countedBuffer(6);
  const auto array = makeTypedArrayFromBuf(std::move(buffer), false, Numbers{2, 3}, 6);
  EXPECT_EQ(buffer.get(), nullptr) << "the function takes the buffer";
  EXPECT_EQ(s_freed, 1);
  ASSERT_TRUE(array);
  EXPECT_EQ(elementsOf(TypedArray<double>(*array)), (std::vector<double>{1, 4, 2, 5, 3, 6}));
}

TEST(ReorderedBuffer, IsFreedAfterAFailure) {
  EXPECT_FALSE(
      makeTypedArrayFromBuf(countedBuffer(4), false, Numbers{2, 2}, std::int64_t{1} << 60));
  EXPECT_EQ(s_freed, 1);
  EXPECT_TRUE(raisedOwn(PyExc_MemoryError));
}

}  // namespace
