// Composition of subscripts: every one is resolved against a final slice into storage coordinates.
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "indexing/index_items.hpp"
#include "python_testing.hpp"

namespace {

using namespace python_testing;

using Numbers = std::vector<std::int64_t>;
constexpr std::nullopt_t none = std::nullopt;

Numbers valuesOf(const SliceIndexItem& item) {
  bool success = false;
  Numbers values = item.getIntegerIndexValues(0, success);
  EXPECT_TRUE(success);
  return values;
}

// A view of `length` rows that ends in the slice.
ViewPointer viewEndingIn(SliceIndexItem parent, unsigned long length = 10) {
  ViewPointer view = makeArray<std::int8_t>({length, 1});
  view->getIndicesRef().emplace_back(parent);
  return view;
}

SliceIndexItem sliceOf(const std::string& expression, std::int64_t length) {
  SliceIndexItem item;
  EXPECT_TRUE(getSliceData(evaluate(expression).get(), length, item)) << expression;
  return item;
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
    // An empty child of a run keeps the run's first position and its own step.
    {"slice(2, 4)", "slice(5, 7)", 10, "2:2:1/0", {}},
    {"slice(2, 8, 3)", "slice(1, 1)", 10, "2:2:3/0", {}},
    {"slice(8, 2, -3)", "slice(1, 1)", 10, "8:8:-3/0", {}},
    // A child that reaches past the end is as long as what there is.
    {"slice(2, 4)", "slice(0, 99)", 10, "2:4:1/2", {2, 3}},
    {"slice(2, 6)", "slice(2, 99)", 10, "4:6:1/2", {4, 5}},
    // A stop below zero is one step past the last position.
    {"slice(4, None, -1)", "slice(None, None, 2)", 10, "4:-2:-2/3", {4, 2, 0}},
    {"slice(None, None, 3)", "slice(None, None, -1)", 10, "9:-3:-3/4", {9, 6, 3, 0}},
    // A parent without positions is what its child becomes.
    {"slice(5, 5)", "slice(None)", 10, "0:0:1/0", {}},
    {"slice(5, 2)", "slice(None, None, -1)", 10, "0:0:1/0", {}},
    {"slice(None)", "slice(None)", 0, "0:0:1/0", {}},
};

TEST(SliceOfSlice, IsInStorageCoordinates) {
  for (const ComposedRow& row : composedRows) {
    SCOPED_TRACE(std::string(row.parent) + " then " + row.child);
    const SliceIndexItem parent = sliceOf(row.parent, row.length);
    const ViewPointer view = viewEndingIn(parent);
    SliceIndexItem child = sliceOf(row.child, *parent.m_slice_len);
    EXPECT_TRUE(view->getReplacementIndexForSliceAndSlice(child, *parent.m_slice_len));
    EXPECT_EQ(describe(child), row.expected);
    EXPECT_EQ(valuesOf(child), row.values);
    EXPECT_EQ(describe(view->getRestrictingIndices()), describe(parent)) << "the parent stays";
    EXPECT_TRUE(raisedNothing());
  }
}

TEST(SliceOfSlice, LengthOfTheCallerPlaysNoPart) {
  const ViewPointer view = viewEndingIn(slice(1, 10, 2, 5));
  SliceIndexItem child = {1, none, none, none, false};
  EXPECT_TRUE(view->getReplacementIndexForSliceAndSlice(child, 1000));
  EXPECT_EQ(describe(child), "3:11:2/4");
}

TEST(SliceOfSlice, StartPastTheValuesIsEmpty) {
  // The parent's own length says 5, its positions are 2.
  const ViewPointer view = viewEndingIn(slice(1, 3, 1, 5));
  SliceIndexItem child = slice(2, 5, 1, 3);
  EXPECT_TRUE(view->getReplacementIndexForSliceAndSlice(child, 10));
  EXPECT_EQ(describe(child), "0:0:1/0");
}

TEST(SliceOfSlice, LengthIsLimitedToThePositionsOfTheParent) {
  const ViewPointer view = viewEndingIn(slice(1, 10, 2, 5));
  SliceIndexItem child = slice(1, 3, 1, 99);
  EXPECT_TRUE(view->getReplacementIndexForSliceAndSlice(child, 10));
  EXPECT_EQ(describe(child), "3:13:2/5");
}

TEST(SliceOfSlice, EmptyParentIsCopiedAsItStands) {
  // Without positions, in a form that only composition leaves behind.
  const ViewPointer view = viewEndingIn(slice(4, 4, 3, 0));
  SliceIndexItem child = slice(1, 2, 1, 1);
  EXPECT_TRUE(view->getReplacementIndexForSliceAndSlice(child, 10));
  EXPECT_EQ(describe(child), "4:4:3/0");
}

Numbers numbersOf(const PyRef& list) {
  Numbers numbers;
  for (Py_ssize_t i = 0; i < PyList_Size(list.get()); ++i) {
    numbers.push_back(PyLong_AsSsize_t(PyList_GetItem(list.get(), i)));
  }
  return numbers;
}

// The same positions as subscripts of a list have, one after the other.
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
        SliceIndexItem two = sliceOf(second, *one.m_slice_len);
        ASSERT_TRUE(viewEndingIn(one)->getReplacementIndexForSliceAndSlice(two, length));
        const PyRef secondPart =
            PyRef::steal(PyObject_GetItem(firstPart.get(), evaluate(second).get()));
        for (const std::string& third : {std::string("slice(None, None, -1)"), second}) {
          SliceIndexItem three = sliceOf(third, *two.m_slice_len);
          ASSERT_TRUE(viewEndingIn(two)->getReplacementIndexForSliceAndSlice(three, length));
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

constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();
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
    SliceIndexItem child = row.child;
    EXPECT_TRUE(viewEndingIn(row.parent)->getReplacementIndexForSliceAndSlice(child, 10));
    EXPECT_EQ(valuesOf(child), row.values);
    EXPECT_EQ(*child.m_slice_len, static_cast<std::int64_t>(row.values.size()));
  }
}

// --- Integers of slices

struct IntegerRow {
  SliceIndexItem parent;
  std::int64_t index;
  std::int64_t expected;
};

TEST(IntegerOfSlice, IsAStorageCoordinateNormalisedAgainstNothing) {
  const IntegerRow rows[] = {
      {slice(1, 3, 1, 2), 0, 1},    {slice(1, 3, 1, 2), 1, 2},    {slice(1, 10, 2, 5), 4, 9},
      {slice(9, -1, -1, 10), 0, 9}, {slice(9, -1, -1, 10), 9, 0}, {slice(4, -2, -2, 3), 2, 0},
      {slice(0, 10, 1, 0), 9, 9},  // the positions count, and not the length of the item
  };
  for (const IntegerRow& row : rows) {
    SCOPED_TRACE(describe(row.parent) + " at " + std::to_string(row.index));
    IntegerIndexItem item{row.index, true};
    EXPECT_TRUE(viewEndingIn(row.parent)->getReplacementIndexForSliceAndInt(item, 10));
    EXPECT_EQ(item.m_index, row.expected);
    EXPECT_FALSE(item.m_isNormalized);
  }
}

TEST(IntegerOfSlice, PastThePositionsIsRefused) {
  const IntegerRow rows[] = {{slice(1, 3, 1, 2), 2, 0},
                             {slice(1, 3, 1, 9), 2, 0},
                             {slice(0, 0, 1, 0), 0, 0},
                             {slice(9, -1, -1, 10), 10, 0}};
  for (const IntegerRow& row : rows) {
    SCOPED_TRACE(describe(row.parent) + " at " + std::to_string(row.index));
    IntegerIndexItem item{row.index, true};
    EXPECT_FALSE(viewEndingIn(row.parent)->getReplacementIndexForSliceAndInt(item, 10));
    EXPECT_TRUE(raised(PyExc_RuntimeError, "unable to index into slice."));
    EXPECT_EQ(describe(item), std::to_string(row.index)) << "as it was, normalised";
  }
}

// --- Failures

constexpr const char* noFinalSlice =
    "unable to retrieve index values from slice in final position.";

TEST(CompositionFailure, WithoutAFinalSlice) {
  const ViewPointer array = makeArray<double>({4, 5});
  const MCppPyArray row(*array, {2}, false);
  for (const MCppPyArray* view : {&std::as_const(*array), &row}) {
    IntegerIndexItem integer{1, true};
    EXPECT_FALSE(view->getReplacementIndexForSliceAndInt(integer, 5));
    EXPECT_TRUE(raised(PyExc_RuntimeError, noFinalSlice));
    EXPECT_EQ(describe(integer), "1");
    SliceIndexItem run = {1, none, none, none, false};
    EXPECT_FALSE(view->getReplacementIndexForSliceAndSlice(run, 5));
    EXPECT_TRUE(raised(PyExc_RuntimeError, noFinalSlice));
    EXPECT_EQ(describe(run), "1:-:-/-?");
  }
}

TEST(CompositionFailure, StepOfZero) {
  SliceIndexItem child = {99, 3, 0, none, false};
  EXPECT_FALSE(viewEndingIn(slice(1, 10, 2, 5))->getReplacementIndexForSliceAndSlice(child, 10));
  EXPECT_TRUE(raised(PyExc_ValueError, "slice step cannot be zero."));
  EXPECT_EQ(describe(child), "4:3:0/-?") << "normalised as far as the step";
}

TEST(CompositionFailure, NegativeLengthOfTheParentHasNoError) {
  const ViewPointer view = viewEndingIn(slice(1, 10, 2, -5));
  SliceIndexItem child = {1, none, none, none, false};
  EXPECT_FALSE(view->getReplacementIndexForSliceAndSlice(child, 10));
  EXPECT_EQ(describe(child), "1:-:-/-?");
  EXPECT_FALSE(view->convertSliceAndSliceToSlice(child));
  IntegerIndexItem integer{1, true};
  EXPECT_FALSE(view->convertSliceAndIntegerToInteger(integer));
  EXPECT_EQ(describe(integer), "1");
  EXPECT_TRUE(raisedNothing());
}

TEST(CompositionFailure, ParentThatWasNotNormalised) {
  const ViewPointer view = viewEndingIn({1, 10, 2, 5, false});
  const std::string message =
      "getIntegerIndexValues(7, &success) was called before the slice item was normalized.";
  IntegerIndexItem integer{1, true};
  EXPECT_FALSE(view->getReplacementIndexForSliceAndInt(integer, 7));
  EXPECT_TRUE(raised(PyExc_RuntimeError, message));
  EXPECT_EQ(describe(integer), "1");

  // Deliberate: nobody asks whether there were values, and none are an empty parent.
  SliceIndexItem child = slice(1, 3, 1, 2);
  EXPECT_TRUE(view->getReplacementIndexForSliceAndSlice(child, 7));
  EXPECT_TRUE(raised(PyExc_RuntimeError, message));
  EXPECT_EQ(describe(child), "1:10:2/5?");
}

// --- Conversion where there may be a slice

TEST(Conversion, WithoutAFinalSliceChangesNothing) {
  const ViewPointer array = makeArray<double>({4, 5});
  const MCppPyArray row(*array, {2}, false);
  for (const MCppPyArray* view : {&std::as_const(*array), &row}) {
    IntegerIndexItem integer{99, false};
    EXPECT_TRUE(view->convertSliceAndIntegerToInteger(integer));
    EXPECT_EQ(describe(integer), "99?");
    SliceIndexItem run = {99, none, 0, none, false};
    EXPECT_TRUE(view->convertSliceAndSliceToSlice(run));
    EXPECT_EQ(describe(run), "99:-:0/-?");
  }
}

TEST(Conversion, ResolvesAgainstAFinalSlice) {
  const ViewPointer view = viewEndingIn(slice(1, 10, 2, 5));
  IntegerIndexItem integer{3, true};
  EXPECT_TRUE(view->convertSliceAndIntegerToInteger(integer));
  EXPECT_EQ(describe(integer), "7?");
  SliceIndexItem run = {1, 4, 1, 3, false};
  EXPECT_TRUE(view->convertSliceAndSliceToSlice(run));
  EXPECT_EQ(describe(run), "3:9:2/3");
}

// --- Appending

TEST(AppendInteger, CountsAndAppends) {
  const ViewPointer view = makeArray<double>({4, 5});
  for (const std::int64_t index : {2, -1}) {  // not looked at
    IntegerIndexItem item{index, index > 0};
    EXPECT_TRUE(view->appendIndexItem(item));
  }
  EXPECT_EQ(describe(view->getRestrictingIndices()), "2 -1?");
  EXPECT_EQ(view->getNumberOfIntegerIndicesSoFar(), 2);
}

TEST(AppendInteger, ResolvesAgainstAFinalSliceThatStays) {
  const ViewPointer view = viewEndingIn(slice(1, 10, 2, 5));
  IntegerIndexItem item{3, true};
  EXPECT_TRUE(view->appendIndexItem(item));
  EXPECT_EQ(describe(view->getRestrictingIndices()), "1:10:2/5 7?");
  EXPECT_EQ(view->getNumberOfIntegerIndicesSoFar(), 1);
}

// Deliberate: the count goes first and is not taken back.
TEST(AppendInteger, CountOfAFailureIsKept) {
  const ViewPointer view = viewEndingIn(slice(1, 3, 1, 2));
  IntegerIndexItem item{2, true};
  EXPECT_FALSE(view->appendIndexItem(item));
  EXPECT_TRUE(raised(PyExc_RuntimeError, "unable to index into slice."));
  EXPECT_EQ(view->getNumberOfIntegerIndicesSoFar(), 1);
  EXPECT_EQ(describe(view->getRestrictingIndices()), "1:3:1/2");
}

TEST(AppendSlice, AppendsWithoutCounting) {
  const ViewPointer view = makeArray<double>({4, 5});
  SliceIndexItem item = slice(1, 3, 1, 2);
  EXPECT_TRUE(view->appendIndexItem(item));
  EXPECT_EQ(describe(view->getRestrictingIndices()), "1:3:1/2");
  EXPECT_EQ(view->getNumberOfIntegerIndicesSoFar(), 0);
}

TEST(AppendSlice, ResolvesAgainstAFinalSliceThatStays) {
  const ViewPointer view = viewEndingIn(slice(1, 10, 2, 5));
  SliceIndexItem item = slice(1, 4, 1, 3);
  EXPECT_TRUE(view->appendIndexItem(item));
  EXPECT_EQ(describe(view->getRestrictingIndices()), "1:10:2/5 3:9:2/3");
  EXPECT_EQ(view->getNumberOfIntegerIndicesSoFar(), 0);
}

TEST(AppendSlice, EmptyRunTakesSlicesButNoIntegers) {
  const ViewPointer view = viewEndingIn(slice(3, 3, 1, 0));
  SliceIndexItem run = slice(0, 0, 1, 0);
  EXPECT_TRUE(view->appendIndexItem(run));
  EXPECT_EQ(describe(view->getRestrictingIndices()), "3:3:1/0 3:3:1/0");
  IntegerIndexItem item{0, true};
  EXPECT_FALSE(view->appendIndexItem(item));
  EXPECT_TRUE(raised(PyExc_RuntimeError, "unable to index into slice."));
}

TEST(AppendSlice, FailureLeavesTheChainAlone) {
  const ViewPointer view = viewEndingIn(slice(1, 10, 2, 5));
  SliceIndexItem item = {1, none, 0, none, false};
  EXPECT_FALSE(view->appendIndexItem(item));
  EXPECT_TRUE(raised(PyExc_ValueError, "slice step cannot be zero."));
  EXPECT_EQ(describe(view->getRestrictingIndices()), "1:10:2/5");
}

// --- The integers of a chain

TEST(IntegersSoFar, AreTheLeadingOnes) {
  const ViewPointer array = makeArray<double>({4, 5, 6});
  MCppPyArray view(*array, {2, -3}, false);
  bool success = false;
  EXPECT_EQ(entriesOf(array->getIntegerIndicesSoFar(success)), Numbers());
  EXPECT_TRUE(success);
  success = false;
  EXPECT_EQ(entriesOf(view.getIntegerIndicesSoFar(success)), (Numbers{2, -3}));
  EXPECT_TRUE(success);
  SliceIndexItem run = slice(1, 3, 1, 2);
  view.appendIndexItem(run);
  EXPECT_EQ(entriesOf(view.getIntegerIndicesSoFar(success)), (Numbers{2, -3}));
  EXPECT_TRUE(success) << "a final slice is behind them";
}

TEST(IntegersSoFar, SliceAmongThemIsAnError) {
  const ViewPointer view = viewEndingIn(slice(1, 3, 1, 2));
  IntegerIndexItem item{1, true};
  ASSERT_TRUE(view->appendIndexItem(item));
  bool success = true;
  EXPECT_EQ(entriesOf(view->getIntegerIndicesSoFar(success)), Numbers());
  EXPECT_FALSE(success);
  EXPECT_TRUE(raised(PyExc_RuntimeError, "slice index unexpectedly found."));
}

TEST(IntegersSoFar, EachPlaceIsLookedAt) {
  const ViewPointer array = makeArray<double>({4, 5, 6});
  MCppPyArray view(*array, {2}, false);
  SliceIndexItem run = slice(1, 3, 1, 2);
  ASSERT_TRUE(view.appendIndexItem(run));
  IntegerIndexItem item{1, true};
  ASSERT_TRUE(view.appendIndexItem(item));
  bool success = true;
  EXPECT_EQ(entriesOf(view.getIntegerIndicesSoFar(success)), Numbers());
  EXPECT_FALSE(success);
  EXPECT_TRUE(raised(PyExc_RuntimeError, "slice index unexpectedly found."));
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
    EXPECT_EQ(describe(viewOf(result).getRestrictingIndices()), row.chain);
    EXPECT_EQ(viewOf(result).getNumberOfIntegerIndicesSoFar(), row.integers);
    EXPECT_EQ(describe(viewOf(array).getRestrictingIndices()), "") << "the parent stays";
  }
  const PyRef longer = makeRecord(makeArray<double>({16, 2}));
  EXPECT_EQ(describe(viewOf(evaluate("a[::2][::2][::2]", {{"a", longer}})).getRestrictingIndices()),
            "0:16:8/2");
}

}  // namespace
