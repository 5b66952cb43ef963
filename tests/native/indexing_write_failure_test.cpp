// Assignments that fail: each has its error class and message; elements stored before it stay.
#include "indexing/element_write.hpp"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "module/type_objects.hpp"
#include "python_testing.hpp"
#include "storage_testing.hpp"

namespace {

using namespace python_testing;

int assign(const PyRef& view, const char* index, const PyRef& value) {
  return MCPyArray_SetViaIndex<double>(view.get(), evaluate(index).get(), value.get());
}

constexpr const char* unequalShapes =
    "unable to perform assignment because the left and right sides have a different shape.";
constexpr const char* unequalCounts = "length of slice does not match number of elements.";
constexpr const char* emptyValues = "slice is nonempty but values are empty.";
constexpr const char* emptySlice =
    "slice is empty, but number of elements assigned is greater than zero.";
constexpr const char* noIndex = "index is not an integer or slice.";
constexpr const char* notInSlice = "unable to index into slice.";
constexpr const char* notNone = "value must not be 'None'.";

struct RefusedRow {
  const char* view;  // of a 2 by 3 array
  const char* index;
  const char* value;
  PyObject** exceptionClass;
  const char* message;
  std::vector<double> elements;  // afterwards, in storage order
};

const std::vector<double> untouched = {1, 2, 3, 4, 5, 6};
const RefusedRow refusedRows[] = {
    // Another shape.
    {"a", "1", "[70.0, 80.0]", &PyExc_ValueError, unequalShapes, untouched},
    {"a", "1", "[70.0, 80.0, 90.0, 99.0]", &PyExc_ValueError, unequalShapes, untouched},
    {"a", "1", "[[70.0, 80.0, 90.0]]", &PyExc_ValueError, unequalShapes, untouched},
    {"a", "1", "70.0", &PyExc_ValueError, unequalShapes, untouched},
    {"a", "1", "[]", &PyExc_ValueError, unequalShapes, untouched},
    {"a[0]", "slice(0, 1)", "70.0", &PyExc_ValueError, unequalShapes, untouched},
    {"a[0]", "slice(0, 2)", "[70.0]", &PyExc_ValueError, unequalShapes, untouched},
    {"a[0]", "slice(0, 2)", "[70.0, 80.0, 90.0]", &PyExc_ValueError, unequalShapes, untouched},
    {"a[0]", "slice(0, 2)", "[[70.0], [80.0]]", &PyExc_ValueError, unequalShapes, untouched},
    {"a[0]", "slice(0, 0)", "[70.0]", &PyExc_ValueError, unequalShapes, untouched},
    // Another number of elements, which shows only after elements have been stored.
    {"a",
     "slice(0, 2)",
     "[70.0, 71.0, 72.0, 73.0, 74.0]",
     &PyExc_ValueError,
     unequalCounts,
     {70, 73, 71, 74, 72, 6}},
    {"a",
     "slice(0, 2)",
     "[70.0, 71.0, 72.0, 73.0, 74.0, 75.0, 76.0]",
     &PyExc_ValueError,
     unequalCounts,
     {70, 73, 71, 74, 72, 75}},
    {"a",
     "slice(0, 2)",
     "[[70.0], [71.0]]",
     &PyExc_ValueError,
     unequalCounts,
     {70, 2, 71, 4, 5, 6}},
    {"a", "slice(0, 2)", "70.0", &PyExc_ValueError, unequalCounts, {70, 2, 3, 4, 5, 6}},
    {"a", "slice(1, None, -1)", "70.0", &PyExc_ValueError, unequalCounts, {1, 70, 3, 4, 5, 6}},
    {"a", "slice(0, 2)", "[]", &PyExc_ValueError, emptyValues, untouched},
    {"a", "slice(1, 1)", "[70.0]", &PyExc_ValueError, emptySlice, untouched},
    {"a", "slice(1, 1)", "70.0", &PyExc_ValueError, emptySlice, untouched},
    // A place that does not exist.
    {"a", "2", "[70.0, 80.0, 90.0]", &PyExc_IndexError, "index has an invalid value: 2", untouched},
    {"a", "-3", "[70.0, 80.0, 90.0]", &PyExc_IndexError, "index has an invalid value: -3",
     untouched},
    {"a[1]", "3", "70.0", &PyExc_IndexError, "index has an invalid value: 3", untouched},
    {"a[1:2]", "1", "[70.0, 80.0, 90.0]", &PyExc_RuntimeError, notInSlice, untouched},
    {"a[1:2]", "-1", "[70.0, 80.0, 90.0]", &PyExc_RuntimeError, notInSlice, untouched},
    {"a[1:2]", "2", "[70.0, 80.0, 90.0]", &PyExc_IndexError, "index has an invalid value: 2",
     untouched},
    {"a[0][1:3]", "-1", "70.0", &PyExc_RuntimeError, notInSlice, untouched},
    {"a[0][1:3]", "2", "70.0", &PyExc_RuntimeError, notInSlice, untouched},
    {"a[0][1:3]", "3", "70.0", &PyExc_IndexError, "index has an invalid value: 3", untouched},
    {"a[0][0:0]", "0", "70.0", &PyExc_RuntimeError, notInSlice, untouched},
    // Not an index.
    {"a", "1.0", "[70.0, 80.0, 90.0]", &PyExc_RuntimeError, noIndex, untouched},
    {"a", "None", "[70.0, 80.0, 90.0]", &PyExc_RuntimeError, noIndex, untouched},
    {"a", "(0, 0)", "70.0", &PyExc_RuntimeError, noIndex, untouched},
    {"a", "slice(0, 2, 0)", "[70.0]", &PyExc_ValueError, "slice step cannot be zero.", untouched},
    // Not values. All are read before the first is stored.
    {"a", "1", "[70.0, 80.0, None]", &PyExc_TypeError, notNone, untouched},
    {"a", "slice(0, 2)", "[70.0, None]", &PyExc_TypeError, notNone, untouched},
    {"a[0]", "slice(0, 2)", "[70.0, None]", &PyExc_TypeError, notNone, untouched},
    {"a[0]", "0", "None", &PyExc_TypeError, notNone, untouched},
    {"a[0]", "0", "[70.0]", &PyExc_TypeError, "sequence passed when scalar was expected.",
     untouched},
    {"a[0]", "0", "1j", &PyExc_TypeError,
     "velmar.double does not accept complex values if 'is_complex' is not set to 'True'.",
     untouched},
    {"a", "slice(0, 2)", "[[70.0, 80.0], [90.0]]", &PyExc_ValueError,
     "elements of array are of different lengths or types.", untouched},
};

TEST(AssignmentFailure, EachHasItsClassAndWords) {
  for (const RefusedRow& row : refusedRows) {
    for (const bool isMirrorFilled : {false, true}) {
      SCOPED_TRACE(std::string(row.view) + "[" + row.index + "] = " + row.value);
      const PyRef array = makeRecord(makeArray<double>({2, 3}));
      if (isMirrorFilled) viewOf(array).wrapper()->buf();
      EXPECT_EQ(assign(evaluate(row.view, {{"a", array}}), row.index, evaluate(row.value)), -1);
      EXPECT_TRUE(raised(*row.exceptionClass, row.message));
      EXPECT_EQ(storedElements<double>(viewOf(array)), row.elements);
    }
  }
}

TEST(AssignmentFailure, NothingIsAssigned) {
  const PyRef array = makeRecord(makeArray<double>({2, 3}));
  const PyRef row = evaluate("a[0]", {{"a", array}});
  for (const PyRef* view : {&array, &row}) {
    for (const char* index : {"0", "slice(0, 2)"}) {
      EXPECT_EQ(assign(*view, index, PyRef()), -1);
      EXPECT_TRUE(raised(PyExc_RuntimeError, "null data pointer."));
    }
  }
  EXPECT_EQ(storedElements<double>(viewOf(array)), untouched);
}

TEST(AssignmentFailure, RecordWithoutAView) {
  const PyRef record = PyRef::steal(allocMCPyArray(typeObjectOf(SupportedArrayEnum::Double)));
  EXPECT_EQ(assign(record, "0", evaluate("1.0")), -1);
  EXPECT_TRUE(raised(PyExc_RuntimeError, "object not initialized."));
  EXPECT_EQ(assign(PyRef(), "0", evaluate("1.0")), -1);
  EXPECT_TRUE(raised(PyExc_RuntimeError, "object not initialized."));
}

TEST(AssignmentFailure, AllDimensionsFixed) {
  const ViewPointer owner = makeArray<double>({2, 3});
  const PyRef fixed = makeRecord(std::make_unique<MCppPyArray>(*owner, Position{0, 0}, false));
  for (const char* index : {"0", "99", "slice(None)", "None"}) {
    SCOPED_TRACE(index);
    EXPECT_EQ(assign(fixed, index, evaluate("1.0")), -1);
    EXPECT_TRUE(raised(PyExc_RuntimeError, "too many indices."));
  }
}

// If the storage has expired, the number of dimensions is -1, which the first check reports.
TEST(AssignmentFailure, StorageThatHasGone) {
  const PyRef value = evaluate("[70.0, 80.0, 90.0]");
  const PyRef expired = makeRecord(makeExpiredView<double>({2, 3}));
  const PyRef empty = makeRecord(makeViewWithoutStorage<double>({2, 3}));
  for (const char* index : {"0", "99", "slice(0, 1)", "None"}) {
    SCOPED_TRACE(index);
    EXPECT_EQ(assign(expired, index, value), -1);
    EXPECT_TRUE(raised(PyExc_RuntimeError, "too many indices."));
    EXPECT_EQ(assign(empty, index, value), -1);
    EXPECT_TRUE(raisedExpired());
  }
}

TEST(AssignmentFailure, StorageWithoutDimensions) {
  const PyRef array = makeRecord(makeArray<double>({}));
  for (const char* index : {"0", "slice(0, 1)", "None"}) {
    SCOPED_TRACE(index);
    EXPECT_EQ(assign(array, index, evaluate("70.0")), -1);
    EXPECT_TRUE(raised(PyExc_RuntimeError, "too many indices."));
  }
}

// Deliberate: a run of rows is written through a strong temporary view. The strong copy of a weak
// view has no storage. Errors in the values come first.
TEST(AssignmentFailure, RunOfRowsOfAWeakView) {
  const ViewPointer owner = makeArray<double>({2, 3});
  const PyRef weak = makeRecord(std::make_unique<MCppPyArray>(*owner, true));
  EXPECT_EQ(assign(weak, "slice(0, 2)", evaluate("[]")), -1);
  EXPECT_TRUE(raised(PyExc_ValueError, emptyValues));
  EXPECT_EQ(assign(weak, "slice(1, 1)", evaluate("[70.0]")), -1);
  EXPECT_TRUE(raised(PyExc_ValueError, emptySlice));
  EXPECT_EQ(assign(weak, "slice(0, 2)", evaluate("[None]")), -1);
  EXPECT_TRUE(raised(PyExc_TypeError, notNone));
  EXPECT_EQ(assign(weak, "slice(0, 1)", evaluate("[70.0, 80.0, 90.0]")), -1);
  EXPECT_TRUE(raisedExpired());
  EXPECT_EQ(storedElements<double>(*owner), untouched);
}

// Reading the value runs code. The assignment must not keep the storage alive while it reads.
TEST(AssignmentFailure, ValueThatDropsTheStorage) {
  for (const bool isRow : {false, true}) {
    SCOPED_TRACE(isRow);
    PyRef owner = makeRecord(makeArray<double>({2, 2}));
    const PyRef weakArray = makeRecord(std::make_unique<MCppPyArray>(viewOf(owner), true));
    const PyRef weak =
        isRow ? evaluate("a[0]", {{"a", weakArray}}) : evaluate("a", {{"a", weakArray}});
    const PyRef holder = evaluate("[a]", {{"a", owner}});
    owner = PyRef();
    const PyRef value = evaluate(
        "(lambda h: type('Value', (), {'__len__': lambda self: 2, "
        "'__getitem__': lambda self, i: (h.clear(), 70.0)[1]})())(h)",
        {{"h", holder}});
    EXPECT_EQ(assign(weak, isRow ? "slice(0, 2)" : "0", value), -1);
    EXPECT_TRUE(raisedExpired());
  }
}

TEST(AssignmentOfViews, ReadsThemCompletelyFirst) {
  const PyRef array = makeRecord(makeArray<double>({2, 3}));
  EXPECT_EQ(assign(array, "slice(0, 2)", evaluate("a[::-1]", {{"a", array}})), 0);
  EXPECT_EQ(storedElements<double>(viewOf(array)), (std::vector<double>{2, 1, 4, 3, 6, 5}));
  EXPECT_EQ(assign(evaluate("a[0]", {{"a", array}}), "slice(None)",
                   evaluate("a[0][::-1]", {{"a", array}})),
            0);
  EXPECT_EQ(storedElements<double>(viewOf(array)), (std::vector<double>{6, 1, 4, 3, 2, 5}));
}

TEST(AssignmentOfNothing, SucceedsWhereTheShapeIsTheSame) {
  const PyRef array = makeRecord(makeArray<double>({2, 0}));
  EXPECT_EQ(assign(array, "1", evaluate("[]")), 0);
  EXPECT_EQ(assign(array, "slice(0, 0)", evaluate("[]")), 0);
  EXPECT_EQ(assign(evaluate("a[0]", {{"a", array}}), "slice(None)", evaluate("[]")), 0);
  EXPECT_TRUE(raisedNothing());
  EXPECT_EQ(assign(array, "slice(0, 2)", evaluate("[70.0]")), -1);
  EXPECT_TRUE(raised(PyExc_RuntimeError, "unable to set value."));
}

// Deliberate: a number that does not fit counts as -1, and its error stays pending beside the
// result.
TEST(AssignmentHandler, TooLargeAnIntIsTheLastPosition) {
  const PyRef array = makeRecord(makeArray<double>({2, 3}));
  const PyRef value = evaluate("[70.0, 80.0, 90.0]");
  const PyRef index = evaluate("2**70");
  EXPECT_EQ(MCPyArray_SetViaIndex<double>(array.get(), index.get(), value.get()), 0);
  EXPECT_TRUE(raisedOwn(PyExc_OverflowError));
  EXPECT_EQ(storedElements<double>(viewOf(array)), (std::vector<double>{1, 70, 3, 80, 5, 90}));
}

}  // namespace
