// Index items: made from subscript objects, normalised against lengths, read as values and ranges.
#include "indexing/subscripts.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "python_testing.hpp"

namespace {

using namespace python_testing;

constexpr std::nullopt_t none = std::nullopt;
constexpr std::int64_t smallest = std::numeric_limits<std::int64_t>::min();

// --- Subscripts that are ints

struct IntegerRow {
  const char* expression;
  std::optional<std::int64_t> expected;
};
constexpr IntegerRow integerRows[] = {
    {"5", 5},
    {"0", 0},
    {"-7", -7},
    {"True", 1},
    {"False", 0},
    {"2**63 - 1", largest},
    {"-2**63", smallest},
    {"type('Int', (int,), {})(3)", 3},
    {"type('Int', (int,), {'__index__': lambda self: 99})(3)", 3},
    {"1.0", none},
    {"None", none},
    {"slice(None)", none},
    {"'1'", none},
    {"(0, 1)", none},
    {"...", none},
    {"type('Index', (), {'__index__': lambda self: 1})()", none},
};

TEST(IntegerSubscript, IsAnIntAndNothingElse) {
  for (const IntegerRow& row : integerRows) {
    SCOPED_TRACE(row.expression);
    EXPECT_EQ(getIntegerIndexFromIndexObject(evaluate(row.expression).get()), row.expected);
    EXPECT_TRUE(raisedNothing());
  }
}

// Deliberate: the handlers go on with -1, and the error stays pending.
TEST(IntegerSubscript, TooLargeForSixtyFourBitsIsMinusOneWithTheErrorPending) {
  for (const char* expression : {"2**63", "2**70", "-2**63 - 1", "-2**70"}) {
    SCOPED_TRACE(expression);
    EXPECT_EQ(getIntegerIndexFromIndexObject(evaluate(expression).get()), -1);
    EXPECT_TRUE(raisedOwn(PyExc_OverflowError));
  }
}

// --- Integers against a length

struct IntegerNormalisationRow {
  std::int64_t length;
  std::int64_t index;
  std::optional<std::int64_t> expected;
  const char* message;  // null: the failure sets no error
};
constexpr IntegerNormalisationRow integerNormalisationRows[] = {
    {5, 0, 0, nullptr},
    {5, 4, 4, nullptr},
    {5, 5, none, "index is too large: (5; maximum: 4)."},
    {5, 6, none, "index is too large: (6; maximum: 4)."},
    {5, largest, none, "index is too large: (9223372036854775807; maximum: 4)."},
    {5, -1, 4, nullptr},
    {5, -5, 0, nullptr},
    {5, -6, none, nullptr},
    {5, smallest, none, nullptr},
    {1, 0, 0, nullptr},
    {1, -1, 0, nullptr},
    {1, 1, none, "index is too large: (1; maximum: 0)."},
    {0, 0, none, "index is too large: (0; maximum: -1)."},
    {0, -1, none, nullptr},
    {-1, 0, none, "len is invalid (-1); must be nonnegative."},
    {-7, -9, none, "len is invalid (-7); must be nonnegative."},
};

TEST(IntegerItem, IsNormalisedAgainstALength) {
  for (const IntegerNormalisationRow& row : integerNormalisationRows) {
    for (const bool wasNormalized : {false, true}) {
      SCOPED_TRACE(std::to_string(row.index) + " against " + std::to_string(row.length));
      IntegerIndexItem item{row.index, wasNormalized};
      EXPECT_EQ(item.normalizeAgainstLength(row.length), row.expected.has_value());
      EXPECT_EQ(item.m_index, row.expected.value_or(row.index));
      EXPECT_EQ(item.m_isNormalized, row.expected.has_value() || wasNormalized);
      if (row.message != nullptr) {
        EXPECT_TRUE(raised(PyExc_RuntimeError, row.message));
      } else {
        EXPECT_TRUE(raisedNothing()) << "the caller reports an index that is too small";
      }
    }
  }
}

// --- Slices with empty fields against a length

struct SliceNormalisationRow {
  const char* label;
  SliceIndexItem item;
  std::int64_t length;
  const char* expected;
};
const SliceNormalisationRow sliceNormalisationRows[] = {
    {"neither start nor stop", {none, none, none, none, false}, 5, "0:0:1/0"},
    {"neither, though with a length", {none, none, 2, 3, false}, 5, "0:0:1/0"},
    {"start equals stop", {3, 3, none, none, false}, 5, "0:0:1/0"},
    {"start equals stop, with a length", {3, 3, 2, 7, false}, 5, "0:0:1/0"},
    {"both, known to be empty", {1, 4, 1, 0, false}, 5, "0:0:1/0"},
    {"start alone, known to be empty", {1, none, 1, 0, false}, 5, "0:0:1/0"},
    {"stop alone, known to be empty", {none, 4, 1, 0, false}, 5, "0:0:1/0"},
    {"known to be empty, step of zero", {1, 4, 0, 0, false}, 5, "0:0:1/0"},
    {"neither, step of zero", {none, none, 0, none, false}, 5, "0:0:1/0"},
    {"all filled", {1, 4, 2, 2, false}, 5, "1:4:2/2"},
    {"normalised already", {1, 4, 2, 2, true}, 5, "1:4:2/2"},
    {"start alone", {2, none, none, none, false}, 5, "2:5:1/3"},
    {"stop alone", {none, 4, none, none, false}, 5, "0:4:1/4"},
    {"stop alone on nothing", {none, 4, none, none, false}, 0, "0:4:1/4"},
    {"start at the length", {5, none, none, none, false}, 5, "4:5:1/1"},
    {"start past the length", {9, 2, -1, none, false}, 5, "4:2:-1/2"},
    {"negative start", {-2, none, none, none, false}, 5, "3:5:1/2"},
    {"start below minus length", {-9, none, none, none, false}, 5, "0:5:1/5"},
    {"start on nothing", {3, none, none, none, false}, 0, "0:0:1/0"},
    {"start on one, at the end", {1, 0, -1, 1, false}, 1, "0:0:-1/1"},
    {"stop is left alone", {0, 99, 1, none, false}, 5, "0:99:1/99"},
    {"negative stop is left alone", {4, -1, -1, 5, false}, 5, "4:-1:-1/5"},
    {"negative length", {2, 4, 1, 2, false}, -1, "0:4:1/2"},
    // A truncated quotient, not the number of positions.
    {"quotient, exact", {0, 6, 2, none, false}, 10, "0:6:2/3"},
    {"quotient, cut off", {1, 8, 2, none, false}, 10, "1:8:2/3"},
    {"quotient, backwards", {8, 1, -2, none, false}, 10, "8:1:-2/3"},
    {"quotient, against the step", {1, 8, -2, none, false}, 10, "1:8:-2/-3"},
    {"given length is kept", {1, 8, 2, 99, false}, 10, "1:8:2/99"},
};

TEST(SliceItem, IsFilledAndNormalisedAgainstALength) {
  for (const SliceNormalisationRow& row : sliceNormalisationRows) {
    SCOPED_TRACE(row.label);
    SliceIndexItem item = row.item;
    EXPECT_TRUE(item.normalizeAgainstLength(row.length));
    EXPECT_EQ(describe(item), row.expected);
    EXPECT_TRUE(raisedNothing());
  }
}

TEST(SliceItem, StepOfZeroIsRefused) {
  const SliceNormalisationRow rows[] = {
      {"all filled", {7, 9, 0, 2, false}, 5, "4:9:0/2?"},
      {"start alone", {-1, none, 0, none, false}, 5, "4:5:0/-?"},
      {"stop alone", {none, 4, 0, none, false}, 5, "0:4:0/-?"},
      {"normalised before", {1, 4, 0, 3, true}, 5, "1:4:0/3"},
  };
  for (const SliceNormalisationRow& row : rows) {
    SCOPED_TRACE(row.label);
    SliceIndexItem item = row.item;
    EXPECT_FALSE(item.normalizeAgainstLength(row.length));
    EXPECT_TRUE(raised(PyExc_ValueError, "slice step cannot be zero."));
    EXPECT_EQ(describe(item), row.expected) << "the numbers before the step are normalised";
  }
}

// --- From slice objects

struct SliceRow {
  const char* expression;
  std::int64_t length;
  const char* expected;
  Numbers values;
};
const SliceRow sliceRows[] = {
    {"slice(None)", 5, "0:5:1/5", {0, 1, 2, 3, 4}},
    {"slice(None)", 0, "0:0:1/0", {}},
    {"slice(None)", 1, "0:1:1/1", {0}},
    {"slice(1, 4)", 5, "1:4:1/3", {1, 2, 3}},
    {"slice(1, 4, 2)", 5, "1:4:2/2", {1, 3}},
    {"slice(-3, -1)", 5, "2:4:1/2", {2, 3}},
    {"slice(2, 99)", 5, "2:5:1/3", {2, 3, 4}},
    {"slice(-99, 2)", 5, "0:2:1/2", {0, 1}},
    {"slice(3, 3)", 5, "0:0:1/0", {}},
    {"slice(4, 2)", 5, "0:0:1/0", {}},
    {"slice(10, 20)", 5, "0:0:1/0", {}},
    {"slice(2, 4, -1)", 5, "0:0:1/0", {}},
    {"slice(None, None, -1)", 5, "4:-1:-1/5", {4, 3, 2, 1, 0}},
    {"slice(None, None, -2)", 5, "4:-1:-2/3", {4, 2, 0}},
    {"slice(None, 0, -2)", 5, "4:0:-2/2", {4, 2}},
    {"slice(99, None, -3)", 5, "4:-1:-3/2", {4, 1}},
    {"slice(True, type('Index', (), {'__index__': lambda self: 3})())", 5, "1:3:1/2", {1, 2}},
    {"slice(None, None, 2**70)", 5, "0:5:9223372036854775807/1", {0}},
    {"slice(None, None, -2**70)", 5, "4:-1:-9223372036854775807/1", {4}},
    {"slice(-2**70, 2**70)", 5, "0:5:1/5", {0, 1, 2, 3, 4}},
};

TEST(SliceSubscript, BecomesANormalisedItem) {
  for (const SliceRow& row : sliceRows) {
    SCOPED_TRACE(std::string(row.expression) + " on " + std::to_string(row.length));
    const std::optional<SliceIndexItem> item =
        getSliceData(evaluate(row.expression).get(), row.length);
    ASSERT_TRUE(item);
    EXPECT_EQ(describe(*item), row.expected);
    EXPECT_EQ(valuesOf(*item), row.values);
    EXPECT_TRUE(raisedNothing());
  }
}

// The positions that Python itself finds in a slice of a range.
Numbers positionsByPython(PyObject* object, std::int64_t length) {
  const PyRef range = evaluate("range(" + std::to_string(length) + ")");
  const PyRef part = PyRef::steal(PyObject_GetItem(range.get(), object));
  Numbers positions;
  for (Py_ssize_t i = 0; i < PyObject_Length(part.get()); ++i) {
    const PyRef position = PyRef::steal(PySequence_GetItem(part.get(), i));
    positions.push_back(PyLong_AsSsize_t(position.get()));
  }
  return positions;
}

TEST(SliceSubscript, HasThePositionsThatPythonFinds) {
  const std::vector<const char*> ends = {"None", "-7", "-4", "-3", "-1", "0", "1", "2", "3", "6"};
  const std::vector<const char*> steps = {"None", "1", "2", "3", "7", "-1", "-2", "-3", "-7"};
  for (const char* start : ends) {
    for (const char* stop : ends) {
      for (const char* step : steps) {
        const std::string expression =
            std::string("slice(") + start + ", " + stop + ", " + step + ")";
        const PyRef object = evaluate(expression);
        for (std::int64_t length = 0; length < 6; ++length) {
          const std::optional<SliceIndexItem> item = getSliceData(object.get(), length);
          ASSERT_TRUE(item) << expression;
          const Numbers values = valuesOf(*item);
          ASSERT_EQ(values, positionsByPython(object.get(), length)) << expression << length;
          ASSERT_EQ(*item->m_slice_len, static_cast<std::int64_t>(values.size())) << expression;
          if (values.empty()) {
            ASSERT_EQ(describe(*item), "0:0:1/0") << expression;
          } else {
            ASSERT_EQ(*item->m_start, values.front()) << expression;
          }
        }
      }
    }
  }
}

struct RefusedSliceRow {
  const char* expression;
  std::int64_t length;
  const char* message;
};
constexpr RefusedSliceRow refusedSliceRows[] = {
    {"slice(None, None, 0)", 5, "slice step cannot be zero."},
    {"slice(1, 2, 0)", 0, "slice step cannot be zero."},
    {"slice(1, 2, 0)", 5, "slice step cannot be zero."},
    {"slice(None, None, 0)", -1, "slice step cannot be zero."},
    // A step that cannot be read is still 0, and this message replaces that of the interpreter.
    {"slice(None, None, 'x')", 5, "slice step cannot be zero."},
    {"slice(None, None, 1.5)", 5, "slice step cannot be zero."},
    {"slice('x', None, 'x')", 5, "slice step cannot be zero."},
    {"slice('x', None, 0)", 5, "slice step cannot be zero."},
    {"slice(None, None, type('Raises', (), {'__index__': lambda self: {}[0]})())", 5,
     "slice step cannot be zero."},
    // The message shows the numbers after the interpreter has adjusted them to the length.
    {"slice(None)", -1, "index has an invalid value: (-1:-1:1)"},
    {"slice(2, 5)", -3, "index has an invalid value: (-3:-3:1)"},
    {"slice(-2, None)", -1, "index has an invalid value: (0:-1:1)"},
    {"slice(2, 5, -2)", -3, "index has an invalid value: (-4:-4:-2)"},
    {"slice('x', None)", -1, "index has an invalid value: (0:0:1)"},
};

TEST(SliceSubscript, RefusalsAreValueErrors) {
  for (const RefusedSliceRow& row : refusedSliceRows) {
    SCOPED_TRACE(std::string(row.expression) + " on " + std::to_string(row.length));
    EXPECT_FALSE(getSliceData(evaluate(row.expression).get(), row.length));
    EXPECT_TRUE(raised(PyExc_ValueError, row.message));
  }
}

TEST(SliceSubscript, UnreadableEndsKeepTheErrorOfTheInterpreter) {
  for (const char* expression : {"slice('x', None)", "slice(None, 'x')", "slice(1.0, 2, 3)"}) {
    SCOPED_TRACE(expression);
    EXPECT_FALSE(getSliceData(evaluate(expression).get(), 5));
    EXPECT_TRUE(raisedOwn(PyExc_TypeError));
  }
  const PyRef raising =
      evaluate("slice(type('Raises', (), {'__index__': lambda self: {}['key']})(), 3)");
  EXPECT_FALSE(getSliceData(raising.get(), 5));
  EXPECT_TRUE(raised(PyExc_KeyError, "'key'"));
}

// --- Values of a slice

struct ValuesRow {
  SliceIndexItem item;
  Numbers expected;
};

TEST(SliceValues, AreComputedFromStartStopAndStep) {
  const ValuesRow rows[] = {
      {slice(0, 5, 1, 5), {0, 1, 2, 3, 4}},
      {slice(1, 5, 2, 2), {1, 3}},
      {slice(1, 6, 2, 3), {1, 3, 5}},
      {slice(1, 7, 2, 3), {1, 3, 5}},
      {slice(4, -1, -1, 5), {4, 3, 2, 1, 0}},
      {slice(4, -2, -2, 3), {4, 2, 0}},
      {slice(4, -1, -2, 3), {4, 2, 0}},
      {slice(4, 0, -2, 2), {4, 2}},
      {slice(3, 3, 1, 0), {}},
      {slice(3, 3, -1, 0), {}},
      {slice(5, 2, 1, 0), {}},
      {slice(2, 5, -1, 0), {}},
      {slice(-3, 2, 2, 3), {-3, -1, 1}},
      // The length of the item does not count.
      {slice(0, 3, 1, 99), {0, 1, 2}},
      {slice(0, 3, 1, 0), {0, 1, 2}},
      {slice(0, 3, 1, -5), {0, 1, 2}},
      // No sum overflows on the way.
      {slice(0, largest, largest, 1), {0}},
      {slice(2, largest, largest - 2, 1), {2}},
      {slice(0, -largest, -largest, 1), {0}},
      {slice(largest - 1, largest, 1, 1), {largest - 1}},
      {slice(-largest, largest, largest, 2), {-largest, 0}},
      {slice(largest, -largest, -largest, 2), {largest, 0}},
  };
  for (const ValuesRow& row : rows) {
    SCOPED_TRACE(describe(row.item));
    EXPECT_EQ(valuesOf(row.item), row.expected);
  }
}

// --- Items as ranges

TEST(ItemRanges, OfAnIntegerAreOneLongWithoutAStep) {
  for (const std::int64_t index : {std::int64_t{7}, std::int64_t{0}, std::int64_t{-3}}) {
    const IntegerIndexItem item{index, true};
    EXPECT_EQ(getStart(item), index);
    EXPECT_EQ(getStop(item), index + 1);
    EXPECT_EQ(getStep(item), 0);
  }
}

TEST(ItemRanges, OfASliceAreItsNumbers) {
  const SliceIndexItem item = slice(4, -2, -3, 2);
  EXPECT_EQ(getStart(item), 4);
  EXPECT_EQ(getStop(item), -2);
  EXPECT_EQ(getStep(item), -3);
}

}  // namespace
