// Traversal: ranges of dimensions, and walks through them.
#include "elements/traversal.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "python_testing.hpp"

namespace {

using namespace python_testing;

// --- The range of a dimension

struct RangeRow {
  std::int64_t dimension;
  std::int64_t start;
  std::int64_t stop;
  std::int64_t step;
};

TEST(DimensionRange, IsThatOfTheItemOrTheWholeDimension) {
  const Numbers shape = {4, 5, 6, 7};
  const IndexChain chain = chainOf({2}, slice(4, -2, -2, 3));
  const RangeRow rows[] = {{0, 2, 3, 0}, {1, 4, -2, -2}, {2, 0, 6, 1}, {3, 0, 7, 1}, {4, 0, 0, 1}};
  for (const RangeRow& row : rows) {
    SCOPED_TRACE(row.dimension);
    EXPECT_EQ(getStartFromShapeDimsAndRestrictingIndices(row.dimension, shape, chain), row.start);
    EXPECT_EQ(getStopFromShapeDimsAndRestrictingIndices(row.dimension, shape, chain), row.stop);
    EXPECT_EQ(getStepFromShapeDimsAndRestrictingIndices(row.dimension, shape, chain), row.step);
  }
}

struct ContainedRow {
  std::int64_t index;
  std::int64_t start;
  std::int64_t stop;
  std::int64_t step;
  bool expected;
};
constexpr ContainedRow containedRows[] = {
    {1, 1, 4, 1, true},   {3, 1, 4, 1, true},     {4, 1, 4, 1, false},   {0, 1, 4, 1, false},
    {2, 1, 4, 2, true},  // between two positions
    {2, 2, 3, 0, true},   {3, 2, 3, 0, false},    {1, 2, 3, 0, false},   {4, 4, -1, -1, true},
    {0, 4, -1, -1, true}, {-1, 4, -1, -1, false}, {5, 4, -1, -1, false}, {1, 4, 1, -1, false},
    {2, 4, 1, -1, true},  {3, 4, 1, -2, true},    {0, 0, 0, 1, false},   {0, 0, 0, -1, false},
    {2, 4, 1, 1, false},  {2, 1, 4, -1, false},
};

TEST(HalfOpenRange, IncludesTheStartAndNotTheStop) {
  for (const ContainedRow& row : containedRows) {
    SCOPED_TRACE(testing::PrintToString(Numbers{row.index, row.start, row.stop, row.step}));
    EXPECT_EQ(indexIsContainedWithinHalfOpenRange(row.index, row.start, row.stop, row.step),
              row.expected);
  }
}

struct LastRow {
  std::int64_t index;
  std::int64_t stop;
  std::int64_t step;
  bool expected;
};
constexpr LastRow lastRows[] = {
    {0, 0, 0, true},
    {9, 3, 0, true},
    {3, 4, 1, true},
    {2, 4, 1, false},
    {4, 4, 1, false},
    {5, 4, 1, false},
    {2, 4, 2, true},
    {1, 4, 2, false},
    {3, 4, 99, true},
    {1, 4, 3, true},
    {0, -1, -1, true},
    {1, -1, -1, false},
    {-1, -1, -1, false},
    {-2, -1, -1, false},
    {1, -1, -2, true},
    {2, -1, -2, false},
    {4, 3, -99, true},
    {2, -1, -3, true},
    {0, 1, largest, true},
    {5, largest, largest, true},
    {0, largest, 1, false},
    {0, -1, -largest, true},
    {-5, -largest, -largest, true},
    {0, -largest, -1, false},
};

TEST(HalfOpenRange, KnowsItsLastPosition) {
  for (const LastRow& row : lastRows) {
    SCOPED_TRACE(testing::PrintToString(Numbers{row.index, row.stop, row.step}));
    EXPECT_EQ(indexIsAtLastPositionWithinHalfOpenRange(row.index, row.stop, row.step),
              row.expected);
  }
}

// --- The walk

struct WalkRow {
  const char* label;
  Numbers shape;
  IndexChain chain;
  Position from;
  std::vector<Numbers> positions;  // those after `from`
};

const WalkRow walkRows[] = {
    {"whole", {2, 3}, {}, {0, 0}, {{0, 1}, {0, 2}, {1, 0}, {1, 1}, {1, 2}}},
    {"from the middle", {2, 3}, {}, {0, 2}, {{1, 0}, {1, 1}, {1, 2}}},
    {"shorter position", {2, 3}, {}, {0}, {{1}}},
    {"three dimensions", {2, 1, 2}, {}, {0, 0, 0}, {{0, 0, 1}, {1, 0, 0}, {1, 0, 1}}},
    {"integer first", {2, 3}, chainOf({1}), {1, 0}, {{1, 1}, {1, 2}}},
    {"integer first of three",
     {2, 2, 2},
     chainOf({1}),
     {1, 0, 0},
     {{1, 0, 1}, {1, 1, 0}, {1, 1, 1}}},
    {"two integers first", {4, 5, 2}, chainOf({1, 2}), {1, 2, 0}, {{1, 2, 1}}},
    {"behind another integer", {2, 3}, chainOf({1}), {0, 2}, {}},
    {"all fixed", {2, 3}, chainOf({1, 2}), {1, 2}, {}},
    {"backwards", {5}, chainOf({}, slice(4, -1, -1, 5)), {4}, {{3}, {2}, {1}, {0}}},
    {"backwards by two", {5}, chainOf({}, slice(4, -2, -2, 3)), {4}, {{2}, {0}}},
    {"rows backwards",
     {3, 2},
     chainOf({}, slice(2, -1, -1, 3)),
     {2, 0},
     {{2, 1}, {1, 0}, {1, 1}, {0, 0}, {0, 1}}},
    {"columns of a row backwards",
     {2, 3},
     chainOf({1}, slice(2, -1, -1, 3)),
     {1, 2},
     {{1, 1}, {1, 0}}},
    {"every other row", {5, 2}, chainOf({}, slice(1, 5, 2, 2)), {1, 0}, {{1, 1}, {3, 0}, {3, 1}}},
    {"one position", {5, 1}, chainOf({}, slice(3, 4, 9, 1)), {3, 0}, {}},
    {"empty run", {5, 2}, chainOf({}, slice(0, 0, 1, 0)), {0, 0}, {{0, 1}}},
    {"empty run alone", {5}, chainOf({}, slice(0, 0, 1, 0)), {0}, {}},
    {"no elements", {2, 0}, {}, {0, 0}, {}},
    {"outside at once", {2, 3}, {}, {0, 3}, {}},
    {"outside in front", {2, 3}, {}, {2, 2}, {}},
    {"outside in front of a step", {2, 3}, {}, {2, 1}, {{2, 2}}},
    {"extreme step", {5}, chainOf({}, slice(2, largest, largest, 1)), {2}, {}},
};

TEST(Walk, MovesTheLastEntryFastest) {
  for (const WalkRow& row : walkRows) {
    SCOPED_TRACE(row.label);
    Position position = row.from;
    for (const Numbers& expected : row.positions) {
      ASSERT_TRUE(incrementIndices(position, row.shape, row.chain));
      ASSERT_EQ(entriesOf(position), expected);
    }
    for (int repetition = 0; repetition < 2; ++repetition) {
      const Position last = position;
      EXPECT_FALSE(incrementIndices(position, row.shape, row.chain));
      EXPECT_EQ(position, last) << "the position stays when the walk is over";
    }
  }
}

TEST(Walk, OfNoEntriesMovesForEver) {
  Position position;
  EXPECT_TRUE(incrementIndices(position, Numbers{2, 3}, {}));
  EXPECT_TRUE(position.empty());
}

// --- Containment

struct ContainmentRow {
  const char* label;
  Numbers shape;
  IndexChain chain;
  Position position;
  std::int64_t dimensions;
  bool expected;
};

const ContainmentRow containmentRows[] = {
    {"inside", {2, 3}, {}, {1, 2}, 2, true},
    {"at the end of the first", {2, 3}, {}, {2, 0}, 2, false},
    {"at the end of the last", {2, 3}, {}, {0, 3}, 2, false},
    {"last not tested", {2, 3}, {}, {0, 3}, 1, true},
    {"nothing to test", {2, 3}, {}, {9, 9}, 0, true},
    {"less than nothing to test", {2, 3}, {}, {9, 9}, -5, true},
    {"more than there are", {2, 3}, {}, {0, 0, 0}, 3, false},
    {"negative entry", {2, 3}, {}, {-1, -3}, 2, true},
    {"negative entry, once only", {2, 3}, {}, {-3, 0}, 2, false},
    {"integer", {2, 3}, chainOf({1}), {1, 0}, 2, true},
    {"other integer", {2, 3}, chainOf({1}), {0, 0}, 2, false},
    {"negative integer", {2, 3}, chainOf({-2}), {0, 0}, 2, true},
    {"negative integer of another", {2, 3}, chainOf({-2}), {1, 0}, 2, false},
    {"last of a dimension, stop at 0", {2, 3}, chainOf({-1}), {1, 0}, 2, false},
    {"run", {9}, chainOf({}, slice(2, 6, 2, 2)), {2}, 1, true},
    {"before the run", {9}, chainOf({}, slice(2, 6, 2, 2)), {1}, 1, false},
    {"between positions", {9}, chainOf({}, slice(2, 6, 2, 2)), {3}, 1, true},
    {"stop of the run", {9}, chainOf({}, slice(2, 6, 2, 2)), {6}, 1, false},
    {"negative start", {9}, chainOf({}, slice(-7, 6, 2, 2)), {2}, 1, true},
    {"negative stop counts from the end", {9}, chainOf({}, slice(2, -3, 1, 4)), {5}, 1, true},
    {"at a negative stop", {9}, chainOf({}, slice(2, -3, 1, 4)), {6}, 1, false},
    {"backwards", {9}, chainOf({}, slice(6, 2, -2, 2)), {6}, 1, true},
    {"backwards, above the start", {9}, chainOf({}, slice(6, 2, -2, 2)), {7}, 1, false},
    {"backwards, between", {9}, chainOf({}, slice(6, 2, -2, 2)), {5}, 1, true},
    {"backwards, at the stop", {9}, chainOf({}, slice(6, 2, -2, 2)), {2}, 1, false},
    {"backwards to the first", {9}, chainOf({}, slice(6, -1, -1, 7)), {0}, 1, true},
    {"backwards to the first, above", {9}, chainOf({}, slice(6, -1, -1, 7)), {7}, 1, false},
    {"backwards from a negative start", {9}, chainOf({}, slice(-3, -1, -1, 7)), {6}, 1, true},
    {"backwards from a negative start, above",
     {9},
     chainOf({}, slice(-3, -1, -1, 7)),
     {7},
     1,
     false},
    // Deliberate: a run that reaches down to 0 ends the test, whatever the entries behind it are.
    {"backwards to the first, others outside",
     {9, 2},
     chainOf({}, slice(6, -1, -1, 7)),
     {3, 99},
     2,
     true},
    {"backwards above 0, others outside",
     {9, 2},
     chainOf({}, slice(6, 0, -1, 6)),
     {3, 99},
     2,
     false},
    {"behind the one that ends the test",
     {2, 9},
     chainOf({0}, slice(6, -1, -1, 7)),
     {1, 3},
     2,
     false},
    {"empty run", {9}, chainOf({}, slice(0, 0, 1, 0)), {0}, 1, false},
    {"no elements", {0, 3}, {}, {0, 0}, 2, false},
};

TEST(Containment, TestsTheRangesOfTheFirstDimensions) {
  for (const ContainmentRow& row : containmentRows) {
    SCOPED_TRACE(row.label);
    EXPECT_EQ(containsElementWithIndices(row.position, row.dimensions, row.shape, row.chain),
              row.expected);
  }
}

// --- The first position

struct StartRow {
  IndexChain chain;
  std::int64_t length;
  Numbers expected;
};

TEST(StartElement, HasTheStartsOfTheRanges) {
  const StartRow rows[] = {
      {{}, 0, {}},
      {{}, 2, {0, 0}},
      {{}, 5, {0, 0, 0, 0, 0}},
      {chainOf({2}), 3, {2, 0, 0}},
      {chainOf({2}, slice(4, -1, -1, 5)), 3, {2, 4, 0}},
      {chainOf({2}, slice(4, -1, -1, 5)), 1, {2}},
      {chainOf({2, 1, 5, 9}), 4, {2, 1, 5, 0}},  // past the shape
  };
  const Numbers shape = {4, 5, 6};
  for (const StartRow& row : rows) {
    SCOPED_TRACE(describe(row.chain));
    EXPECT_EQ(entriesOf(getStartElement(shape, row.chain, row.length)), row.expected);
  }
}

// --- Views

// a[2][4::-1] of a 4 by 5 by 6 array.
TEST(Walk, CoversWhatAViewLeavesOpen) {
  const ViewPointer array = makeArray<double>({4, 5, 6});
  MCppPyArray view(*array, {2}, false);
  view.appendIndexItem(slice(4, -1, -1, 5));
  const Numbers shape = numbersOf(view.borrowWrapper()->shape());
  Position position = getStartElement(shape, view.chain(), 3);
  EXPECT_EQ(entriesOf(position), (Numbers{2, 4, 0}));
  int count = 1;
  while (incrementIndices(position, shape, view.chain())) ++count;
  EXPECT_EQ(count, 30);
  EXPECT_EQ(entriesOf(position), (Numbers{2, 0, 5}));
  EXPECT_TRUE(containsElementWithIndices(position, 3, shape, view.chain()));
  EXPECT_FALSE(containsElementWithIndices({1, 0, 0}, 3, shape, view.chain()));
}

}  // namespace
