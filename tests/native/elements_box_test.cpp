// Boxes and regions: which parts of a storage are found in memory, and which are refused.
#include "elements/box.hpp"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "elements/traversal.hpp"
#include "python_testing.hpp"

namespace {

using namespace python_testing;

// "offset: count*stride ..." in units of elements.
std::string describeRegion(const std::optional<Region>& region, std::int64_t elementSize) {
  if (!region) return "nothing";
  std::string text = std::to_string(region->offset / elementSize) + ":";
  std::int64_t count = 1;
  for (const Lane& lane : region->lanes) {
    text += " " + std::to_string(lane.count) + "*" + std::to_string(lane.stride / elementSize);
    count *= lane.count;
    EXPECT_EQ(lane.stride % elementSize, 0);
  }
  EXPECT_EQ(region->count, count);
  return text;
}

// --- Regions of a 4 by 5 by 6 storage, first dimension densest

struct RegionRow {
  const char* label;
  IndexChain chain;
  const char* expected;
};

const RegionRow regionRows[] = {
    {"whole", {}, "0: 4*1 5*4 6*20"},
    {"integer", chainOf({2}), "2: 5*4 6*20"},
    {"two integers", chainOf({2, 3}), "14: 6*20"},
    {"last of each", chainOf({3, 4}), "19: 6*20"},
    {"all dimensions fixed", chainOf({0, 0, 0}), "nothing"},
    {"more integers than dimensions", chainOf({0, 0, 0, 0}), "nothing"},
    {"slice behind all dimensions", chainOf({0, 0, 0}, slice(0, 1, 1, 1)), "nothing"},
    {"slice", chainOf({}, slice(1, 3, 1, 2)), "1: 2*1 5*4 6*20"},
    {"slice with a step", chainOf({}, slice(0, 4, 2, 2)), "0: 2*2 5*4 6*20"},
    {"backwards", chainOf({}, slice(3, -1, -1, 4)), "3: 4*-1 5*4 6*20"},
    {"backwards by three", chainOf({}, slice(3, -3, -3, 2)), "3: 2*-3 5*4 6*20"},
    {"slice behind an integer", chainOf({1}, slice(4, 1, -2, 2)), "17: 2*-8 6*20"},
    {"slice in the last dimension", chainOf({3, 1}, slice(5, -1, -5, 2)), "107: 2*-100"},
    {"one position", chainOf({}, slice(2, 3, 1, 1)), "2: 1*1 5*4 6*20"},
    {"extreme step up", chainOf({}, slice(2, largest, largest, 1)), "2: 1*1 5*4 6*20"},
    {"extreme step down", chainOf({1}, slice(2, -1, -largest, 1)), "9: 1*4 6*20"},
    {"extreme step for two positions", chainOf({}, slice(0, largest, largest / 2 + 1, 2)),
     "nothing"},
    {"step that overflows times the stride", chainOf({0, 0}, slice(0, largest, largest / 100, 100)),
     "nothing"},
    {"start that overflows times the stride", chainOf({}, slice(largest - 1, largest, 1, 1)),
     "nothing"},
    {"start whose sum with the rest overflows",
     chainOf({}, slice(largest / 8, largest / 8 + 1, 1, 1)), "nothing"},
    {"no positions", chainOf({}, slice(0, 0, 1, 0)), "nothing"},
    {"no positions behind an integer", chainOf({1}, slice(2, 2, -1, 0)), "nothing"},
    {"integer outside", chainOf({4}), "nothing"},
    {"integer far outside", chainOf({largest}), "nothing"},
    {"integer below", chainOf({-1}), "nothing"},
    {"integer far below", chainOf({-largest}), "nothing"},
    {"integers whose sum overflows", chainOf({largest / 8, largest / 32}), "nothing"},
    // Reads find elements past the end of their column as long as they are inside the storage.
    {"outside its column, inside the storage", chainOf({5}, slice(0, 2, 1, 2)), "5: 2*4 6*20"},
    {"the same with one element outside", chainOf({5}, slice(0, 5, 1, 5)), "nothing"},
    {"below its column, inside the storage", chainOf({-1}, slice(1, 3, 1, 2)), "3: 2*4 6*20"},
    {"slice past the end", chainOf({3}, slice(3, 6, 1, 3)), "nothing"},
    {"start below 0", chainOf({}, slice(-2, 2, 2, 2)), "nothing"},
    {"end below 0", chainOf({}, slice(1, -4, -2, 3)), "nothing"},
    {"length that is not the number of positions", chainOf({}, slice(0, 3, 1, 2)), "nothing"},
    {"length that is too large", chainOf({}, slice(0, 3, 1, 99)), "nothing"},
    {"not normalised", chainOf({}, SliceIndexItem{0, 2, 1, 2, false}), "nothing"},
    {"without numbers", chainOf({}, SliceIndexItem{}), "nothing"},
};

TEST(Regions, AreFoundOrRefused) {
  const MDArrayWrapper storage(sampleArray<double>({4, 5, 6}), 'F', Contents::Own);
  const MDArrayWrapper ofBytes(sampleArray<bool>({4, 5, 6}), 'F', Contents::Own);
  for (const RegionRow& row : regionRows) {
    SCOPED_TRACE(row.label);
    EXPECT_EQ(describeRegion(findRegion(storage, row.chain), 8), row.expected);
    EXPECT_EQ(describeRegion(findRegion(ofBytes, row.chain), 1), row.expected);
    EXPECT_TRUE(raisedNothing());
  }
}

TEST(Regions, FollowTheOrderOfTheStorage) {
  const MDArrayWrapper storage(sampleArray<std::int16_t>({4, 5, 6}), 'C', Contents::Own);
  EXPECT_EQ(describeRegion(findRegion(storage, {}), 2), "0: 4*30 5*6 6*1");
  EXPECT_EQ(describeRegion(findRegion(storage, chainOf({3}, slice(4, -1, -1, 5))), 2),
            "114: 5*-6 6*1");
}

TEST(Regions, OfOneDimensionAndOfNone) {
  const MDArrayWrapper row(sampleArray<float>({5}), 'F', Contents::Own);
  EXPECT_EQ(describeRegion(findRegion(row, {}), 4), "0: 5*1");
  EXPECT_EQ(describeRegion(findRegion(row, chainOf({}, slice(4, -1, -2, 3))), 4), "4: 3*-2");
  EXPECT_EQ(describeRegion(findRegion(row, chainOf({2})), 4), "nothing");
  const MDArrayWrapper scalar(sampleArray<float>({}), 'F', Contents::Own);
  EXPECT_EQ(describeRegion(findRegion(scalar, {}), 4), "nothing");
}

TEST(Regions, OfStorageWithoutElementsAreRefused) {
  for (const Dimensions& dimensions : {Dimensions{0, 3}, Dimensions{3, 0}, Dimensions{2, 0, 4}}) {
    const MDArrayWrapper storage(sampleArray<double>(dimensions), 'F', Contents::Own);
    EXPECT_EQ(describeRegion(findRegion(storage, {}), 8), "nothing");
    EXPECT_EQ(describeRegion(findRegion(storage, chainOf({0})), 8), "nothing");
  }
}

// Behind an integer in the dimension of length 0, the lengths are as large as the caller likes, and
// their products are beyond 64 bits.
TEST(Regions, OfLengthsThatOverflowAreRefused) {
  constexpr unsigned long large = 1UL << 40;
  const struct {
    const char* label;
    Dimensions dimensions;
    char order;
    IndexChain chain;
  } rows[] = {
      {"number of elements", {0, large, large}, 'F', chainOf({0})},
      {"offset of the last element", {0, 2 * large, 3, large}, 'C', chainOf({0})},
      {"offset of the first element", {0, 2, 1UL << 60}, 'C', chainOf({0}, slice(1, 3, 1, 2))},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.label);
    const MDArrayWrapper storage(sampleArray<double>(row.dimensions), row.order, Contents::Own);
    EXPECT_EQ(describeRegion(findRegion(storage, row.chain), 8), "nothing");
  }
  EXPECT_TRUE(raisedNothing());
}

TEST(Regions, FollowAReshape) {
  MDArrayWrapper storage(sampleArray<double>({4, 6}), 'F', Contents::Own);
  const IndexChain chain = chainOf({3}, slice(5, 1, -2, 2));
  EXPECT_EQ(describeRegion(findRegion(storage, chain), 8), "23: 2*-8");
  ASSERT_TRUE(storage.reshape(Numbers{6, 4}, 'F'));
  EXPECT_EQ(describeRegion(findRegion(storage, chain), 8), "nothing") << "the last is outside now";
  EXPECT_EQ(describeRegion(findRegion(storage, chainOf({3})), 8), "3: 4*6");
  ASSERT_TRUE(storage.reshape(Numbers{2, 2, 6}, 'C'));
  EXPECT_EQ(describeRegion(findRegion(storage, chainOf({1})), 8), "12: 2*6 6*1");
  ASSERT_TRUE(storage.reshape(Numbers{24}, 'F'));
  EXPECT_EQ(describeRegion(findRegion(storage, chain), 8), "nothing");
  EXPECT_EQ(describeRegion(findRegion(storage, {}), 8), "0: 24*1");
}

// --- Boxes of views

// The addresses that reads of the view go to, in nesting order.
std::vector<const std::byte*> addressesOfReads(const MCppPyArray& view) {
  const MDArrayWrapper& storage = *view.borrowWrapper();
  std::vector<const std::byte*> addresses;
  Position position = getStartElement(storage.shape(), view.chain(),
                                      static_cast<std::int64_t>(storage.shape().size()));
  do {
    addresses.push_back(findElement(storage, position));
  } while (incrementIndices(position, storage.shape(), view.chain()));
  return addresses;
}

std::vector<const std::byte*> addressesIn(const Box& box) {
  std::vector<const std::byte*> addresses = {box.first};
  for (const Lane& lane : box.lanes) {
    std::vector<const std::byte*> longer;
    for (const std::byte* address : addresses) {
      for (std::int64_t k = 0; k < lane.count; ++k) longer.push_back(address + k * lane.stride);
    }
    addresses = std::move(longer);
  }
  return addresses;
}

constexpr const char* viewExpressions[] = {
    "a",          "a[1]",          "a[-1]",       "a[1][2]",         "a[::-1]",
    "a[1:3]",     "a[::2][1]",     "a[::-1][0]",  "a[1][::-1]",      "a[1][1:][::2]",
    "a[2][3][:]", "a[1:2]",        "a[1:][::-2]", "a[0][1:4][::-1]", "a[3][4][5:1:-2]",
    "a[::2**70]", "a[1][::2**70]", "list(a)[2]",  "list(a[1])[3]",
};

TYPED_SUITE(Boxes, WritableTypes, TypeWords);

TYPED_CASE(Boxes, HaveTheElementsThatReadsFind) {
  const PyRef array = makeRecord(makeArray<TypeParam>({4, 5, 6}));
  for (const char* expression : viewExpressions) {
    SCOPED_TRACE(expression);
    const PyRef view = evaluate(expression, {{"a", array}});
    const std::optional<Box> box = findBox(viewOf(view));
    ASSERT_TRUE(box);
    EXPECT_EQ(box->type, foundation::velmardata::arrayTypeOf<TypeParam>);
    const std::vector<const std::byte*> addresses = addressesIn(*box);
    EXPECT_EQ(addresses, addressesOfReads(viewOf(view)));
    EXPECT_EQ(box->count, static_cast<std::int64_t>(addresses.size()));
  }
  EXPECT_TRUE(raisedNothing());
}

TYPED_CASE(Boxes, AreRefusedWithoutStorageOrElements) {
  const PyRef array = makeRecord(makeArray<TypeParam>({2, 3}));
  const PyRef empty = evaluate("a[1:1]", {{"a", array}});
  EXPECT_FALSE(findBox(viewOf(empty)));
  EXPECT_FALSE(findBox(*makeArray<TypeParam>({0, 3})));
  EXPECT_FALSE(findBox(*makeExpiredView<TypeParam>({2, 3})));
  EXPECT_FALSE(findBox(*makeViewWithoutStorage<TypeParam>({2, 3})));
  EXPECT_FALSE(findBox(MCppPyArray(viewOf(array), Position{1, 2}, false)));
  EXPECT_FALSE(findBox(MCppPyArray(viewOf(array), Position{2}, false)));
  EXPECT_TRUE(raisedNothing());
}

TEST(BoxesOf, WeakViewsAreFoundWhileTheStorageLives) {
  ViewPointer owner = makeArray<double>({2, 3});
  const MCppPyArray weak(*owner, Position{1}, true);
  const std::optional<Box> box = findBox(weak);
  ASSERT_TRUE(box);
  EXPECT_EQ(addressesIn(*box), addressesOfReads(weak));
  owner.reset();
  EXPECT_FALSE(findBox(weak));
  EXPECT_TRUE(raisedNothing());
}

TEST(BoxesOf, ReshapedStorageAreThoseOfTheNewShape) {
  const PyRef array = makeRecord(makeArray<double>({4, 6}));
  const PyRef row = evaluate("a[3]", {{"a", array}});
  const PyRef deeper = evaluate("a[1:3]", {{"a", array}});
  ASSERT_TRUE(viewOf(array).borrowWrapper()->reshape(Numbers{2, 12}, 'F'));
  EXPECT_FALSE(findBox(viewOf(row))) << "its last element lies outside";
  EXPECT_FALSE(findBox(viewOf(deeper)));
  ASSERT_TRUE(viewOf(array).borrowWrapper()->reshape(Numbers{6, 4}, 'F'));
  const std::optional<Box> box = findBox(viewOf(row));
  ASSERT_TRUE(box);
  EXPECT_EQ(addressesIn(*box), addressesOfReads(viewOf(row)));
  ASSERT_TRUE(viewOf(array).borrowWrapper()->reshape(Numbers{24}, 'F'));
  EXPECT_FALSE(findBox(viewOf(row))) << "the chain is as long as the dimensions";
  EXPECT_TRUE(raisedNothing());
}

// --- Lanes

TEST(LanesOf, DenseMemoryInBothOrders) {
  const Lanes lanes = {{4, 99}, {5, -3}, {6, 0}};
  const auto strides = [](const Lanes& of) {
    Numbers numbers;
    for (const Lane& lane : of) numbers.push_back(lane.stride);
    return numbers;
  };
  EXPECT_EQ(strides(denseLanes(lanes, 8, true)), (Numbers{8, 32, 160}));
  EXPECT_EQ(strides(denseLanes(lanes, 8, false)), (Numbers{240, 48, 8}));
  EXPECT_TRUE(haveSameCounts(denseLanes(lanes, 2, true), lanes));
  EXPECT_TRUE(denseLanes({}, 8, true).empty());
}

TEST(LanesOf, TheSameShapeHaveTheSameCounts) {
  const Lanes lanes = {{4, 8}, {5, 32}};
  EXPECT_TRUE(haveSameCounts(lanes, {{4, -1}, {5, 0}}));
  EXPECT_FALSE(haveSameCounts(lanes, {{4, 8}, {6, 32}}));
  EXPECT_FALSE(haveSameCounts(lanes, {{4, 8}}));
  EXPECT_FALSE(haveSameCounts(lanes, {{4, 8}, {5, 32}, {1, 0}}));
  EXPECT_TRUE(haveSameCounts({}, {}));
}

}  // namespace
