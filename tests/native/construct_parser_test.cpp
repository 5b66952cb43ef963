// The worker of one construction: arguments, dimensions, and the buffer that it fills.
#include "construct/final_constructor_parser.hpp"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "module/support.hpp"
#include "python_testing.hpp"

namespace {

using namespace python_testing;

// --- Arguments

TEST(BoolArgument, IsOneOfTheTwoObjects) {
  EXPECT_EQ(retrieveBoolKwarg(Py_True, "some_name"), true);
  EXPECT_EQ(retrieveBoolKwarg(Py_False, "some_name"), false);
  EXPECT_TRUE(raisedNothing());
  for (const char* expression : {"1", "0", "None", "'True'", "[]"}) {
    SCOPED_TRACE(expression);
    EXPECT_EQ(retrieveBoolKwarg(evaluate(expression).get(), "some_name"), std::nullopt);
    EXPECT_TRUE(raised(PyExc_TypeError, "value passed to 'some_name' must be a bool."));
  }
  EXPECT_EQ(retrieveBoolKwarg(nullptr, "some_name"), std::nullopt);
  EXPECT_TRUE(raised(PyExc_TypeError, "value passed to 'some_name' is null."));
}

// The arguments of a call, written as in Python: "[1, 2], size=(2, 1)".
ConstructorArguments argumentsOf(const std::string& call) {
  const PyRef both = evaluate("(lambda *a, **k: (a, k))(" + call + ")");
  ConstructorArguments arguments;
  EXPECT_TRUE(arguments.parse(PyTuple_GetItem(both.get(), 0), PyTuple_GetItem(both.get(), 1)));
  arguments.kwargs = nullptr;  // borrowed from `both`, which is destroyed here
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

TEST(Arguments, AreCheckedByTheInterpreter) {
  for (const char* pair :
       {"((1, 2, 3, 4, 5), {})", "((), {'other': 1})", "((1,), {'initializer': 2})"}) {
    SCOPED_TRACE(pair);
    const PyRef both = evaluate(pair);
    ConstructorArguments arguments;
    EXPECT_FALSE(arguments.parse(PyTuple_GetItem(both.get(), 0), PyTuple_GetItem(both.get(), 1)));
    EXPECT_TRUE(raisedOwn(PyExc_TypeError));
  }
}

struct NamedRow {
  const char* label;
  const char* keywords;  // a dict; `Text` is a subclass of str
  const char* expected;  // repr() of initializer, size, vector and is_complex; or the error
};
const NamedRow namedRows[] = {
    {"literal", "{'size': 1, 'is_complex': 2}", "null 1 null 2"},
    {"another string of the same text", "{'Xvector'[1:]: 1}", "null null 1 null"},
    {"subclass of str", "{Text('size'): 1, 'vector': 2}", "null 1 2 null"},
    {"every name of a subclass", "{Text('initializer'): 1, Text('is_complex'): 2}",
     "1 null null 2"},
    {"unknown name of a subclass", "{Text('other'): 1}", "TypeError"},
    {"name that is not a string", "{1: 1}", "TypeError"},
};

TEST(Arguments, HaveNamesOfAnyStringClass) {
  const PyRef text = evaluate("type('Text', (str,), {})");
  const PyRef none = evaluate("()");
  for (const NamedRow& row : namedRows) {
    SCOPED_TRACE(row.label);
    const PyRef keywords = evaluate(row.keywords, {{"Text", text}});
    ConstructorArguments arguments;
    if (!arguments.parse(none.get(), keywords.get())) {
      EXPECT_STREQ(row.expected, "TypeError");
      EXPECT_TRUE(raisedOwn(PyExc_TypeError));
      continue;
    }
    EXPECT_TRUE(raisedNothing());
    EXPECT_EQ(reprOf(arguments.initializer) + " " + reprOf(arguments.size) + " " +
                  reprOf(arguments.vector) + " " + reprOf(arguments.isComplex),
              row.expected);
  }
}

TEST(Arguments, LeaveAPendingError) {
  const PyRef both = evaluate("(1, 2, 3, 4)");
  ConstructorArguments arguments;
  setError(PyExc_KeyError, "pending");
  EXPECT_TRUE(arguments.parse(both.get(), nullptr));
  EXPECT_TRUE(raised(PyExc_KeyError, "'pending'"));
  EXPECT_EQ(reprOf(arguments.initializer), "1");
  EXPECT_EQ(reprOf(arguments.isComplex), "4");
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
    {"", {0, 0}, {}, true, 0, {}},
    {"None, None, None", {0, 0}, {}, true, 0, {}},
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

TYPED_SUITE(Parser, AllTypes, TypeWords);

TYPED_CASE(Parser, FillsABufferAndFindsTheDimensions) {
  for (const ParsedRow& row : parsedRows) {
    SCOPED_TRACE(row.call);
    FinalConstructorParser<TypeParam> parser;
    const ConstructionShape& shape = parser.shape();
    EXPECT_TRUE(shape.getDimensions().empty());
    EXPECT_FALSE(shape.isBufferInStorageOrder());
    const auto buffer = parser.processConstructorArgsAndKwargs(argumentsOf(row.call));
    ASSERT_NE(buffer, nullptr);
    EXPECT_EQ(numbersOf(shape.getDimensions()), row.dimensions);
    EXPECT_EQ(numbersOf(shape.getCalculatedDimensions()), row.calculated);
    EXPECT_EQ(shape.isBufferInStorageOrder(), row.isInStorageOrder);
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

TYPED_CASE(Parser, FailureHasAnErrorAndNoBuffer) {
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
      {"vector=__import__('velmar').uint8([[1, 0], [0, 1]])", &PyExc_TypeError,
       "value of 'vector' must be an unnested sequence."},
      {"[1, 2, 3], (2, 2)", &MCPyError::shapeErr,
       "dimensions of initializer (3) do not match dimensions specified by 'size' (2, 2)."},
      {"[[1, 2], [3, 4]], (1, 4)", &MCPyError::sizeErr,
       "dimensions of initializer (2, 2) do not match dimensions specified by 'size' (1, 4)."},
  };
  for (const RefusedRow& row : rows) {
    SCOPED_TRACE(row.call);
    FinalConstructorParser<TypeParam> parser;
    EXPECT_EQ(parser.processConstructorArgsAndKwargs(argumentsOf(row.call)), nullptr);
    EXPECT_TRUE(raised(*row.exceptionClass, row.message));
  }
}

// Rows of 3 and 2 elements as a list and in memory.
constexpr const char* formsOfRows[] = {
    "([1, 0, 1], [1, 0])",
    "((1, 0, 1), (1, 0))",
    "tuple(__import__('array').array('b', x) for x in ((1, 0, 1), (1, 0)))",
    "(memoryview(bytes((1, 0, 1))), memoryview(bytes((1, 0))))",
    "tuple(__import__('velmar').uint8([x])[0] for x in ([1, 0, 1], [1, 0]))",
};

TYPED_CASE(Parser, RowsInMemoryThatDoNotFitFailAsListsDo) {
  constexpr const char* differ = "elements of array are of different lengths or types.";
  constexpr const char* notRectangular = "arrays must be rectangular.";
  const std::pair<const char*, const char*> rows[] = {
      {"[[1, 0], row]", differ},
      {"[row, [1, 0]]", differ},
      {"[row, short]", differ},
      {"[short, row]", differ},
      {"[1, row]", differ},
      {"[row, 1]", differ},
      {"[[row], row]", differ},
      {"[row, [row]]", differ},
      {"[[row], [short]]", notRectangular},
      {"[[short], [row]]", notRectangular},
      {"[[], row]", differ},
      {"[row, []]", differ},
      // The lengths of the first two levels agree.
      {"[[[]], [row]]", notRectangular},
      {"[[row], [[]]]", notRectangular},
      {"[[1], [row]]", notRectangular},
      {"[[row], [1]]", notRectangular},
      {"[[[1, 0]], [row]]", notRectangular},
      {"[[row], [[1, 0]]]", notRectangular},
      {"[[[[1]]], [row]]", notRectangular},
      {"[[row], [[[1]]]]", notRectangular},
  };
  for (const char* form : formsOfRows) {
    const PyRef both = evaluate(form);
    const PyRef longer = PyRef::borrow(PyTuple_GetItem(both.get(), 0));
    const PyRef shorter = PyRef::borrow(PyTuple_GetItem(both.get(), 1));
    for (const auto& [expression, message] : rows) {
      SCOPED_TRACE(std::string(expression) + " of " + form);
      ConstructorArguments arguments;
      arguments.initializer = evaluate(expression, {{"row", longer}, {"short", shorter}});
      FinalConstructorParser<TypeParam> parser;
      EXPECT_EQ(parser.processConstructorArgsAndKwargs(arguments), nullptr);
      EXPECT_TRUE(raised(PyExc_ValueError, message));
    }
  }
}

TYPED_CASE(Parser, ShortMemoryIsReportedWithTypeAndTrueCount) {
  const std::pair<const char*, const char*> rows[] = {
      {"size=(2**31, 2**31)", "4611686018427387904"},
      {"size=(2**32, 2**31)", "9223372036854775808"},
      // The product of the next ones wraps around to a small number.
      {"size=(2**32, 2**32)", "18446744073709551615"},
      {"size=(2**40, 2**40, 3)", "18446744073709551615"},
      {"[1, 2], (2**63 - 1, 2**63 - 1, 2)", "18446744073709551615"},
  };
  for (const auto& [call, count] : rows) {
    SCOPED_TRACE(call);
    FinalConstructorParser<TypeParam> parser;
    EXPECT_EQ(parser.processConstructorArgsAndKwargs(argumentsOf(call)), nullptr);
    EXPECT_TRUE(raised(PyExc_MemoryError,
                       std::string("unable to allocate memory for array with number of elements "
                                   "= ") +
                           count + "; type = " + typeWord<TypeParam>));
  }
}

// --- Flattening alone

TEST(Flattening, NullIsReported) {
  FinalConstructorParser<double> parser;
  EXPECT_FALSE(parser.flattenWithUnspecifiedDimensions(nullptr, true));
  EXPECT_TRUE(raised(PyExc_RuntimeError, "null data pointer."));
}

TEST(Flattening, LogicalElementsAcceptFloatsOnlyIfAllowed) {
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

TEST(Flattening, AppendsToEarlierElements) {
  FinalConstructorParser<std::int16_t> parser;
  for (const char* expression : {"[[1, 2], [3, 4]]", "[[5, 6], [7, 8]]"}) {
    ASSERT_TRUE(parser.flattenWithUnspecifiedDimensions(evaluate(expression).get(), true));
    EXPECT_EQ(numbersOf(parser.shape().getDimensions()), (Numbers{2, 2}));
  }
  EXPECT_EQ(parser.getNumberOfFlattenedElements(), 8);
  const auto elements = parser.getFilledBuffer();
  EXPECT_EQ(std::vector<int>(elements.get(), elements.get() + 8),
            (std::vector<int>{1, 2, 3, 4, 5, 6, 7, 8}));
  EXPECT_EQ(parser.getNumberOfFlattenedElements(), 8) << "the number does not change";
}

TEST(Flattening, ScalarsAreOneByOne) {
  FinalConstructorParser<double> parser;
  ASSERT_TRUE(parser.flattenWithUnspecifiedDimensions(evaluate("2.5").get(), true));
  EXPECT_EQ(numbersOf(parser.shape().getDimensions()), (Numbers{1, 1}));
  EXPECT_EQ(parser.getFilledBuffer()[0], 2.5);
}

}  // namespace
