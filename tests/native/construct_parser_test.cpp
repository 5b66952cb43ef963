// The worker of one construction: arguments, dimensions, the elements it fills a buffer with.
#include "construct/final_constructor_parser.hpp"

#include <gtest/gtest.h>

#include <complex>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "module/support.hpp"
#include "python_testing.hpp"

namespace {

using namespace python_testing;

using Numbers = std::vector<std::int64_t>;

// --- Helpers of the parser

TEST(DimensionsText, IsJoinedByCommas) {
  EXPECT_EQ(getDimensionsAsStdString(Numbers{}), "");
  EXPECT_EQ(getDimensionsAsStdString(Numbers{3}), "3");
  EXPECT_EQ(getDimensionsAsStdString(Numbers{2, 3}), "2, 3");
  EXPECT_EQ(getDimensionsAsStdString(Numbers{0, -1, 9223372036854775807}),
            "0, -1, 9223372036854775807");
}

TEST(BoolArgument, IsOneOfTheTwoObjects) {
  bool ok = false;
  EXPECT_TRUE(retrieveBoolKwarg(Py_True, "some_name", ok));
  EXPECT_TRUE(ok);
  ok = false;
  EXPECT_FALSE(retrieveBoolKwarg(Py_False, "some_name", ok));
  EXPECT_TRUE(ok);
  for (const char* expression : {"1", "0", "None", "'True'", "[]"}) {
    SCOPED_TRACE(expression);
    ok = true;
    EXPECT_TRUE(retrieveBoolKwarg(evaluate(expression).get(), "some_name", ok));
    EXPECT_FALSE(ok);
    EXPECT_TRUE(raised(PyExc_TypeError, "value passed to 'some_name' must be a bool."));
  }
  ok = true;
  EXPECT_TRUE(retrieveBoolKwarg(nullptr, "some_name", ok));
  EXPECT_FALSE(ok);
  EXPECT_TRUE(raised(PyExc_TypeError, "value passed to 'some_name' is null."));
}

struct LengthRow {
  const char* expression;
  std::optional<std::int64_t> expected;
};
constexpr LengthRow lengthRows[] = {
    {"5", 1},
    {"None", 1},
    {"{1: 2, 3: 4}", 1},
    {"{1, 2, 3}", 1},
    {"[]", 0},
    {"()", 0},
    {"[7]", 1},
    {"[[1, 2]]", 1},
    {"[1, 2, 3]", 3},
    {"(1, 2.5, None)", 3},
    {"range(4)", 4},
    {"'abc'", 3},
    {"[[1, 2], [3, 4], (5, 6)]", 3},
    {"[[], [], ()]", 3},
    {"[[[1]], [[2, 3]]]", 2},  // no deeper than the children
    {"['ab', [1, 2]]", 2},
    {"[1, [2]]", std::nullopt},
    {"[[1], 2]", std::nullopt},
    {"[[], 2]", std::nullopt},
    {"[1, []]", std::nullopt},
    {"[[1], [2, 3]]", std::nullopt},
    {"[[1, 2], [3, 4], [5]]", std::nullopt},
    {"[1, 2, 3, 'x']", std::nullopt},
};

TEST(LengthOfASequence, IsThereWhenTheChildrenAgree) {
  for (const LengthRow& row : lengthRows) {
    SCOPED_TRACE(row.expression);
    EXPECT_EQ(getLengthOfPySequence(evaluate(row.expression).get()), row.expected);
    EXPECT_TRUE(raisedNothing());
  }
}

constexpr const char* raisingLength =
    "type('Raises', (), {'__len__': lambda s: {}['len'], '__getitem__': lambda s, i: i})()";
constexpr const char* raisingItem =
    "type('Raises', (), {'__len__': lambda s: 2, '__getitem__': lambda s, i: {}['item']})()";

TEST(LengthOfASequence, ErrorsOfTheSequence) {
  const std::optional<std::int64_t> length = getLengthOfPySequence(evaluate(raisingLength).get());
  EXPECT_TRUE(raised(PyExc_KeyError, "'len'"));
  EXPECT_EQ(length, -1);
  EXPECT_EQ(getLengthOfPySequence(evaluate(raisingItem).get()), std::nullopt);
  EXPECT_TRUE(raised(PyExc_RuntimeError, "null data pointer."));
  for (const char* list : {"[x, [1]]", "[[1], x]"}) {
    SCOPED_TRACE(list);
    const PyRef child = evaluate(raisingLength);
    EXPECT_EQ(getLengthOfPySequence(evaluate(list, {{"x", child}}).get()), std::nullopt);
    EXPECT_TRUE(raised(PyExc_KeyError, "'len'"));
  }
}

// --- Arguments

// The arguments of a call that is written as for a function: "[1, 2], size=(2, 1)".
ConstructorArguments argumentsOf(const std::string& call) {
  const PyRef both = evaluate("(lambda *a, **k: (a, k))(" + call + ")");
  ConstructorArguments arguments;
  EXPECT_TRUE(arguments.parse(PyTuple_GetItem(both.get(), 0), PyTuple_GetItem(both.get(), 1)));
  arguments.kwargs = nullptr;  // borrowed from what ends here
  return arguments;
}

TEST(Arguments, AreFourAndOwned) {
  const ConstructorArguments arguments = argumentsOf("[1], vector=[2], is_complex=[3]");
  EXPECT_EQ(reprOf(arguments.initializer), "[1]");
  EXPECT_FALSE(arguments.size);
  EXPECT_EQ(reprOf(arguments.vector), "[2]");
  EXPECT_EQ(reprOf(arguments.isComplex), "[3]");
  const ConstructorArguments positional = argumentsOf("1, 2, 3, 4");
  EXPECT_EQ(reprOf(positional.initializer), "1");
  EXPECT_EQ(reprOf(positional.size), "2");
  EXPECT_EQ(reprOf(positional.vector), "3");
  EXPECT_EQ(reprOf(positional.isComplex), "4");
}

TEST(Arguments, RefusedByTheInterpreter) {
  for (const char* pair :
       {"((1, 2, 3, 4, 5), {})", "((), {'other': 1})", "((1,), {'initializer': 2})"}) {
    SCOPED_TRACE(pair);
    const PyRef both = evaluate(pair);
    ConstructorArguments arguments;
    EXPECT_FALSE(arguments.parse(PyTuple_GetItem(both.get(), 0), PyTuple_GetItem(both.get(), 1)));
    EXPECT_TRUE(raisedOwn(PyExc_TypeError));
  }
}

// --- From arguments to a filled buffer

struct ParsedRow {
  const char* call;
  Numbers dimensions;
  Numbers calculated;
  bool isInStorageOrder;
  std::int64_t flattened;
  std::vector<int> elements;
};
const ParsedRow parsedRows[] = {
    {"", {0, 0}, {}, false, 0, {}},
    {"None, None, None", {0, 0}, {}, false, 0, {}},
    {"size=(2, 3)", {2, 3}, {}, true, 0, {0, 0, 0, 0, 0, 0}},
    {"size=(3,)", {1, 3}, {}, true, 0, {0, 0, 0}},
    {"size=(3, 1, 1)", {3, 1}, {}, true, 0, {0, 0, 0}},
    {"size=(0, 3)", {0, 3}, {}, true, 0, {}},
    {"5", {1, 1}, {1, 1}, false, 1, {5}},
    {"[1, 2, 3]", {1, 3}, {1, 3}, false, 3, {1, 2, 3}},
    {"[[1, 2], [3, 4]]", {2, 2}, {2, 2}, false, 4, {1, 2, 3, 4}},
    {"[[[1], [2]]]", {1, 2}, {1, 2}, false, 2, {1, 2}},
    {"[[[1, 2]], [[3, 4]]]", {2, 1, 2}, {2, 1, 2}, false, 4, {1, 2, 3, 4}},
    {"[]", {0, 0}, {0, 0}, false, 0, {}},
    {"[[]]", {1, 0}, {1, 0}, false, 0, {}},
    {"[1, 2, 3, 4], (2, 2)", {2, 2}, {4}, true, 4, {1, 2, 3, 4}},
    {"[1], (1, 1)", {1, 1}, {1}, false, 1, {1}},
    {"[[1, 2], [3, 4]], (2, 2)", {2, 2}, {2, 2}, false, 4, {1, 2, 3, 4}},
    {"[], (0, 5)", {0, 5}, {0}, false, 0, {}},
    {"[1, 2], None", {1, 2}, {1, 2}, false, 2, {1, 2}},
    {"vector=[1, 2, 3]", {1, 3}, {1, 3}, false, 0, {1, 2, 3}},
    {"vector=[]", {1, 0}, {1, 0}, false, 0, {}},
    {"vector=[1, 2], size=(2, 1)", {2, 1}, {2}, true, 0, {1, 2}},
};

template <class T>
class Parser : public ::testing::Test {};
TYPED_TEST_SUITE(Parser, AllTypes, TypeWords);

TYPED_TEST(Parser, FillsABufferAndFindsTheDimensions) {
  for (const ParsedRow& row : parsedRows) {
    SCOPED_TRACE(row.call);
    FinalConstructorParser<TypeParam> parser;
    EXPECT_TRUE(parser.getDimensions().empty());
    EXPECT_FALSE(parser.isBufferInStorageOrder());
    bool ok = false;
    const auto buffer = parser.processConstructorArgsAndKwargs(argumentsOf(row.call), ok);
    ASSERT_TRUE(ok);
    ASSERT_NE(buffer, nullptr);
    EXPECT_EQ(parser.getDimensions(), row.dimensions);
    EXPECT_EQ(parser.getCalculatedDimensions(), row.calculated);
    EXPECT_EQ(parser.isBufferInStorageOrder(), row.isInStorageOrder);
    EXPECT_EQ(parser.getNumberOfFlattenedElements(), row.flattened);
    for (std::size_t i = 0; i < row.elements.size(); ++i) {
      const TypeParam expected = [&] {
        if constexpr (isComplexElement<TypeParam>) {
          return TypeParam(static_cast<Part<TypeParam>>(row.elements[i]), 0);
        } else {
          return static_cast<TypeParam>(row.elements[i]);
        }
      }();
      EXPECT_EQ(buffer[i], expected) << i;
    }
    EXPECT_TRUE(raisedNothing());
  }
}

struct RefusedRow {
  const char* call;
  PyObject** exceptionClass;
  const char* message;
};

TYPED_TEST(Parser, FailureHasAnErrorAndNoBuffer) {
  const RefusedRow rows[] = {
      {"[1], vector=[1]", &PyExc_TypeError,
       "more than two positional arguments must not be specified. A third will be treated as "
       "'vector', which must not be specified when an initializer is specified."},
      {"size=5", &PyExc_TypeError, "value of 'size' must be a sequence."},
      {"size=()", &PyExc_ValueError, "sequence passed to 'size' must not be empty."},
      {"[[1, 2], [3]]", &PyExc_ValueError, "elements of array are of different lengths or types."},
      {"[[[1], [2]], [[3, 4], [5, 6]]]", &PyExc_ValueError, "arrays must be rectangular."},
      {"[[[], []], [[1], [2]]]", &PyExc_ValueError, "arrays must be rectangular."},
      {"'12'", &PyExc_ValueError, "value passed to initializer must be numeric."},
      {"vector='12'", &PyExc_ValueError, "value passed to 'vector' must be numeric."},
      {"vector=[[1]]", &PyExc_TypeError, "value of 'vector' must be an unnested sequence."},
      {"[1, 2, 3], (2, 2)", &MCPyError::shapeErr,
       "dimensions of initializer (3) do not match dimensions specified by 'size' (2, 2)."},
      {"[[1, 2], [3, 4]], (1, 4)", &MCPyError::sizeErr,
       "dimensions of initializer (2, 2) do not match dimensions specified by 'size' (1, 4)."},
  };
  for (const RefusedRow& row : rows) {
    SCOPED_TRACE(row.call);
    FinalConstructorParser<TypeParam> parser;
    bool ok = true;
    const auto buffer = parser.processConstructorArgsAndKwargs(argumentsOf(row.call), ok);
    EXPECT_FALSE(ok);
    EXPECT_EQ(buffer, nullptr);
    EXPECT_TRUE(raised(*row.exceptionClass, row.message));
  }
}

TYPED_TEST(Parser, MemoryThatCannotBeHadIsNamedByTypeAndTrueCount) {
  const std::pair<const char*, const char*> rows[] = {
      {"size=(2**31, 2**31)", "4611686018427387904"},
      {"size=(2**32, 2**31)", "9223372036854775808"},
      // The product wraps to a small one.
      {"size=(2**32, 2**32)", "18446744073709551615"},
      {"size=(2**40, 2**40, 3)", "18446744073709551615"},
      {"[1, 2], (2**63 - 1, 2**63 - 1, 2)", "18446744073709551615"},
  };
  for (const auto& [call, count] : rows) {
    SCOPED_TRACE(call);
    FinalConstructorParser<TypeParam> parser;
    bool ok = true;
    EXPECT_EQ(parser.processConstructorArgsAndKwargs(argumentsOf(call), ok), nullptr);
    EXPECT_FALSE(ok);
    EXPECT_TRUE(raised(PyExc_MemoryError,
                       std::string("unable to allocate memory for array with number of elements "
                                   "= ") +
                           count + "; type = " + typeWord<TypeParam>));
  }
}

// --- Flattening by itself

TEST(Flattening, NullIsAnItemThatCouldNotBeHad) {
  FinalConstructorParser<double> parser;
  EXPECT_FALSE(parser.flattenWithUnspecifiedDimensions(nullptr, true));
  EXPECT_TRUE(raised(PyExc_RuntimeError, "null data pointer."));
}

TEST(Flattening, LogicalElementsAreToldWhetherFloatsCount) {
  const PyRef floats = evaluate("[[0.5, 0.0], [float('nan'), 1]]");
  FinalConstructorParser<bool> allowing;
  ASSERT_TRUE(allowing.flattenWithUnspecifiedDimensions(floats.get(), true));
  const auto elements = allowing.getFilledBuffer();
  EXPECT_EQ(std::vector<bool>(elements.get(), elements.get() + 4),
            (std::vector<bool>{true, false, true, true}));
  for (const char* expression : {"0.5", "[0.5]", "[[1, 0], [1, 0.5]]"}) {
    SCOPED_TRACE(expression);
    FinalConstructorParser<bool> refusing;
    EXPECT_FALSE(refusing.flattenWithUnspecifiedDimensions(evaluate(expression).get(), false));
    EXPECT_TRUE(raised(PyExc_TypeError, "velmar.logical does not accept floating-point values."));
  }
}

TEST(Flattening, AppendsToWhatIsThere) {
  FinalConstructorParser<std::int16_t> parser;
  for (const char* expression : {"[[1, 2], [3, 4]]", "[[5, 6], [7, 8]]"}) {
    ASSERT_TRUE(parser.flattenWithUnspecifiedDimensions(evaluate(expression).get(), true));
    EXPECT_EQ(parser.getDimensions(), (Numbers{2, 2}));
  }
  EXPECT_EQ(parser.getNumberOfFlattenedElements(), 8);
  const auto elements = parser.getFilledBuffer();
  EXPECT_EQ(std::vector<int>(elements.get(), elements.get() + 8),
            (std::vector<int>{1, 2, 3, 4, 5, 6, 7, 8}));
  EXPECT_EQ(parser.getNumberOfFlattenedElements(), 8) << "the number stays";
}

TEST(Flattening, ScalarsAreOneByOne) {
  FinalConstructorParser<double> parser;
  ASSERT_TRUE(parser.flattenWithUnspecifiedDimensions(evaluate("2.5").get(), true));
  EXPECT_EQ(parser.getDimensions(), (Numbers{1, 1}));
  EXPECT_EQ(parser.getFilledBuffer()[0], 2.5);
}

// --- The number of elements

TEST(NumberOfElements, WithoutDimensionsIsOneAndStaysSo) {
  FinalConstructorParser<double> parser;
  EXPECT_EQ(parser.calculateNumberOfElements(), 1);
  EXPECT_EQ(parser.calculateNumberOfElements(), 1);
  ASSERT_TRUE(parser.flattenWithUnspecifiedDimensions(evaluate("[1, 2, 3]").get(), true));
  EXPECT_EQ(parser.getDimensions(), (Numbers{3}));
  EXPECT_EQ(parser.calculateNumberOfElements(), 1);
}

TEST(NumberOfElements, FirstPositiveProductStays) {
  FinalConstructorParser<double> parser;
  ASSERT_TRUE(parser.flattenWithUnspecifiedDimensions(evaluate("[]").get(), true));
  EXPECT_EQ(parser.calculateNumberOfElements(), 0);
  ASSERT_TRUE(parser.flattenWithUnspecifiedDimensions(evaluate("[1, 2, 3]").get(), true));
  EXPECT_EQ(parser.calculateNumberOfElements(), 3);
  ASSERT_FALSE(parser.flattenWithUnspecifiedDimensions(evaluate("[[1, 2]]").get(), true));
  EXPECT_TRUE(raised(PyExc_ValueError, "arrays must be rectangular."));
  EXPECT_NE(parser.getDimensions(), (Numbers{3}));
  EXPECT_EQ(parser.calculateNumberOfElements(), 3);
}

TEST(NumberOfElements, PrefersTheDimensionsOfSize) {
  bool ok = false;
  FinalConstructorParser<double> parser;
  parser.processConstructorArgsAndKwargs(argumentsOf("vector=[1, 2, 3, 4, 5, 6], size=(2, 3)"), ok);
  EXPECT_TRUE(ok);
  EXPECT_EQ(parser.getCalculatedDimensions(), (Numbers{6}));
  EXPECT_EQ(parser.calculateNumberOfElements(), 6);
  FinalConstructorParser<double> empty;
  empty.processConstructorArgsAndKwargs(argumentsOf("size=(0, 3)"), ok);
  EXPECT_TRUE(ok);
  EXPECT_EQ(empty.calculateNumberOfElements(), 0);
}

}  // namespace
