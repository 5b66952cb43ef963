// Arithmetic on dimensions: products, trailing ones, at least two dimensions, text.
#include "module/python.hpp"

#include "module/dimensions.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "python_testing.hpp"

namespace {

using namespace python_testing;

struct ProductRow {
  Numbers dimensions;
  std::optional<std::uint64_t> exact;
  std::uint64_t wrapped;
};

TEST(DimensionProducts, AreExactOrWrapAround) {
  constexpr std::uint64_t two63 = std::uint64_t{1} << 63;
  const ProductRow rows[] = {
      {{2, 3}, 6, 6},
      {{}, 1, 1},
      {{0, 3}, 0, 0},
      {{two32, two32, 0}, 0, 0},
      {{0, two32, two32}, 0, 0},
      {{two32, two32}, std::nullopt, 0},
      {{two32, two32 / 2}, two63, two63},
      {{two32, two32 - 1}, 18446744069414584320U, 18446744069414584320U},
      {{two32, two32, two32}, std::nullopt, 0},
      {{largest, 2}, ~std::uint64_t{0} - 1, ~std::uint64_t{0} - 1},
      {{largest, 3}, std::nullopt, two63 - 3},
  };
  for (const ProductRow& row : rows) {
    SCOPED_TRACE(testing::PrintToString(row.dimensions));
    EXPECT_EQ(exactProduct(row.dimensions), row.exact);
    EXPECT_EQ(wrappedProduct(row.dimensions), row.wrapped);
  }
}

TEST(TrailingOnes, AreDroppedBehindTheSecondDimension) {
  const std::pair<Numbers, Numbers> rows[] = {
      {{}, {}},
      {{1}, {1}},
      {{1, 1}, {1, 1}},
      {{3, 1}, {3, 1}},
      {{1, 1, 1}, {1, 1}},
      {{2, 3, 1, 1}, {2, 3}},
      {{2, 1, 3}, {2, 1, 3}},
      {{2, 1, 3, 1}, {2, 1, 3}},
      {{2, 3, 0, 1}, {2, 3, 0}},
  };
  for (const auto& [dimensions, expected] : rows) {
    SCOPED_TRACE(testing::PrintToString(dimensions));
    EXPECT_EQ(countWithoutTrailingOnes(dimensions), expected.size());
    Numbers dropped = dimensions;
    dropTrailingOnes(dropped);
    EXPECT_EQ(dropped, expected);
  }
}

TEST(TwoDimensions, AreMadeOfASingleOneOnly) {
  const std::pair<Numbers, Numbers> rows[] = {
      {{}, {}}, {{5}, {1, 5}}, {{0}, {1, 0}}, {{2, 3}, {2, 3}}, {{2, 3, 4}, {2, 3, 4}}};
  for (const auto& [dimensions, expected] : rows) {
    Numbers made = dimensions;
    makeTwoDimensional(made);
    EXPECT_EQ(made, expected);
  }
}

TEST(BothOrders, AreTheSameWithOneLengthOtherThanOne) {
  const std::pair<Numbers, bool> rows[] = {{{}, true},      {{7}, true},        {{1, 1}, true},
                                           {{1, 7}, true},  {{7, 1, 1}, true},  {{0, 1}, true},
                                           {{2, 3}, false}, {{2, 1, 3}, false}, {{0, 0}, false},
                                           {{0, 3}, false}, {{1, 2, 2}, false}};
  for (const auto& [dimensions, isSame] : rows) {
    EXPECT_EQ(isSameInBothOrders(dimensions), isSame) << testing::PrintToString(dimensions);
  }
}

TEST(DimensionsText, IsJoinedByCommas) {
  EXPECT_EQ(getDimensionsAsStdString(Numbers{}), "");
  EXPECT_EQ(getDimensionsAsStdString(Numbers{3}), "3");
  EXPECT_EQ(getDimensionsAsStdString(Numbers{2, 3}), "2, 3");
  EXPECT_EQ(getDimensionsAsStdString(Numbers{0, -1, largest}), "0, -1, 9223372036854775807");
}

}  // namespace
