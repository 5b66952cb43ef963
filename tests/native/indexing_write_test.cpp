// Assignments: each element at its place in array and mirror, refusals, elements that stay stored.
#include "indexing/element_write.hpp"

#include <gtest/gtest.h>

#include <complex>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "elements/traversal.hpp"
#include "module/element_to_number.hpp"
#include "operations/nested_lists.hpp"
#include "python_testing.hpp"
#include "storage_testing.hpp"

namespace {

using namespace python_testing;
using foundation::velmardata::TypedArray;
using velmardata_testing::elementsOf;

constexpr const char* cannotSet = "unable to set value.";

// Value number k of an assignment is sample number firstValue + k.
constexpr std::size_t firstValue = 25;

using Places = std::vector<std::size_t>;  // the place of each value, in storage order

// A list of the first `count` values.
template <class T>
PyRef valueList(unsigned long count) {
  const MCppPyArray row(sampleArray<T>({count}, firstValue), classOfElement<T>(),
                        isComplexElement<T>, true, Contents::Own);
  return PyRef::steal(getAllContentsAsPyList<T>(row));
}

// `count` samples with the values stored at their places.
template <class T>
std::vector<T> samplesWithValuesAt(std::size_t count, const Places& places) {
  std::vector<T> elements = samples<T>(count);
  for (std::size_t k = 0; k < places.size(); ++k) elements[places[k]] = sample<T>(firstValue + k);
  return elements;
}

// T is the element type itself, complex or not.
template <class T>
int assign(const PyRef& view, const char* index, const PyRef& value) {
  return MCPyArray_SetViaIndex<Part<T>>(view.get(), evaluate(index).get(), value.get());
}

// --- One element

TYPED_SUITE(WriteElement, WritableTypes, TypeWords);

// Stores an element through the view of all its dimensions but the last.
template <class T>
int setItem(const MCppPyArray& array, const Position& position, const T& element, bool isWeak) {
  MCppPyArray view(array, Position(position.begin(), position.end() - 1), isWeak);
  const PyRef value = PyRef::steal(makeNumber(element));
  return setItemViaFinalIntegerIndex<T>(view, position.back(), value.get());
}

TYPED_CASE(WriteElement, AlongATraversalReachesEachPlace) {
  for (const bool isMirrorFilled : {false, true}) {
    for (const bool isWeak : {false, true}) {
      SCOPED_TRACE(std::string(isMirrorFilled ? "mirror" : "no mirror") + (isWeak ? ", weak" : ""));
      const ViewPointer array = makeArray<TypeParam>({2, 3, 2});
      const WrapperAccess storage = array->wrapper();
      if (isMirrorFilled) storage->buf();
      std::vector<TypeParam> expected = samples<TypeParam>(12);
      Position position(3, 0);
      int count = 0;
      do {
        const auto place =
            static_cast<std::size_t>(position[0] + 2 * position[1] + 6 * position[2]);
        expected[place] = otherThanSample<TypeParam>(place);
        ASSERT_EQ(setItem<TypeParam>(*array, position, expected[place], isWeak), 0);
        ASSERT_EQ(arrayElements<TypeParam>(*storage), expected);
        if (isMirrorFilled) {
          ASSERT_EQ(mirrorElements<TypeParam>(*storage), expected);
        }
        ++count;
      } while (incrementIndices(position, storage->shape(), array->chain()));
      EXPECT_EQ(count, 12);
      EXPECT_EQ(mirrorElements<TypeParam>(*storage), expected);
    }
  }
  EXPECT_TRUE(raisedNothing());
}

TYPED_CASE(WriteElement, OutsideTheStorageIsReportedAndNothingIsWritten) {
  const Position positions[] = {
      {0, 3},
      {2, 2},
      {-1, 0},
      {0, -1},
      {0, 0, 0},
      {0, 0, 0, 0},
      {largest, -1},
      {0, largest},
      {-largest, -largest},
      {0, largest / 2 + 1},
  };
  for (const bool isMirrorFilled : {false, true}) {
    for (const bool isWeak : {false, true}) {
      const ViewPointer array = makeArray<TypeParam>({2, 3});
      if (isMirrorFilled) array->wrapper()->buf();
      for (const Position& position : positions) {
        SCOPED_TRACE(testing::PrintToString(entriesOf(position)));
        EXPECT_EQ(setItem<TypeParam>(*array, position, otherThanSample<TypeParam>(0), isWeak), -1);
        EXPECT_TRUE(raised(PyExc_RuntimeError, cannotSet));
      }
      EXPECT_EQ(storedElements<TypeParam>(*array), samples<TypeParam>(6));
    }
  }
  const ViewPointer empty = makeArray<TypeParam>({0, 3});
  EXPECT_EQ(setItem<TypeParam>(*empty, {0, 0}, TypeParam(), false), -1);
  EXPECT_TRUE(raised(PyExc_RuntimeError, cannotSet));
}

TEST(WriteAnyElement, WithoutMemoryForACopyIsReported) {
  using namespace foundation::velmardata;
  const Array kept = ArrayFactory().createArray(ArrayType::INT8, {256UL << 20, 1});
  const MCppPyArray view(Array(kept), SupportedArrayEnum::Int8, false, true, Contents::Client);
  bool isLimited = false;
  int result = 0;
  {
    const MemoryLimit limit;
    isLimited = limit.isSet();
    if (isLimited) result = setItem<std::int8_t>(view, {0, 0}, 1, false);
  }
  if (!isLimited) GTEST_SKIP() << "an emulator ignores the limit on memory";
  EXPECT_EQ(result, -1);
  EXPECT_TRUE(raised(
      PyExc_MemoryError,
      "unable to allocate memory for array with number of elements = 268435456; type = int8"));
  EXPECT_EQ(view.wrapper()->array().impl(), kept.impl());
}

// --- Assignments to a 2 by 3 by 2 array `a` from a list `s` of values

struct AssignmentRow {
  const char* view;
  const char* index;
  const char* value;
  Places places;
  bool worksOnWeakArray;  // Deliberate: slices of weak views have no storage.
};

const AssignmentRow assignmentRows[] = {
    {"a", "1", "[s[0:2], s[2:4], s[4:6]]", {1, 7, 3, 9, 5, 11}, true},
    {"a[0]", "-1", "s[0:2]", {4, 10}, true},
    {"a[1][1]", "1", "s[0]", {9}, true},
    {"a[1][1]", "slice(None)", "s[0:2]", {3, 9}, true},
    {"a[1][1]", "slice(None, None, -1)", "tuple(s[0:2])", {9, 3}, true},
    {"a[1][1]", "slice(1, 9)", "s[0:1]", {9}, true},
    {"a[0][0]", "slice(1, 1)", "[]", {}, true},
    {"a", "slice(1, 1)", "[]", {}, true},
    {"a", "slice(0, 2)", "s[0:12]", {0, 6, 2, 8, 4, 10, 1, 7, 3, 9, 5, 11}, false},
    {"a", "slice(0, 2)", "[s[0:6], s[6:12]]", {0, 6, 2, 8, 4, 10, 1, 7, 3, 9, 5, 11}, false},
    {"a", "slice(None, None, -1)", "s[0:12]", {1, 7, 3, 9, 5, 11, 0, 6, 2, 8, 4, 10}, false},
    {"a[0]", "slice(2, 0, -1)", "[s[0:2], s[2:4]]", {4, 10, 2, 8}, false},
    {"a[0]", "slice(None, None, 2)", "s[0:4]", {0, 6, 4, 10}, false},
    {"a[::-1]", "0", "[s[0:2], s[2:4], s[4:6]]", {1, 7, 3, 9, 5, 11}, false},
    {"a[::-1]", "slice(0, 1)", "s[0:6]", {1, 7, 3, 9, 5, 11}, false},
    {"a[0][1:3]", "0", "s[0:2]", {2, 8}, false},
    {"a[0][1:3]", "slice(1, 2)", "s[0:2]", {4, 10}, false},
    {"a[1][1][1:2]", "0", "s[0]", {9}, false},
    // Deliberate: in the last dimension the slice that ends the view is ignored.
    {"a[1][1][1:2]", "slice(0, 1)", "s[0:1]", {3}, false},
    {"a[1][1][::-1]", "slice(0, 2)", "s[0:2]", {3, 9}, false},
};

TYPED_SUITE(Assignment, WritableTypes, TypeWords);

TYPED_CASE(Assignment, StoresEachElementAtItsPlace) {
  const PyRef values = valueList<TypeParam>(12);
  for (const AssignmentRow& row : assignmentRows) {
    for (const bool isMirrorFilled : {false, true}) {
      SCOPED_TRACE(std::string(row.view) + "[" + row.index + "] = " + row.value);
      const PyRef array = makeRecord(makeArray<TypeParam>({2, 3, 2}));
      if (isMirrorFilled) viewOf(array).wrapper()->buf();
      const PyRef view = evaluate(row.view, {{"a", array}});
      const PyRef value = evaluate(row.value, {{"s", values}});
      EXPECT_EQ(viewOf(view).wrapper()->isReadOnly(), 1) << "for exports, not for writes";
      EXPECT_EQ(assign<TypeParam>(view, row.index, value), 0);
      EXPECT_TRUE(raisedNothing());
      EXPECT_EQ(storedElements<TypeParam>(viewOf(array)),
                samplesWithValuesAt<TypeParam>(12, row.places));
    }
  }
}

TYPED_CASE(Assignment, ToAWeakArrayKeepsNoStorageAlive) {
  const PyRef values = valueList<TypeParam>(12);
  for (const AssignmentRow& row : assignmentRows) {
    SCOPED_TRACE(std::string(row.view) + "[" + row.index + "] = " + row.value);
    ViewPointer owner = makeArray<TypeParam>({2, 3, 2});
    const PyRef weak = makeRecord(std::make_unique<MCppPyArray>(*owner, true));
    const PyRef view = evaluate(row.view, {{"a", weak}});
    const PyRef value = evaluate(row.value, {{"s", values}});
    EXPECT_EQ(assign<TypeParam>(view, row.index, value), row.worksOnWeakArray ? 0 : -1);
    EXPECT_TRUE(row.worksOnWeakArray ? raisedNothing() : raisedExpired());
    EXPECT_EQ(storedElements<TypeParam>(*owner),
              samplesWithValuesAt<TypeParam>(12, row.worksOnWeakArray ? row.places : Places{}));
    owner.reset();
    EXPECT_EQ(viewOf(weak).getNumberOfDimensions(), -1);
    EXPECT_TRUE(raisedExpired());
  }
}

TYPED_CASE(Assignment, LeavesOtherHandlesOnTheContentsAlone) {
  const PyRef values = valueList<TypeParam>(12);
  for (const AssignmentRow& row : assignmentRows) {
    SCOPED_TRACE(std::string(row.view) + "[" + row.index + "] = " + row.value);
    const TypedArray<TypeParam> kept = sampleArray<TypeParam>({2, 3, 2});
    const auto viewOfKept = [&kept] {
      return std::make_unique<MCppPyArray>(TypedArray<TypeParam>(kept), classOfElement<TypeParam>(),
                                           isComplexElement<TypeParam>, true, Contents::Client);
    };
    const PyRef array = makeRecord(viewOfKept());
    const ViewPointer other = viewOfKept();
    const PyRef view = evaluate(row.view, {{"a", array}});
    ASSERT_EQ(assign<TypeParam>(view, row.index, evaluate(row.value, {{"s", values}})), 0);
    EXPECT_EQ(elementsOf(kept), samples<TypeParam>(12));
    EXPECT_EQ(storedElements<TypeParam>(*other), samples<TypeParam>(12));
    EXPECT_EQ(storedElements<TypeParam>(viewOf(array)),
              samplesWithValuesAt<TypeParam>(12, row.places));
  }
}

TYPED_CASE(Assignment, OfRowsLongAndShortIsWhole) {
  for (const Dimensions& dimensions : {Dimensions{3, 1000}, {1000, 3}, {1, 300}, {300, 1}}) {
    SCOPED_TRACE(testing::PrintToString(dimensions));
    const unsigned long count = dimensions[0] * dimensions[1];
    const PyRef array = makeRecord(makeArray<TypeParam>(dimensions));
    ASSERT_EQ(assign<TypeParam>(array, "slice(None)", valueList<TypeParam>(count)), 0);
    Places places;
    for (std::size_t k = 0; k < count; ++k) {
      places.push_back(k / dimensions[1] + k % dimensions[1] * dimensions[0]);
    }
    EXPECT_EQ(storedElements<TypeParam>(viewOf(array)),
              samplesWithValuesAt<TypeParam>(count, places));
  }
}

// --- The writers by themselves

TYPED_SUITE(Writers, WritableTypes, TypeWords);

template <class T>
int setEach(MCppPyArray& view, const SliceIndexItem& places, const PyRef& values) {
  return setIndividualElementsFromFlatSeqOfMultipleIntegerIndices<T>(view, places, values.get());
}

TYPED_CASE(Writers, KeepElementsStoredBeforeAPlaceOutside) {
  const PyRef values = valueList<TypeParam>(9);
  const PyRef three = evaluate("s[0:3]", {{"s", values}});
  const ViewPointer array = makeArray<TypeParam>({2, 3});
  const auto holds = [&array](const Places& places) {
    EXPECT_TRUE(raised(PyExc_RuntimeError, cannotSet));
    EXPECT_EQ(storedElements<TypeParam>(*array), samplesWithValuesAt<TypeParam>(6, places));
    for (std::int64_t i = 0; i < 6; ++i) {
      const auto restored = sample<TypeParam>(static_cast<std::size_t>(i));
      EXPECT_TRUE(setElement<TypeParam>(*array, {i}, restored));
    }
  };
  EXPECT_EQ(setMultipleElementsFromNonFinalIntegerIndex<TypeParam>(*array, 2, three.get()), -1);
  holds({2, 4});
  SliceIndexItem run = slice(1, 4, 1, 3);
  EXPECT_EQ(setMultipleElementsFromNonFinalSliceIndex<TypeParam>(*array, run, values.get()), -1);
  holds({1, 3, 5, 2, 4});  // the sixth value has no place

  MCppPyArray row(*array, {1}, false);
  EXPECT_EQ(setEach<TypeParam>(row, slice(2, 5, 1, 3), three), -1);
  holds({5});
  const PyRef number = evaluate("s[0]", {{"s", values}});
  for (const std::int64_t index : {3, -1}) {
    EXPECT_EQ(setItemViaFinalIntegerIndex<TypeParam>(row, index, number.get()), -1);
    holds({});
  }
}

TYPED_CASE(Writers, RefusePositionsWithTooManyEntries) {
  const PyRef values = valueList<TypeParam>(2);
  const PyRef number = evaluate("s[0]", {{"s", values}});
  const ViewPointer array = makeArray<TypeParam>({2, 3});
  MCppPyArray fixed(*array, {0, 0}, false);
  EXPECT_EQ(setItemViaFinalIntegerIndex<TypeParam>(fixed, 0, number.get()), -1);
  EXPECT_TRUE(raised(PyExc_RuntimeError, cannotSet));
  EXPECT_EQ(setEach<TypeParam>(fixed, slice(0, 2, 1, 2), values), -1);
  EXPECT_TRUE(raised(PyExc_RuntimeError, cannotSet));
  EXPECT_EQ(setMultipleElementsFromNonFinalIntegerIndex<TypeParam>(fixed, 0, number.get()), -1);
  EXPECT_TRUE(raised(PyExc_ValueError, messages::unequalShapes));
  EXPECT_EQ(storedElements<TypeParam>(*array), samples<TypeParam>(6));
}

TYPED_CASE(Writers, TakeMissingTrailingEntriesAsZero) {
  const PyRef values = valueList<TypeParam>(3);
  const PyRef number = evaluate("s[0]", {{"s", values}});
  const PyRef array = makeRecord(makeArray<TypeParam>({2, 3, 2}));
  MCppPyArray plane(viewOf(array), {1}, false);
  EXPECT_EQ(setItemViaFinalIntegerIndex<TypeParam>(plane, 2, number.get()), 0);
  EXPECT_EQ(storedElements<TypeParam>(viewOf(array)), samplesWithValuesAt<TypeParam>(12, {5}));
  EXPECT_EQ(setEach<TypeParam>(plane, slice(2, -1, -1, 3), values), 0);
  EXPECT_EQ(storedElements<TypeParam>(viewOf(array)),
            samplesWithValuesAt<TypeParam>(12, {5, 3, 1}));
  EXPECT_EQ(setItemViaFinalIntegerIndex<TypeParam>(viewOf(array), 0, number.get()), 0);
  std::vector<TypeParam> expected = samplesWithValuesAt<TypeParam>(12, {5, 3, 1});
  expected[0] = sample<TypeParam>(firstValue);
  EXPECT_EQ(storedElements<TypeParam>(viewOf(array)), expected);
}

TYPED_CASE(Writers, NormaliseAgainstTheLengthTheyAreGiven) {
  const PyRef values = valueList<TypeParam>(1);
  const PyRef number = evaluate("s[0]", {{"s", values}});
  const ViewPointer array = makeArray<TypeParam>({5});
  EXPECT_EQ(setItemsFromFinalOrNonFinalIntegerIndex<TypeParam>(*array, -1, 2, number.get()), 0);
  EXPECT_EQ(storedElements<TypeParam>(*array), samplesWithValuesAt<TypeParam>(5, {1}));
  for (const std::int64_t index : {2, -3}) {
    EXPECT_EQ(setItemsFromFinalOrNonFinalIntegerIndex<TypeParam>(*array, index, 2, number.get()),
              -1);
    EXPECT_TRUE(raised(PyExc_IndexError, "index has an invalid value: " + std::to_string(index)));
  }
}

TYPED_CASE(Writers, ReportStorageThatHasGone) {
  const PyRef values = valueList<TypeParam>(3);
  const PyRef number = evaluate("s[0]", {{"s", values}});
  const ViewPointer views[] = {makeExpiredView<TypeParam>({2, 3}),
                               makeViewWithoutStorage<TypeParam>({2, 3})};
  for (const ViewPointer& view : views) {
    EXPECT_EQ(setItemViaFinalIntegerIndex<TypeParam>(*view, 0, number.get()), -1);
    EXPECT_TRUE(raisedExpired());
    EXPECT_EQ(setMultipleElementsFromNonFinalIntegerIndex<TypeParam>(*view, 0, values.get()), -1);
    EXPECT_TRUE(raisedExpired());
    SliceIndexItem run = slice(0, 1, 1, 1);
    EXPECT_EQ(setMultipleElementsFromNonFinalSliceIndex<TypeParam>(*view, run, values.get()), -1);
    EXPECT_TRUE(raisedExpired());
    EXPECT_EQ(setEach<TypeParam>(*view, slice(0, 3, 1, 3), values), -1);
    EXPECT_TRUE(raisedExpired());
  }
}

}  // namespace
