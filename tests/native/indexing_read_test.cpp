// Reads: the address of an element, its Python number, and the handlers of subscripts.
#include "indexing/element_read.hpp"

#include <gtest/gtest.h>

#include <complex>
#include <cstdint>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "python_testing.hpp"

namespace {

using namespace python_testing;
// --- Addresses

TEST(ElementAddress, IsTheBaseAndTheStridesOfTheEntries) {
  const ViewPointer array = makeArray<double>({4, 5, 6});
  const std::byte* const base = array->wrapper()->buf();
  struct Row {
    Position position;
    std::int64_t offset;
  };
  const Row rows[] = {{{}, 0},          {{3}, 24},        {{0, 1, 0}, 32},
                      {{1, 2, 3}, 552}, {{3, 4, 5}, 952}, {{4, 0, 0}, 32}};
  for (const Row& row : rows) {
    EXPECT_EQ(getAddressOfElementFromNormalizedIntIndices(*array, row.position), base + row.offset);
    EXPECT_TRUE(raisedNothing());
  }
}

TEST(ElementAddress, IgnoresTheChain) {
  const ViewPointer array = makeArray<double>({4, 5, 6});
  for (const bool isWeak : {false, true}) {
    MCppPyArray view(*array, {3}, isWeak);
    view.appendIndexItem(slice(4, -1, -1, 5));
    EXPECT_EQ(getAddressOfElementFromNormalizedIntIndices(view, {2, 1}),
              array->wrapper()->buf() + 48);
  }
}

TEST(ElementAddress, OutsideTheMirrorIsNull) {
  const ViewPointer array = makeArray<double>({4, 5, 6});
  const Position positions[] = {{0, 0, 6},   {-1, 0, 0},      {0, 0, -1},
                                {120, 0, 0}, {largest, 0, 0}, {0, 0, 0, 0}};
  for (const Position& position : positions) {
    SCOPED_TRACE(testing::PrintToString(entriesOf(position)));
    EXPECT_EQ(getAddressOfElementFromNormalizedIntIndices(*array, position), nullptr);
    EXPECT_TRUE(raised(PyExc_RuntimeError, nullPointer));
  }
}

TEST(ElementAddress, StorageThatHasGoneIsReported) {
  const ViewPointer views[] = {makeExpiredView<double>({2, 3}),
                               makeViewWithoutStorage<double>({2, 3})};
  for (const ViewPointer& view : views) {
    EXPECT_EQ(getAddressOfElementFromNormalizedIntIndices(*view, {0, 0}), nullptr);
    EXPECT_TRUE(raisedExpired());
  }
}

// --- Elements of all types

// Values of a part and what Python prints for them: both ends of the range, and special values.
template <class P>
std::vector<std::pair<P, std::string>> partsAndTexts() {
  if constexpr (std::is_same_v<P, double>) {
    return {{0.1, "0.1"}, {-1e308, "-1e+308"}, {5e-324, "5e-324"}, {3.0, "3.0"}};
  } else if constexpr (std::is_same_v<P, float>) {
    return {{0.1F, "0.10000000149011612"},
            {-3.4028234663852886e38F, "-3.4028234663852886e+38"},
            {3.0F, "3.0"}};
  } else if constexpr (std::is_same_v<P, bool>) {
    return {{true, "True"}, {false, "False"}, {true, "True"}};
  } else {
    std::vector<std::pair<P, std::string>> rows;
    for (const P value :
         {std::numeric_limits<P>::min(), P{0}, P{1},
          static_cast<P>(std::numeric_limits<P>::max() - 1), std::numeric_limits<P>::max()}) {
      const std::string text = std::to_string(static_cast<std::int64_t>(value));
      rows.emplace_back(value, sizeof(P) == 8 && value > P{1} && std::is_unsigned_v<P>
                                   ? std::to_string(static_cast<std::uint64_t>(value))
                                   : text);
    }
    return rows;
  }
}

template <class T>
std::vector<std::pair<T, std::string>> elementsAndTexts() {
  if constexpr (isComplexElement<T>) {
    const auto parts = partsAndTexts<Part<T>>();
    std::vector<std::pair<T, std::string>> rows;
    for (std::size_t i = 0; i < parts.size(); ++i) {
      const auto& [imaginary, text] = parts[parts.size() - 1 - i];
      const PyRef number = evaluate("complex(" + parts[i].second + ", " + text + ")");
      rows.emplace_back(T(parts[i].first, imaginary), reprOf(number));
    }
    return rows;
  } else {
    return partsAndTexts<T>();
  }
}

template <class T>
PyTypeObject* typeOfNumbers() {
  if constexpr (isComplexElement<T>) return &PyComplex_Type;
  if constexpr (std::is_same_v<T, bool>) return &PyBool_Type;
  if constexpr (std::is_floating_point_v<T>) return &PyFloat_Type;
  return &PyLong_Type;
}

// A column of the elements.
template <class T>
ViewPointer columnOf(const std::vector<std::pair<T, std::string>>& rows) {
  auto buffer = velmardata_testing::newBuffer(foundation::velmardata::arrayTypeOf<T>, rows.size());
  for (std::size_t i = 0; i < rows.size(); ++i) {
    static_cast<T*>(buffer.get())[i] = rows[i].first;
  }
  return std::make_unique<MCppPyArray>(foundation::velmardata::ArrayFactory().createArrayFromBuffer(
                                           {rows.size(), 1}, foundation::velmardata::arrayTypeOf<T>,
                                           std::move(buffer), velmardata_testing::storageLayout),
                                       classOfElement<T>(), isComplexElement<T>, true,
                                       Contents::Own);
}

TYPED_SUITE(ReadElement, AllTypes, TypeWords);

TYPED_CASE(ReadElement, GivesTheNumberByPositionAndByOffset) {
  const auto rows = elementsAndTexts<TypeParam>();
  const ViewPointer array = columnOf(rows);
  const MCppPyArray weak(*array, true);
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const auto index = static_cast<std::int64_t>(i);
    SCOPED_TRACE(rows[i].second);
    const Position position = {index, 0};
    const PyRef numbers[] = {
        PyRef::steal(getNumericPyObjectFromNormalizedIntIndices<TypeParam>(*array, position)),
        PyRef::steal(getNumericPyObjectFromNormalizedIntIndices<TypeParam>(weak, position)),
        PyRef::steal(array->wrapper()->getElementAsPyObjectFromElementOffset(index)),
    };
    for (const PyRef& number : numbers) {
      ASSERT_TRUE(number);
      EXPECT_EQ(reprOf(number), rows[i].second);
      EXPECT_EQ(Py_TYPE(number.get()), typeOfNumbers<TypeParam>());
    }
  }
  EXPECT_TRUE(raisedNothing());
}

TYPED_CASE(ReadElement, OutsideTheMirrorIsReported) {
  const ViewPointer array = makeArray<TypeParam>({2, 3});
  for (const Position& position : {Position{2, 2}, Position{-1, 0}, Position{0, 0, 0}}) {
    EXPECT_EQ(getNumericPyObjectFromNormalizedIntIndices<TypeParam>(*array, position), nullptr);
    EXPECT_TRUE(raised(PyExc_RuntimeError, nullPointer));
  }
}

TYPED_CASE(ReadElement, OffsetOutOfRangeGivesNothingAndNoError) {
  const ViewPointer array = makeArray<TypeParam>({2, 3});
  for (const std::int64_t offset :
       {std::int64_t{-1}, std::int64_t{6}, std::int64_t{7},
        std::numeric_limits<std::int64_t>::max(), std::numeric_limits<std::int64_t>::min()}) {
    SCOPED_TRACE(offset);
    EXPECT_EQ(array->wrapper()->getElementAsPyObjectFromElementOffset(offset), nullptr);
  }
  const ViewPointer empty = makeArray<TypeParam>({0, 3});
  EXPECT_EQ(empty->wrapper()->getElementAsPyObjectFromElementOffset(0), nullptr);
  EXPECT_TRUE(raisedNothing());
}

TYPED_CASE(ReadElement, StorageThatHasGoneIsReported) {
  const ViewPointer views[] = {makeExpiredView<TypeParam>({2, 3}),
                               makeViewWithoutStorage<TypeParam>({2, 3})};
  for (const ViewPointer& view : views) {
    EXPECT_EQ(getNumericPyObjectFromNormalizedIntIndices<TypeParam>(*view, {0, 0}), nullptr);
    EXPECT_TRUE(raisedExpired());
  }
}

TEST(ReadAnyElement, NotANumberIsRead) {
  const ViewPointer array = columnOf<std::complex<float>>(
      {{{std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity()}, ""}});
  const PyRef number =
      PyRef::steal(getNumericPyObjectFromNormalizedIntIndices<std::complex<float>>(*array, {0, 0}));
  EXPECT_EQ(reprOf(number), "(nan+infj)");
}

TEST(ReadAnyElement, OffsetCountsInStorageOrder) {
  const ViewPointer array = makeArray<double>({2, 3});
  for (const std::int64_t offset : {std::int64_t{0}, std::int64_t{1}, std::int64_t{5}}) {
    const PyRef number =
        PyRef::steal(array->wrapper()->getElementAsPyObjectFromElementOffset(offset));
    EXPECT_EQ(PyFloat_AsDouble(number.get()), static_cast<double>(offset + 1));
  }
}

TEST(ReadAnyElement, TypeIsThatOfTheTemplateAndNotOfTheArray) {
  const ViewPointer array = columnOf<std::int16_t>({{std::int16_t{-1}, ""}});
  const PyRef number =
      PyRef::steal(getNumericPyObjectFromNormalizedIntIndices<std::uint16_t>(*array, {0, 0}));
  EXPECT_EQ(reprOf(number), "65535");
}

// --- Handlers

TYPED_SUITE(Subscript, ClassTypes, TypeWords);

struct ViewRow {
  const char* expression;
  const char* lengths;  // of the result and of its first item
};
constexpr ViewRow viewRows[] = {
    {"a[0]", "(3, 2)"},       {"a[-1]", "(3, 2)"},
    {"a[0:1]", "(1, 3)"},     {"a[True]", "(3, 2)"},
    {"a[::-1]", "(4, 3)"},    {"a[0:0]", "(0, None)"},
    {"a[1:3][0]", "(3, 2)"},  {"a[0][1:2]", "(1, 2)"},
    {"a[0][1]", "(2, None)"}, {"a[1][2][0:1]", "(1, None)"},
};

TYPED_CASE(Subscript, MakesViewsOfTheClass) {
  const PyRef array = makeRecord(makeArray<TypeParam>({4, 3, 2}));
  for (const ViewRow& row : viewRows) {
    SCOPED_TRACE(row.expression);
    const PyRef view = evaluate(row.expression, {{"a", array}});
    ASSERT_TRUE(MCPyArray_Check(view.get()));
    EXPECT_EQ(Py_TYPE(view.get()), Py_TYPE(array.get()));
    EXPECT_FALSE(viewOf(view).isComplex());
    EXPECT_EQ(viewOf(view).borrowWrapper(), viewOf(array).borrowWrapper());
    const PyRef lengths =
        evaluate("(len(v), len(v[0]) if len(v) and hasattr(type(v[0]), '__len__') else None)",
                 {{"v", view}});
    EXPECT_EQ(reprOf(lengths), row.lengths);
  }
}

TYPED_CASE(Subscript, ThatFixesTheLastDimensionReadsTheElement) {
  const PyRef array = makeRecord(makeArray<TypeParam>({4, 3, 2}));
  for (const char* indices : {"0, 0, 0", "3, 2, 1", "1, 2, 0", "2, 0, 1"}) {
    SCOPED_TRACE(indices);
    const PyRef number =
        evaluate(std::string("(lambda i, j, k: a[i][j][k])(") + indices + ")", {{"a", array}});
    const PyRef place =
        evaluate(std::string("(lambda i, j, k: i + 4 * j + 12 * k)(") + indices + ")");
    const PyRef expected =
        PyRef::steal(viewOf(array).wrapper()->getElementAsPyObjectFromElementOffset(
            PyLong_AsSsize_t(place.get())));
    EXPECT_EQ(reprOf(number), reprOf(expected));
    EXPECT_EQ(Py_TYPE(number.get()), typeOfNumbers<TypeParam>());
  }
}

TYPED_CASE(Subscript, OfAComplexArrayReadsComplexNumbers) {
  if constexpr (!std::is_same_v<TypeParam, bool>) {
    const PyRef array = makeRecord(makeArray<std::complex<TypeParam>>({2, 3}));
    EXPECT_EQ(reprOf(evaluate("[a[0][0], a[1][2], a[::-1][0][-1]]", {{"a", array}})),
              "[(1+61j), (6+66j), (6+66j)]");
    EXPECT_TRUE(viewOf(evaluate("a[0]", {{"a", array}})).isComplex());
    EXPECT_TRUE(viewOf(evaluate("a[0:1]", {{"a", array}})).isComplex());
  }
}

struct RefusedSubscriptRow {
  const char* index;
  PyObject** exceptionClass;
  const char* message;
};

TEST(SubscriptFailure, EachHasItsClassAndWords) {
  const char* const noIndex = "index is not an integer or slice.";
  const RefusedSubscriptRow rows[] = {
      {"3", &PyExc_IndexError, "index has an invalid value: 3"},
      {"-4", &PyExc_IndexError, "index has an invalid value: -4"},
      {"2**63 - 1", &PyExc_IndexError, "index has an invalid value: 9223372036854775807"},
      {"-2**63", &PyExc_IndexError, "index has an invalid value: -9223372036854775808"},
      {"1.0", &PyExc_RuntimeError, noIndex},
      {"None", &PyExc_RuntimeError, noIndex},
      {"(0, 1)", &PyExc_RuntimeError, noIndex},
      {"...", &PyExc_RuntimeError, noIndex},
      {"'0'", &PyExc_RuntimeError, noIndex},
      {"type('Index', (), {'__index__': lambda self: 1})()", &PyExc_RuntimeError, noIndex},
      {"slice(None, None, 0)", &PyExc_ValueError, "slice step cannot be zero."},
      {"slice(None, None, 'x')", &PyExc_ValueError, "slice step cannot be zero."},
  };
  const PyRef array = makeRecord(makeArray<double>({3, 4}));
  const PyRef sliced = evaluate("a[0:3]", {{"a", array}});
  for (const RefusedSubscriptRow& row : rows) {
    SCOPED_TRACE(row.index);
    const PyRef index = evaluate(row.index);
    for (const PyRef* object : {&array, &sliced}) {
      EXPECT_EQ(PyObject_GetItem(object->get(), index.get()), nullptr);
      EXPECT_TRUE(raised(*row.exceptionClass, row.message));
    }
  }
}

TEST(SubscriptFailure, NothingIsInAnEmptySlice) {
  const PyRef empty = evaluate("a[2:2]", {{"a", makeRecord(makeArray<double>({3, 4}))}});
  for (const char* index : {"0", "-1", "1"}) {
    EXPECT_EQ(PyObject_GetItem(empty.get(), evaluate(index).get()), nullptr);
    EXPECT_TRUE(raised(PyExc_IndexError, std::string("index has an invalid value: ") + index));
  }
}

TEST(SubscriptFailure, AllDimensionsFixed) {
  const ViewPointer owner = makeArray<double>({3, 4});
  const PyRef fixed = makeRecord(std::make_unique<MCppPyArray>(*owner, Position{0, 0}, false));
  for (const char* index : {"0", "-1", "99", "slice(None)"}) {
    SCOPED_TRACE(index);
    EXPECT_EQ(PyObject_GetItem(fixed.get(), evaluate(index).get()), nullptr);
    EXPECT_TRUE(raised(PyExc_RuntimeError, "too many indices."));
  }
}

// The slice gives the length without the storage, so the number of dimensions is what fails.
TEST(SubscriptFailure, SliceOfStorageThatHasGone) {
  const PyRef expired = makeRecord(makeExpiredView<double>({3, 4}));
  viewOf(expired).appendIndexItem(slice(0, 2, 1, 2));
  EXPECT_EQ(PyObject_Length(expired.get()), 2);
  EXPECT_EQ(PyObject_GetItem(expired.get(), evaluate("0").get()), nullptr);
  EXPECT_TRUE(raised(PyExc_RuntimeError, "too many indices."));

  const PyRef empty = makeRecord(makeViewWithoutStorage<double>({3, 4}));
  viewOf(empty).appendIndexItem(slice(0, 2, 1, 2));
  EXPECT_EQ(PyObject_Length(empty.get()), 2);
  EXPECT_EQ(PyObject_GetItem(empty.get(), evaluate("0").get()), nullptr);
  EXPECT_TRUE(raisedExpired());
}

TEST(SubscriptFailure, SliceThatSaysMoreThanItHas) {
  const PyRef view = makeRecord(makeArray<double>({10, 2}));
  viewOf(view).appendIndexItem(slice(1, 3, 1, 5));
  EXPECT_EQ(PyObject_Length(view.get()), 5);
  EXPECT_EQ(reprOf(evaluate("v[1][0]", {{"v", view}})), "3.0");
  EXPECT_EQ(PyObject_GetItem(view.get(), evaluate("2").get()), nullptr);
  EXPECT_TRUE(raised(PyExc_RuntimeError, "unable to index into slice."));
}

TEST(SubscriptFailure, LengthBelowZeroHasAnErrorForIntegersOnly) {
  const PyRef view = makeRecord(makeArray<double>({10, 2}));
  viewOf(view).appendIndexItem(slice(1, 3, 1, -1));
  EXPECT_EQ(MCPyArray_GetViaIndex<double>(view.get(), evaluate("slice(None)").get()), nullptr);
  EXPECT_TRUE(raisedNothing());
  EXPECT_EQ(MCPyArray_GetViaIndex<double>(view.get(), evaluate("0").get()), nullptr);
  EXPECT_TRUE(raised(PyExc_IndexError, "index has an invalid value: 0"));
  EXPECT_EQ(MCPyArray_GetItem<double>(view.get(), 0), nullptr);
  EXPECT_TRUE(raised(PyExc_IndexError, "index has an invalid value: 0"));
}

TEST(SubscriptFailure, UnreadableSliceKeepsTheErrorOfTheInterpreter) {
  const PyRef array = makeRecord(makeArray<double>({3, 4}));
  EXPECT_EQ(PyObject_GetItem(array.get(), evaluate("slice('x', None)").get()), nullptr);
  EXPECT_TRUE(raisedOwn(PyExc_TypeError));
}

// Deliberate: a number that does not fit counts as -1, and its error stays pending beside the
// result.
TEST(SubscriptHandlers, TooLargeAnIntIsTheLastPosition) {
  const PyRef array = makeRecord(makeArray<double>({3, 4}));
  const PyRef result =
      PyRef::steal(MCPyArray_GetViaIndex<double>(array.get(), evaluate("2**70").get()));
  EXPECT_TRUE(raisedOwn(PyExc_OverflowError));
  ASSERT_TRUE(result);
  EXPECT_EQ(describe(viewOf(result).chain()), "2");
}

TEST(SubscriptHandlers, SequenceSlotTakesNegativeIndices) {
  const PyRef row = evaluate("a[2:5]", {{"a", makeRecord(makeArray<double>({6, 1}))}});
  const PyRef last = PyRef::steal(MCPyArray_GetItem<double>(row.get(), -1));
  EXPECT_EQ(reprOf(evaluate("v[0]", {{"v", last}})), "5.0");
  EXPECT_EQ(MCPyArray_GetItem<double>(row.get(), -4), nullptr);
  EXPECT_TRUE(raised(PyExc_IndexError, "index has an invalid value: -4"));
}

TEST(SubscriptHandlers, LengthIsThatOfTheActiveDimension) {
  const PyRef array = makeRecord(makeArray<double>({3, 4}));
  const PyRef lengths =
      evaluate("[len(a), len(a[1]), len(a[0:2]), len(a[1][3:0:-2]), len(a[0:0])]", {{"a", array}});
  EXPECT_EQ(reprOf(lengths), "[3, 4, 2, 2, 0]");
  EXPECT_EQ(MCPyArray_NumElemsInFirstDim(array.get()), 3);
}

}  // namespace
