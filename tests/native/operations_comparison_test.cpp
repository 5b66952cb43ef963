// Comparison: two walks side by side, and the errors in them.
#include "operations/comparison.hpp"

#include <gtest/gtest.h>

#include <complex>
#include <cstdint>
#include <iostream>
#include <limits>
#include <optional>
#include <sstream>
#include <string>
#include <utility>

#include "module/support.hpp"
#include "module/type_objects.hpp"
#include "operations/handlers.hpp"
#include "python_testing.hpp"
#include "recursion_limit.hpp"
#include "storage_testing.hpp"

namespace {

using namespace python_testing;

constexpr const char* outputOfFailure = "PyObject_RichCompareBool() generated an error.\n";

// The result, which is the same in both directions.
std::optional<bool> areEqual(const MCppPyArray& x, const MCppPyArray& y) {
  const std::optional<bool> result = isEqualTo(x, y);
  EXPECT_EQ(isEqualTo(y, x), result);
  EXPECT_TRUE(raisedNothing());
  return result;
}

// The results of the handler for == and !=.
std::string verdict(const PyRef& x, const PyRef& y) {
  const PyRef equal = PyRef::steal(MCPyArray_RichCompare<double>(x.get(), y.get(), Py_EQ));
  const PyRef unequal = PyRef::steal(MCPyArray_RichCompare<double>(x.get(), y.get(), Py_NE));
  return reprOf(equal) + " " + reprOf(unequal);
}

// --- Equality

struct PairRow {
  Dimensions dimensions;
  const char* part;
  Dimensions otherDimensions;
  const char* otherPart;
  bool areEqual;
};
const PairRow pairRows[] = {
    {{2, 3}, "a", {2, 3}, "a", true},
    {{2, 3, 2}, "a", {2, 3, 2}, "a", true},
    {{2, 3}, "a[::-1]", {2, 3}, "a", false},
    {{2, 3}, "a[::-1][::-1]", {2, 3}, "a", true},
    {{1, 4}, "a", {2, 2}, "a", false},
    {{1, 2}, "a", {2, 1}, "a", false},
    {{2, 2}, "a", {2, 3}, "a", false},
    {{2, 2}, "a", {3, 2}, "a", false},
    {{2, 3}, "a[1:]", {2, 3}, "a", false},
    // Numbers on one side and rows on the other.
    {{1, 3}, "a[0]", {1, 3}, "a", false},
    {{1, 3}, "a[0]", {3}, "a", true},
    {{1, 3}, "a[0][0:2]", {3}, "a", false},
    {{3, 1}, "a", {3}, "a", false},
    // Without elements, shapes count only as far as they are walked.
    {{0, 0}, "a", {0, 3}, "a", true},
    {{0, 0}, "a", {2, 3}, "a[1:1]", true},
    {{0, 3}, "a", {2, 3}, "a[1][0:0]", true},
    {{1, 0}, "a", {0, 0}, "a", false},
    {{1, 0}, "a", {1, 0}, "a", true},
    {{1, 0}, "a", {1, 0, 4}, "a", true},
    {{}, "a", {0, 1}, "a", true},
    // The walks end at the numbers of the first, which are beside empty rows.
    {{1, 3}, "a[0]", {3, 0}, "a", false},
    {{3}, "a", {3, 0, 2}, "a", false},
    {{2, 3}, "a", {2, 3, 0}, "a", false},
    {{2, 3, 0}, "a", {2, 3, 0}, "a", true},
    {{2, 3, 0}, "a", {2, 0}, "a", false},
};

TEST(Comparison, ComparesTheItemsOfTwoWalks) {
  for (const PairRow& row : pairRows) {
    SCOPED_TRACE(testing::PrintToString(row.dimensions) + row.part + " and " +
                 testing::PrintToString(row.otherDimensions) + row.otherPart);
    const PyRef arrays[] = {makeRecord(makeArray<double>(row.dimensions)),
                            makeRecord(makeArray<double>(row.otherDimensions))};
    const PyRef x = evaluate(row.part, {{"a", arrays[0]}});
    const PyRef y = evaluate(row.otherPart, {{"a", arrays[1]}});
    EXPECT_EQ(areEqual(viewOf(x), viewOf(y)), row.areEqual);
    EXPECT_EQ(areEqual(viewOf(x), viewOf(x)), true);
    EXPECT_EQ(verdict(x, y), row.areEqual ? "True False" : "False True");
    MCppPyArray weak(viewOf(x), true);
    EXPECT_EQ(areEqual(weak, viewOf(y)), row.areEqual);
  }
}

TYPED_SUITE(ComparisonOf, WritableTypes, TypeWords);

TYPED_CASE(ComparisonOf, FindsEachElementThatDiffers) {
  const ViewPointer x = makeArray<TypeParam>({2, 3});
  const ViewPointer y = makeArray<TypeParam>({2, 3});
  EXPECT_EQ(areEqual(*x, *y), true);
  for (std::size_t place = 0; place < 6; ++place) {
    const Position position = {static_cast<std::int64_t>(place % 2),
                               static_cast<std::int64_t>(place / 2)};
    TypeParam other = sample<TypeParam>(place + 25);
    if constexpr (std::is_same_v<TypeParam, bool>) other = !sample<bool>(place);
    ASSERT_TRUE(setElement<TypeParam>(*y, position, other));
    EXPECT_EQ(areEqual(*x, *y), false);
    ASSERT_TRUE(setElement<TypeParam>(*y, position, sample<TypeParam>(place)));
  }
  EXPECT_EQ(areEqual(*x, *y), true);
}

TYPED_CASE(ComparisonOf, DifferentClassesIsFalseWhateverTheElementsAre) {
  const ViewPointer x = makeArray<TypeParam>({0, 0});
  for (std::size_t i = 0; i < numberOfArrayClasses; ++i) {
    const auto arrayClass = static_cast<SupportedArrayEnum>(i);
    MCppPyArray other(sampleArray<TypeParam>({0, 0}), arrayClass, false, true, Contents::Own);
    EXPECT_EQ(areEqual(*x, other), arrayClass == classOfElement<TypeParam>());
  }
}

TEST(Comparison, OfComplexAndRealComparesTheNumbers) {
  const PyRef real = makeRecord(makeArray<double>({1, 2}));
  const PyRef complex = makeRecord(makeArray<std::complex<double>>({1, 2}));
  EXPECT_EQ(areEqual(viewOf(real), viewOf(complex)), false);
  for (const std::int64_t i : {0, 1}) {
    ASSERT_TRUE(setElement<std::complex<double>>(viewOf(complex), {0, i},
                                                 {static_cast<double>(i + 1), 0.0}));
  }
  EXPECT_EQ(areEqual(viewOf(real), viewOf(complex)), true);
  EXPECT_EQ(verdict(complex, real), "True False");
}

TEST(Comparison, OfNotANumberIsFalseForTheArrayItself) {
  const PyRef array = makeRecord(makeArray<double>({1, 2}));
  ASSERT_TRUE(setElement<double>(viewOf(array), {0, 1}, std::numeric_limits<double>::quiet_NaN()));
  EXPECT_EQ(areEqual(viewOf(array), viewOf(array)), false);
  EXPECT_EQ(verdict(array, array), "False True");
}

// A view of an array of samples, with indices and slices that no subscript makes.
ViewPointer viewOfSamples(const Dimensions& dimensions, const Position& position,
                          const std::optional<SliceIndexItem>& finalSlice = {}) {
  const ViewPointer array = makeArray<double>(dimensions);
  ViewPointer view = std::make_unique<MCppPyArray>(*array, position, false);
  if (finalSlice) view->appendIndexItem(*finalSlice);
  return view;
}

// The walks count numbers below 0 from the end, so the numbers of a slice do not tell how many rows
// a walk yields.
TEST(Comparison, WalksSlicesThatNoSubscriptMakes) {
  const struct {
    const char* label;
    SliceIndexItem slice;
    Dimensions equal;
    Dimensions unequal;
  } rows[] = {
      {"not normalised", {0, 2, 1, 2, false}, {2, 0}, {1, 0}},
      {"length too small", slice(0, 2, 1, 1), {2, 0}, {1, 0}},
      {"length too large", slice(0, 2, 1, 3), {2, 0}, {3, 0}},
      {"start below 0", slice(-1, 2, 2, 2), {0, 0}, {2, 0}},
      {"end below 0", slice(1, -2, -2, 2), {2, 0}, {1, 0}},
      {"nothing from below 0", slice(-1, -1, 1, 0), {0, 0}, {1, 0}},
      {"stop below 0", slice(0, -1, 1, 0), {1, 0}, {0, 0}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.label);
    const ViewPointer view = viewOfSamples({4, 0}, {}, row.slice);
    EXPECT_EQ(areEqual(*view, *makeArray<double>(row.equal)), true);
    EXPECT_EQ(areEqual(*view, *makeArray<double>(row.unequal)), false);
    EXPECT_EQ(areEqual(*view, *makeArray<double>({2, 2})), false);
    EXPECT_EQ(areEqual(*view, *view), true);
  }
}

// A walk over numbers whose slice does not tell their count, and one over rows.
TEST(Comparison, OfWalksOverNumbersAndOverRowsIsFalse) {
  const ViewPointer numbers = viewOfSamples({2, 3}, {0}, slice(0, 3, 1, 4));
  const ViewPointer rows = viewOfSamples({2, 3}, {}, slice(0, 2, 1, 3));
  EXPECT_EQ(areEqual(*numbers, *rows), false);
  EXPECT_EQ(areEqual(*numbers, *viewOfSamples({1, 5}, {0}, slice(0, 3, 1, 4))), false);
  EXPECT_EQ(areEqual(*numbers, *numbers), true);
  EXPECT_EQ(areEqual(*rows, *rows), true);
}

// --- Errors in the walks

// Deliberate: an item that cannot be read ends the walk, and its error is cleared.
TEST(ComparisonFailure, ElementOutOfReachIsTheEnd) {
  const ViewPointer array = makeArray<double>({2, 3});
  MCppPyArray oneInReach(*array, {5}, false);  // its first element is the array's last
  MCppPyArray last(*array, {1}, false);
  last.appendIndexItem(slice(2, 3, 1, 1));
  MCppPyArray lastTwo(*array, {1}, false);
  lastTwo.appendIndexItem(slice(2, 0, -1, 2));
  EXPECT_EQ(areEqual(oneInReach, last), true);
  EXPECT_EQ(areEqual(oneInReach, lastTwo), false);
}

TEST(ComparisonFailure, RowsThatCannotBeMadeAreTheEnd) {
  // With elements outside the storage, the arrays are not compared in memory.
  const ViewPointer planes = makeArray<double>({2, 3, 4});
  const auto x = std::make_unique<MCppPyArray>(*planes, Position{23}, false);
  const ViewPointer others = makeArray<double>({2, 5, 4});
  const auto y = std::make_unique<MCppPyArray>(*others, Position{39}, false);
  PyTypeObject* const type = std::exchange(TypeObjectPointers[0], nullptr);
  const std::optional<bool> result = isEqualTo(*x, *y);
  TypeObjectPointers[0] = type;
  EXPECT_TRUE(raisedNothing());
  EXPECT_EQ(result, true);
}

TEST(ComparisonFailure, PendingErrorStays) {
  const ViewPointer arrays[] = {makeArray<double>({2, 3}), makeArray<double>({0, 3})};
  for (const ViewPointer& array : arrays) {
    setError(PyExc_KeyError, "pending");
    EXPECT_EQ(isEqualTo(*array, *array), std::nullopt);
    EXPECT_TRUE(raised(PyExc_KeyError, "'pending'"));
  }
  const ViewPointer single = makeArray<float>({2, 3});
  setError(PyExc_KeyError, "pending");
  EXPECT_EQ(isEqualTo(*arrays[0], *single), false) << "classes are compared first";
  EXPECT_TRUE(raised(PyExc_KeyError, "'pending'"));
}

TEST(ComparisonFailure, StorageThatHasGone) {
  const PyRef array = makeRecord(makeArray<double>({2, 3}));
  const PyRef gone[] = {makeRecord(makeExpiredView<double>({2, 3})),
                        makeRecord(makeViewWithoutStorage<double>({2, 3}))};
  for (const PyRef& other : gone) {
    for (const auto& [x, y] : {std::pair(&array, &other), {&other, &array}, {&other, &other}}) {
      EXPECT_EQ(isEqualTo(viewOf(*x), viewOf(*y)), std::nullopt);
      EXPECT_TRUE(raisedExpired());
      for (const int operation : {Py_EQ, Py_NE}) {
        EXPECT_EQ(MCPyArray_RichCompare<double>(x->get(), y->get(), operation), nullptr);
        EXPECT_TRUE(raisedExpired());
      }
    }
    const MCppPyArray single(sampleArray<float>({1, 1}), SupportedArrayEnum::Single, false, true,
                             Contents::Own);
    EXPECT_EQ(isEqualTo(viewOf(other), single), false) << "classes are compared first";
    EXPECT_TRUE(raisedNothing());
  }
}

// Captures the standard output while it lives.
class CapturedOutput {
 public:
  CapturedOutput() : m_before(std::cout.rdbuf(m_text.rdbuf())) {}
  CapturedOutput(const CapturedOutput&) = delete;
  CapturedOutput& operator=(const CapturedOutput&) = delete;
  ~CapturedOutput() { std::cout.rdbuf(m_before); }
  std::string text() const { return m_text.str(); }

 private:
  std::ostringstream m_text;
  std::streambuf* m_before;
};

struct RecursionRow {
  const char* part;
  int levels;
  std::optional<bool> expected;
  const char* output;
  bool hasError;
};

// The comparison of two numbers takes a level, like each comparison of arrays, so a limit on levels
// makes it fail.
TEST(ComparisonFailure, GoesUpOneLevelOnly) {
  const RecursionRow rows[] = {
      {"numbers", 0, std::nullopt, "", true},
      {"numbers", 1, std::nullopt, outputOfFailure, true},
      {"numbers", 2, true, "", false},
      {"rows", 0, std::nullopt, "", true},
      // Deliberate: an error in the rows makes the arrays unequal.
      {"rows", 1, false, "", true},
      {"rows", 3, true, "", false},
  };
  // Neither is compared in memory: one has a slice whose length is not the number of positions, the
  // other has elements outside the storage.
  const PyRef array = makeRecord(makeArray<double>({2, 3, 4}));
  const PyRef numbers =
      makeRecord(std::make_unique<MCppPyArray>(viewOf(array), Position{0, 0}, false));
  viewOf(numbers).appendIndexItem(slice(0, 3, 1, 4));
  const PyRef outside =
      makeRecord(std::make_unique<MCppPyArray>(viewOf(array), Position{23}, false));
  for (const RecursionRow& row : rows) {
    SCOPED_TRACE(row.part + std::string(" with levels: ") + std::to_string(row.levels));
    const PyRef& part = row.part == std::string("rows") ? outside : numbers;
    std::optional<bool> result;
    std::string output;
    {
      const RecursionLimit limit(row.levels);
      if (!limit.isSet()) GTEST_SKIP() << "this interpreter lets a million levels through";
      const CapturedOutput captured;
      result = isEqualTo(viewOf(part), viewOf(part));
      output = captured.text();
    }
    EXPECT_TRUE(row.hasError ? raisedOwn(PyExc_RecursionError) : raisedNothing());
    EXPECT_EQ(result, row.expected);
    EXPECT_EQ(output, row.output);
    for (const int operation : {Py_EQ, Py_NE}) {
      PyObject* answer = nullptr;
      {
        const RecursionLimit limit(row.levels);
        const CapturedOutput captured;
        answer = MCPyArray_RichCompare<double>(part.get(), part.get(), operation);
      }
      EXPECT_TRUE(row.hasError ? raisedOwn(PyExc_RecursionError) : raisedNothing());
      const PyRef owned = PyRef::steal(answer);
      EXPECT_EQ(reprOf(owned), row.hasError ? "null" : operation == Py_EQ ? "True" : "False");
    }
  }
}

// --- The handler

TEST(ComparisonHandler, RefusesToOrder) {
  const PyRef array = makeRecord(makeArray<double>({2, 3}));
  for (const PyRef& other : {PyRef::borrow(array.get()), evaluate("5"), evaluate("None")}) {
    for (const int operation : {Py_LT, Py_LE, Py_GT, Py_GE}) {
      EXPECT_EQ(MCPyArray_RichCompare<double>(array.get(), other.get(), operation), nullptr);
      EXPECT_TRUE(raised(PyExc_NotImplementedError, "inequality operators not supported."));
    }
  }
}

TEST(ComparisonHandler, OtherObjectsAreUnequal) {
  const PyRef array = makeRecord(makeArray<double>({1, 1}));
  for (const char* other : {"1.0", "[[1.0]]", "None", "'text'", "NotImplemented"}) {
    SCOPED_TRACE(other);
    EXPECT_EQ(verdict(array, evaluate(other)), "False True");
  }
}

TEST(ComparisonHandler, RecordsWithoutAViewAreReported) {
  const PyRef array = makeRecord(makeArray<double>({1, 1}));
  const PyRef record = PyRef::steal(allocMCPyArray(typeObjectOf(SupportedArrayEnum::Double)));
  const PyRef number = evaluate("5");
  const char* const message = "object not initialized.";
  for (const int operation : {Py_EQ, Py_NE, Py_LT}) {
    for (const PyRef* other : {&array, &record, &number}) {
      EXPECT_EQ(MCPyArray_RichCompare<double>(record.get(), other->get(), operation), nullptr);
      EXPECT_TRUE(raised(PyExc_RuntimeError, message));
    }
  }
  for (const int operation : {Py_EQ, Py_NE}) {
    EXPECT_EQ(MCPyArray_RichCompare<double>(array.get(), record.get(), operation), nullptr);
    EXPECT_TRUE(raised(PyExc_RuntimeError, message));
  }
}

}  // namespace
