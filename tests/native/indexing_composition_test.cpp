// Composition of subscripts: each is resolved against a final slice. The active dimension of a
// view.
#include "indexing/view_composition.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "indexing/subscripts.hpp"
#include "python_testing.hpp"

namespace {

using namespace python_testing;

SliceIndexItem sliceOf(const std::string& expression, std::int64_t length) {
  return getSliceData(evaluate(expression).get(), length).value();
}

// The child, resolved against the parent.
SliceIndexItem composed(const SliceIndexItem& parent, SliceIndexItem child) {
  getReplacementIndexForSliceAndSlice(parent, child);
  return child;
}

// --- Slices of slices

struct ComposedRow {
  const char* parent;
  const char* child;
  std::int64_t length;
  const char* expected;
  Numbers values;
};
const ComposedRow composedRows[] = {
    {"slice(1, 10, 2)", "slice(1, 4)", 10, "3:9:2/3", {3, 5, 7}},
    {"slice(None, None, -1)", "slice(1, 3)", 10, "8:6:-1/2", {8, 7}},
    {"slice(1, 10, 2)", "slice(None, None, -1)", 10, "9:-1:-2/5", {9, 7, 5, 3, 1}},
    {"slice(None, None, -2)", "slice(None, None, -1)", 10, "1:11:2/5", {1, 3, 5, 7, 9}},
    {"slice(None, None, -1)",
     "slice(None, None, -1)",
     10,
     "0:10:1/10",
     {0, 1, 2, 3, 4, 5, 6, 7, 8, 9}},
    {"slice(0, 4, 2)", "slice(1, 2)", 4, "2:4:2/1", {2}},
    // An empty child has the first position and the step of its parent.
    {"slice(2, 4)", "slice(5, 7)", 10, "2:2:1/0", {}},
    {"slice(2, 8, 3)", "slice(1, 1)", 10, "2:2:3/0", {}},
    {"slice(8, 2, -3)", "slice(1, 1)", 10, "8:8:-3/0", {}},
    // A child that reaches past the end gets the positions that exist.
    {"slice(2, 4)", "slice(0, 99)", 10, "2:4:1/2", {2, 3}},
    {"slice(2, 6)", "slice(2, 99)", 10, "4:6:1/2", {4, 5}},
    // A stop below zero is one step past the last position.
    {"slice(4, None, -1)", "slice(None, None, 2)", 10, "4:-2:-2/3", {4, 2, 0}},
    {"slice(None, None, 3)", "slice(None, None, -1)", 10, "9:-3:-3/4", {9, 6, 3, 0}},
    // The child of a parent without positions is a copy of the parent.
    {"slice(5, 5)", "slice(None)", 10, "0:0:1/0", {}},
    {"slice(5, 2)", "slice(None, None, -1)", 10, "0:0:1/0", {}},
    {"slice(None)", "slice(None)", 0, "0:0:1/0", {}},
};

TEST(SliceOfSlice, IsInStorageCoordinates) {
  for (const ComposedRow& row : composedRows) {
    SCOPED_TRACE(std::string(row.parent) + " then " + row.child);
    const SliceIndexItem parent = sliceOf(row.parent, row.length);
    const SliceIndexItem item = composed(parent, sliceOf(row.child, *parent.m_slice_len));
    EXPECT_EQ(describe(item), row.expected);
    EXPECT_EQ(valuesOf(item), row.values);
    EXPECT_TRUE(raisedNothing());
  }
}

struct ComposedItemRow {
  const char* label;
  SliceIndexItem parent;
  SliceIndexItem child;
  const char* expected;
};

// The numbers of these items do not agree with their lengths, which no subscript makes.
TEST(SliceOfSlice, CountsThePositionsOfTheParent) {
  const ComposedItemRow rows[] = {
      {"start past the positions", slice(1, 3, 1, 5), slice(2, 5, 1, 3), "0:0:1/0"},
      {"length beyond the positions", slice(1, 10, 2, 5), slice(1, 3, 1, 99), "3:13:2/5"},
      {"parent without positions", slice(4, 4, 3, 0), slice(1, 2, 1, 1), "4:4:3/0"},
      {"nothing of nothing", slice(3, 3, 1, 0), slice(0, 0, 1, 0), "3:3:1/0"},
  };
  for (const ComposedItemRow& row : rows) {
    SCOPED_TRACE(row.label);
    EXPECT_EQ(describe(composed(row.parent, row.child)), row.expected);
    EXPECT_TRUE(raisedNothing());
  }
}

Numbers numbersOf(const PyRef& list) {
  Numbers numbers;
  for (Py_ssize_t i = 0; i < PyList_Size(list.get()); ++i) {
    numbers.push_back(PyLong_AsSsize_t(PyList_GetItem(list.get(), i)));
  }
  return numbers;
}

// The positions are those that the same subscripts of a list give, one after the other.
TEST(SliceOfSlice, ComposesAsPythonDoes) {
  const std::vector<std::string> subscripts = {
      "slice(None)",    "slice(1, None)",        "slice(-3, None)",   "slice(None, -1)",
      "slice(2, 4)",    "slice(4, 2)",           "slice(0, 9)",       "slice(None, None, 2)",
      "slice(1, 9, 3)", "slice(None, None, -1)", "slice(5, 0, -2)",   "slice(-2, None, -3)",
      "slice(7, 9)",    "slice(None, None, 9)",  "slice(1, None, -9)"};
  const PyRef numbers = evaluate("list(range(10))");
  for (std::int64_t length = 0; length < 8; ++length) {
    const PyRef whole = PyRef::steal(PySequence_GetSlice(numbers.get(), 0, length));
    for (const std::string& first : subscripts) {
      const SliceIndexItem one = sliceOf(first, length);
      const PyRef firstPart = PyRef::steal(PyObject_GetItem(whole.get(), evaluate(first).get()));
      for (const std::string& second : subscripts) {
        const SliceIndexItem two = composed(one, sliceOf(second, *one.m_slice_len));
        const PyRef secondPart =
            PyRef::steal(PyObject_GetItem(firstPart.get(), evaluate(second).get()));
        for (const std::string& third : {std::string("slice(None, None, -1)"), second}) {
          const SliceIndexItem three = composed(two, sliceOf(third, *two.m_slice_len));
          const PyRef expected =
              PyRef::steal(PyObject_GetItem(secondPart.get(), evaluate(third).get()));
          const Numbers values = valuesOf(three);
          ASSERT_EQ(values, numbersOf(expected)) << length << ": " << first << second << third;
          ASSERT_EQ(*three.m_slice_len, static_cast<std::int64_t>(values.size()));
        }
      }
    }
  }
}

constexpr std::int64_t half = std::int64_t{1} << 62;

struct ExtremeRow {
  SliceIndexItem parent;
  SliceIndexItem child;
  Numbers values;
};

TEST(SliceOfSlice, ExtremeStepsStayWithinTheRange) {
  const ExtremeRow rows[] = {
      {slice(0, 10, largest, 1), slice(0, 1, largest, 1), {0}},
      {slice(0, 10, half, 1), slice(0, 1, half, 1), {0}},
      {slice(3, 10, half, 1), slice(0, 1, 2, 1), {3}},
      {slice(9, -1, -largest, 1), slice(0, 1, largest, 1), {9}},
      {slice(9, -1, -largest, 1), slice(0, -1, -largest, 1), {9}},
      {slice(9, 10, largest, 1), slice(0, -1, -largest, 1), {9}},
      {slice(9, 10, half, 1), slice(0, -1, -2, 1), {9}},
      {slice(0, 10, 3, 4), slice(2, 4, largest, 1), {6}},
      {slice(0, 10, 3, 4), slice(2, -1, -largest, 1), {6}},
      {slice(0, 10, largest, 1), slice(0, 0, 1, 0), {}},
      {slice(0, 10, largest, 1), slice(0, 0, largest, 0), {}},
  };
  for (const ExtremeRow& row : rows) {
    SCOPED_TRACE(describe(row.parent) + " then " + describe(row.child));
    const SliceIndexItem item = composed(row.parent, row.child);
    EXPECT_EQ(valuesOf(item), row.values);
    EXPECT_EQ(*item.m_slice_len, static_cast<std::int64_t>(row.values.size()));
  }
}

// --- Integers of slices

struct IntegerOfSliceRow {
  SliceIndexItem parent;
  std::int64_t index;
  std::int64_t expected;
};

TEST(IntegerOfSlice, IsAStorageCoordinateThatIsNotNormalised) {
  const IntegerOfSliceRow rows[] = {
      {slice(1, 3, 1, 2), 0, 1},    {slice(1, 3, 1, 2), 1, 2},    {slice(1, 10, 2, 5), 4, 9},
      {slice(9, -1, -1, 10), 0, 9}, {slice(9, -1, -1, 10), 9, 0}, {slice(4, -2, -2, 3), 2, 0},
      {slice(0, 10, 1, 0), 9, 9},  // the positions count, not the length of the item
  };
  for (const IntegerOfSliceRow& row : rows) {
    SCOPED_TRACE(describe(row.parent) + " at " + std::to_string(row.index));
    IntegerIndexItem item{row.index, true};
    EXPECT_TRUE(getReplacementIndexForSliceAndInt(row.parent, item));
    EXPECT_EQ(item.m_index, row.expected);
    EXPECT_FALSE(item.m_isNormalized);
  }
}

TEST(IntegerOfSlice, PastThePositionsIsRefused) {
  const IntegerOfSliceRow rows[] = {{slice(1, 3, 1, 2), 2, 0},
                                    {slice(1, 3, 1, 9), 2, 0},
                                    {slice(0, 0, 1, 0), 0, 0},
                                    {slice(3, 3, 1, 0), 0, 0},
                                    {slice(9, -1, -1, 10), 10, 0}};
  for (const IntegerOfSliceRow& row : rows) {
    SCOPED_TRACE(describe(row.parent) + " at " + std::to_string(row.index));
    IntegerIndexItem item{row.index, true};
    EXPECT_FALSE(getReplacementIndexForSliceAndInt(row.parent, item));
    EXPECT_TRUE(raised(PyExc_RuntimeError, "unable to index into slice."));
    EXPECT_EQ(describe(item), std::to_string(row.index)) << "unchanged, still normalised";
  }
}

// --- The chain of a view

TEST(ViewChain, AppendedIntegersAreCounted) {
  const ViewPointer view = makeArray<double>({4, 5});
  for (const std::int64_t index : {2, -1}) {  // the view does not check them
    view->appendIndexItem(IntegerIndexItem{index, index > 0});
  }
  EXPECT_EQ(describe(view->chain()), "2 -1?");
  EXPECT_EQ(view->getNumberOfIntegerIndicesSoFar(), 2);
  EXPECT_FALSE(view->indicesAreEmpty());
}

TEST(ViewChain, AnAppendedSliceIsNotCounted) {
  const ViewPointer view = makeArray<double>({4, 5});
  view->appendIndexItem(slice(1, 3, 1, 2));
  EXPECT_EQ(describe(view->chain()), "1:3:1/2");
  EXPECT_EQ(view->getNumberOfIntegerIndicesSoFar(), 0);
  EXPECT_FALSE(view->indicesAreEmpty());
}

TEST(ViewChain, AnItemReplacesTheFinalSlice) {
  const ViewPointer array = makeArray<double>({4, 5, 6});
  MCppPyArray view(*array, {2}, false);
  view.appendIndexItem(slice(0, 5, 1, 5));
  const MCppPyArray part(view, slice(1, 3, 1, 2), false);
  EXPECT_EQ(describe(part.chain()), "2? 1:3:1/2");
  EXPECT_EQ(part.getNumberOfIntegerIndicesSoFar(), 1);
  const MCppPyArray row(part, IntegerIndexItem{1, false}, false);
  EXPECT_EQ(describe(row.chain()), "2? 1?");
  EXPECT_EQ(row.getNumberOfIntegerIndicesSoFar(), 2);
  EXPECT_EQ(describe(view.chain()), "2? 0:5:1/5");
}

TEST(IntegersSoFar, AreTheLeadingOnes) {
  const ViewPointer array = makeArray<double>({4, 5, 6});
  MCppPyArray view(*array, {2, -3}, false);
  EXPECT_EQ(entriesOf(array->getIntegerIndicesSoFar()), Numbers());
  EXPECT_EQ(entriesOf(view.getIntegerIndicesSoFar()), (Numbers{2, -3}));
  view.appendIndexItem(slice(1, 3, 1, 2));
  EXPECT_EQ(entriesOf(view.getIntegerIndicesSoFar()), (Numbers{2, -3}));
}

// --- Views as Python makes them

struct ExpressionRow {
  const char* expression;
  const char* chain;
  std::int64_t integers;
};
constexpr ExpressionRow expressionRows[] = {
    {"a", "", 0},
    {"a[2]", "2", 1},
    {"a[2][3]", "2 3", 2},
    {"a[-1][-5]", "3 0", 2},
    {"a[1:3]", "1:3:1/2", 0},
    {"a[2][1:3]", "2 1:3:1/2", 1},
    {"a[1:3][1]", "2?", 1},
    {"a[1:3][-1]", "2?", 1},
    {"a[0:4:2][1:2]", "2:4:2/1", 0},
    {"a[1:3][1][2:4][::-1]", "2? 3:1:-1/2", 1},
    {"a[::-1][::-1]", "0:4:1/4", 0},
    {"a[::-1][1:][0][::2][1:]", "2? 2:6:2/2", 1},
    {"a[2][3][::2][::2]", "2 3 0:8:4/2", 2},
    {"a[0:0]", "0:0:1/0", 0},
    {"a[0:0][::-1]", "0:0:1/0", 0},
};

TEST(ViewsOfPython, HaveIntegersAndAtMostOneSlice) {
  const PyRef array = makeRecord(makeArray<double>({4, 5, 6}));
  for (const ExpressionRow& row : expressionRows) {
    SCOPED_TRACE(row.expression);
    const PyRef result = evaluate(row.expression, {{"a", array}});
    EXPECT_EQ(describe(viewOf(result).chain()), row.chain);
    EXPECT_EQ(viewOf(result).getNumberOfIntegerIndicesSoFar(), row.integers);
    EXPECT_EQ(describe(viewOf(array).chain()), "") << "the parent is unchanged";
  }
  const PyRef longer = makeRecord(makeArray<double>({16, 2}));
  EXPECT_EQ(describe(viewOf(evaluate("a[::2][::2][::2]", {{"a", longer}})).chain()), "0:16:8/2");
}

// --- The active dimension

struct LengthRow {
  Position integers;
  std::optional<SliceIndexItem> slice;
  std::int64_t expected;
};

TEST(ActiveDimension, IsThatOfAFinalSliceOrTheFirstOpenOne) {
  const LengthRow rows[] = {
      {{}, {}, 4},
      {{2}, {}, 5},
      {{2, 1}, {}, 6},
      {{}, slice(1, 3, 1, 2), 2},
      {{2}, slice(1, 3, 1, 2), 2},
      {{2}, slice(4, -1, -1, 5), 5},
      {{2}, slice(0, 0, 1, 0), 0},
      {{}, slice(0, 3, 1, 99), 99},  // the length of the item, not the number of positions
  };
  const ViewPointer array = makeArray<double>({4, 5, 6});
  for (const LengthRow& row : rows) {
    SCOPED_TRACE(describe(chainOf(row.integers, row.slice)));
    for (const bool isWeak : {false, true}) {
      MCppPyArray view(*array, row.integers, isWeak);
      if (row.slice) view.appendIndexItem(*row.slice);
      EXPECT_EQ(getLengthOfActiveDimension(view), row.expected);
      EXPECT_TRUE(raisedNothing());
    }
  }
}

TEST(ActiveDimension, IsMissingWhenAllAreFixed) {
  const ViewPointer array = makeArray<double>({4, 5});
  const MCppPyArray view(*array, {0, 0}, false);
  EXPECT_EQ(getLengthOfActiveDimension(view), -1);
  EXPECT_TRUE(raised(PyExc_RuntimeError, "too many indices."));
}

TEST(ActiveDimension, OfStorageThatHasGoneIsReported) {
  const ViewPointer views[] = {makeExpiredView<double>({4, 5}),
                               makeViewWithoutStorage<double>({4, 5})};
  for (const ViewPointer& view : views) {
    EXPECT_EQ(getLengthOfActiveDimension(*view), -1);
    EXPECT_TRUE(raisedExpired());
  }
}

TEST(ActiveDimension, OfAFinalSliceNeedsNoStorage) {
  const ViewPointer view = makeExpiredView<double>({4, 5});
  view->appendIndexItem(slice(1, 3, 1, 2));
  EXPECT_EQ(getLengthOfActiveDimension(*view), 2);
  EXPECT_TRUE(raisedNothing());
}

}  // namespace
