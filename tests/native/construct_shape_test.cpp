// The dimensions of one construction: reading `size`, the walk through nested sequences, agreement.
#include "construct/construction_shape.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "module/support.hpp"
#include "python_testing.hpp"

namespace {

using namespace python_testing;

constexpr const char* raisingLength =
    "type('Raises', (), {'__len__': lambda s: {}['len'], '__getitem__': lambda s, i: i})()";
constexpr const char* raisingItem =
    "type('Raises', (), {'__len__': lambda s: 2, '__getitem__': lambda s, i: {}['item']})()";

// --- Lengths of sequences

constexpr const char* uneven = "elements of array are of different lengths or types.";

std::optional<std::int64_t> lengthOf(const PyRef& value) {
  SignalWatch signals;
  return getLengthOfPySequence(value.get(), signals);
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
    {"[[[1]], [[2, 3]]]", 2},  // items of items are not compared
    {"['ab', [1, 2]]", 2},
    {"[1, [2]]", std::nullopt},
    {"[[1], 2]", std::nullopt},
    {"[[], 2]", std::nullopt},
    {"[1, []]", std::nullopt},
    {"[[1], [2, 3]]", std::nullopt},
    {"[[1, 2], [3, 4], [5]]", std::nullopt},
    {"[1, 2, 3, 'x']", std::nullopt},
};

TEST(LengthOfASequence, NeedsItemsThatAgree) {
  for (const LengthRow& row : lengthRows) {
    SCOPED_TRACE(row.expression);
    EXPECT_EQ(lengthOf(evaluate(row.expression)), row.expected);
    EXPECT_TRUE(row.expected ? raisedNothing() : raised(PyExc_ValueError, uneven));
  }
}

TEST(LengthOfASequence, TheRefusalReplacesAnErrorThatWasPending) {
  for (const LengthRow& row : lengthRows) {
    SCOPED_TRACE(row.expression);
    const PyRef value = evaluate(row.expression);
    setError(PyExc_KeyError, "earlier");
    EXPECT_EQ(lengthOf(value), row.expected);
    EXPECT_TRUE(row.expected ? raised(PyExc_KeyError, "'earlier'")
                             : raised(PyExc_ValueError, uneven));
  }
}

TEST(LengthOfASequence, ErrorsOfTheSequence) {
  EXPECT_EQ(lengthOf(evaluate(raisingLength)), std::nullopt);
  EXPECT_TRUE(raised(PyExc_KeyError, "'len'"));
  EXPECT_EQ(lengthOf(evaluate(raisingItem)), std::nullopt);
  EXPECT_TRUE(raised(PyExc_RuntimeError, "null data pointer."));
  for (const char* list : {"[x, [1]]", "[[1], x]"}) {
    SCOPED_TRACE(list);
    const PyRef child = evaluate(raisingLength);
    EXPECT_EQ(lengthOf(evaluate(list, {{"x", child}})), std::nullopt);
    EXPECT_TRUE(raised(PyExc_KeyError, "'len'"));
  }
}

// --- size

TEST(SizeArgument, IsNormalised) {
  const std::pair<const char*, Numbers> rows[] = {
      {"(2, 3)", {2, 3}},       {"[2, 3]", {2, 3}},    {"range(2, 5)", {2, 3, 4}},
      {"(3,)", {1, 3}},         {"(0,)", {1, 0}},      {"(1,)", {1, 1}},
      {"(3, 1, 1)", {3, 1}},    {"(1, 1, 1)", {1, 1}}, {"(2, 1, 3, 1)", {2, 1, 3}},
      {"(True, False)", {1, 0}}};
  for (const auto& [expression, expected] : rows) {
    SCOPED_TRACE(expression);
    ConstructionShape shape;
    EXPECT_TRUE(shape.processSizeKwarg(evaluate(expression).get()));
    EXPECT_EQ(numbersOf(shape.getSpecifiedDimensions()), expected);
    EXPECT_EQ(numbersOf(shape.getDimensions()), expected);
    EXPECT_TRUE(shape.getCalculatedDimensions().empty());
    EXPECT_TRUE(raisedNothing());
  }
}

TEST(SizeArgument, IsRefusedUnlessItHoldsNonnegativeInts) {
  struct Row {
    const char* expression;
    PyObject* exceptionClass;
    const char* message;
  };
  constexpr const char* negative =
      "size cannot contain negative dimensions. Use nonnegative integers for dimensions.";
  const Row rows[] = {
      {"5", PyExc_TypeError, "value of 'size' must be a sequence."},
      {"{2: 3}", PyExc_TypeError, "value of 'size' must be a sequence."},
      {"()", PyExc_ValueError, "sequence passed to 'size' must not be empty."},
      {"(2, 3.0)", PyExc_TypeError, "dimensions must be nonnegative integers."},
      {"'23'", PyExc_TypeError, "dimensions must be nonnegative integers."},
      {"(2, None)", PyExc_TypeError, "dimensions must be nonnegative integers."},
      {"(2, -1)", PyExc_ValueError, negative},
      // Deliberate: an int beyond 64 bits has the same message.
      {"(2, 2**63)", PyExc_ValueError, negative},
      {"(-2**70, 2)", PyExc_ValueError, negative},
      {raisingLength, PyExc_KeyError, "'len'"},
      {raisingItem, PyExc_RuntimeError,
       "Item 0 could not be retrieved from the value associated with the 'size' keyword."},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.expression);
    ConstructionShape shape;
    EXPECT_FALSE(shape.processSizeKwarg(evaluate(row.expression).get()));
    EXPECT_TRUE(raised(row.exceptionClass, row.message));
    EXPECT_TRUE(shape.getSpecifiedDimensions().empty());
  }
}

// --- The walk through nested sequences

// "(" and a digit enter a level of that length, ")" leaves it, "." is a leaf, "<" forgets a level.
// False at the first step that fails.
bool walk(ConstructionShape& shape, const std::string& steps) {
  for (std::size_t i = 0; i < steps.size(); ++i) {
    switch (steps[i]) {
      case '(':
        shape.enterLevel(steps[++i] - '0');
        break;
      case ')':
        if (!shape.leaveLevel()) return false;
        break;
      case '<':
        shape.forgetLevel();
        break;
      default:
        if (!shape.enterLeaf()) return false;
    }
  }
  return true;
}

struct WalkRow {
  const char* steps;
  std::optional<Numbers> expected;  // empty: not rectangular
};

TEST(Walk, FindsTheDimensions) {
  const WalkRow rows[] = {
      {".", {{1, 1}}},
      {"(3...)", {{3}}},
      {"(2(3...)(3...))", {{2, 3}}},
      {"(1(2(1.)(1.)))", {{1, 2, 1}}},
      {"(0)", {{0}}},
      {"(2(0)(0))", {{2, 0}}},
      {"(1.)(1.)", {{1}}},
      // A level that was tried and forgotten is entered again.
      {"(3<(3...)", {{3}}},
      {"(2(2<(2..)(2..))", {{2, 2}}},
      // An empty level leaves its length open; the number of elements shows the fault.
      {"(2(0)(2..))", {{2, 2}}},
      {"(2(2..)(0))", std::nullopt},
      {"(2(2..)(3...))", std::nullopt},
      {"(2(1.).", std::nullopt},
      {"(2.(1.", std::nullopt},
  };
  for (const WalkRow& row : rows) {
    SCOPED_TRACE(row.steps);
    ConstructionShape shape;
    EXPECT_EQ(walk(shape, row.steps), row.expected.has_value());
    if (row.expected) {
      EXPECT_EQ(numbersOf(shape.getCalculatedDimensions()), *row.expected);
      EXPECT_TRUE(raisedNothing());
    } else {
      EXPECT_TRUE(raised(PyExc_ValueError, "arrays must be rectangular."));
    }
  }
}

TEST(Walk, KnowsTheNumberOfElementsAtTheFirstLeaf) {
  const std::pair<const char*, std::uint64_t> rows[] = {
      {".", 1}, {"(3.", 3}, {"(2(3.", 6}, {"(2(3(4.", 24}, {"(2(3<(4.", 8}};
  for (const auto& [steps, expected] : rows) {
    SCOPED_TRACE(steps);
    ConstructionShape shape;
    ASSERT_TRUE(walk(shape, steps));
    EXPECT_EQ(shape.numberOfElementsByLengths(), expected);
  }
}

TEST(VectorLength, IsOneByNUnlessThereIsASize) {
  ConstructionShape alone;
  alone.takeLengthOfVector(3);
  EXPECT_EQ(numbersOf(alone.getCalculatedDimensions()), (Numbers{1, 3}));
  ConstructionShape sized;
  sized.processSize(Numbers{3, 1});
  sized.takeLengthOfVector(3);
  EXPECT_EQ(numbersOf(sized.getCalculatedDimensions()), (Numbers{3}));
  EXPECT_EQ(numbersOf(sized.getDimensions()), (Numbers{3, 1}));
}

// --- Agreement

// Empty dimensions stand for none.
ConstructionShape makeShape(const Numbers& specified, const Numbers& calculated) {
  ConstructionShape shape;
  if (!specified.empty()) shape.processSize(specified);
  for (const std::int64_t length : calculated) shape.enterLevel(length);
  for (std::size_t i = 0; i < calculated.size(); ++i) EXPECT_TRUE(shape.leaveLevel());
  return shape;
}

struct AgreementRow {
  Numbers specified;
  Numbers calculated;
  PyObject** exceptionClass;  // null: they agree
  bool isInStorageOrder;
};

TEST(Agreement, IsOfShapesOrOfAFlatListWithItsSize) {
  const AgreementRow rows[] = {
      {{}, {2, 3}, nullptr, false},
      {{2, 3}, {2, 3}, nullptr, false},
      {{2, 3}, {6}, nullptr, true},
      {{6, 1}, {6}, nullptr, true},
      {{1, 1}, {1}, nullptr, false},
      {{0, 5}, {0}, nullptr, false},
      {{0, 5}, {3, 0}, nullptr, false},
      {{2, 3}, {3, 2}, &MCPyError::sizeErr, false},
      {{1, 6}, {2, 3}, &MCPyError::sizeErr, false},
      {{1, 1, 1}, {1}, &MCPyError::sizeErr, false},
      {{2, 3}, {5}, &MCPyError::shapeErr, false},
      {{2, 2}, {2, 3}, &MCPyError::shapeErr, false},
      {{0, 5}, {1}, &MCPyError::shapeErr, false},
      // The product of `size` wraps around to 0. The exact product is checked later.
      {{two32, two32}, {0}, nullptr, false},
  };
  for (const AgreementRow& row : rows) {
    SCOPED_TRACE(testing::PrintToString(row.specified) + testing::PrintToString(row.calculated));
    ConstructionShape shape = makeShape(row.specified, row.calculated);
    EXPECT_EQ(shape.specifiedAndCalculatedDimensionsMatch(), row.exceptionClass == nullptr);
    EXPECT_EQ(shape.isBufferInStorageOrder(), row.isInStorageOrder);
    if (row.exceptionClass == nullptr) {
      EXPECT_TRUE(raisedNothing());
    } else {
      const PythonError error = takeError();
      EXPECT_EQ(error.type.get(), *row.exceptionClass);
    }
  }
}

TEST(Agreement, FailureNamesBothShapes) {
  ConstructionShape shape = makeShape({2, 3}, {3, 2});
  EXPECT_FALSE(shape.specifiedAndCalculatedDimensionsMatch());
  EXPECT_TRUE(raised(MCPyError::sizeErr,
                     "dimensions of initializer (3, 2) do not match dimensions specified by "
                     "'size' (2, 3)."));
}

TEST(SingleDimension, BecomesTwoOrMustFillTheSize) {
  struct Row {
    Numbers specified;
    Numbers calculated;
    std::int64_t flattened;
    std::optional<Numbers> expected;  // the calculated dimensions; empty: refused
  };
  const Row rows[] = {{{}, {3}, 3, {{1, 3}}},        {{}, {0}, 0, {{0, 0}}},
                      {{}, {2, 3}, 6, {{2, 3}}},     {{2, 3}, {6}, 6, {{6}}},
                      {{0, 5}, {0}, 0, {{0}}},       {{2, 3}, {6}, 5, std::nullopt},
                      {{2, 3}, {5}, 5, std::nullopt}};
  for (const Row& row : rows) {
    SCOPED_TRACE(testing::PrintToString(row.specified) + testing::PrintToString(row.calculated));
    ConstructionShape shape = makeShape(row.specified, row.calculated);
    EXPECT_EQ(shape.handleSingleSingletonDimensionEdgeCase(row.flattened),
              row.expected.has_value());
    if (row.expected) {
      EXPECT_EQ(numbersOf(shape.getCalculatedDimensions()), *row.expected);
      EXPECT_TRUE(raisedNothing());
    } else {
      EXPECT_TRUE(raised(MCPyError::shapeErr,
                         "dimensions of initializer (" + std::to_string(row.calculated.front()) +
                             ") do not match dimensions specified by 'size' (2, 3)."));
    }
  }
}

TEST(CalculatedDimensions, AreBroughtIntoTheFormOfArrays) {
  ConstructionShape shape = makeShape({}, {2, 3, 1, 1});
  shape.dropTrailingOnes();
  EXPECT_EQ(numbersOf(shape.getCalculatedDimensions()), (Numbers{2, 3}));
  ConstructionShape flat = makeShape({}, {5});
  flat.makeTwoDimensional();
  EXPECT_EQ(numbersOf(flat.getCalculatedDimensions()), (Numbers{1, 5}));
}

// --- The number of elements

TEST(NumberOfElements, WithoutDimensionsIsOneAndDoesNotChange) {
  ConstructionShape shape;
  EXPECT_EQ(shape.calculateNumberOfElements(), 1);
  EXPECT_EQ(shape.calculateNumberOfElements(), 1);
  ASSERT_TRUE(walk(shape, "(3...)"));
  EXPECT_EQ(numbersOf(shape.getDimensions()), (Numbers{3}));
  EXPECT_EQ(shape.calculateNumberOfElements(), 1);
}

TEST(NumberOfElements, FirstPositiveProductIsKept) {
  ConstructionShape shape;
  ASSERT_TRUE(walk(shape, "(0)"));
  EXPECT_EQ(shape.calculateNumberOfElements(), 0);
  ASSERT_TRUE(walk(shape, "(3...)"));
  EXPECT_EQ(shape.calculateNumberOfElements(), 3);
  ASSERT_FALSE(walk(shape, "(1(2.."));
  EXPECT_TRUE(raised(PyExc_ValueError, "arrays must be rectangular."));
  EXPECT_NE(numbersOf(shape.getDimensions()), (Numbers{3}));
  EXPECT_EQ(shape.calculateNumberOfElements(), 3);
}

TEST(NumberOfElements, IsThatOfTheSizeIfThereIsOne) {
  ConstructionShape shape = makeShape({2, 3}, {6, 2});
  EXPECT_EQ(shape.calculateNumberOfElements(), 6);
  ConstructionShape empty = makeShape({0, 3}, {});
  EXPECT_EQ(empty.calculateNumberOfElements(), 0);
}

}  // namespace
