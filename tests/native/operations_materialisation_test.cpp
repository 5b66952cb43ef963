// Views as arrays of their own: what the snapshot holds, when it is made, and clones of it.
#include <gtest/gtest.h>

#include <complex>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "module/type_objects.hpp"
#include "operations/pickling.hpp"
#include "python_testing.hpp"
#include "storage_testing.hpp"

namespace {

using namespace python_testing;
using namespace foundation::velmardata;
using velmardata_testing::addressOf;
using velmardata_testing::elementsOf;
using velmardata_testing::referenceCount;
using velmardata_testing::storageLayout;

constexpr const char* nullPointer = "null data pointer.";

std::optional<Array> snapshotOf(MCppPyArray& view, bool makeTwoDimensional = true) {
  return view.getIndexedArrayAsMDA(storageLayout, makeTwoDimensional);
}

// --- What it holds

struct PartRow {
  Dimensions array;
  const char* part;
  Dimensions expected;
  Dimensions expectedWithoutFlag;
  std::vector<std::size_t> places;  // of the elements in the array, in the order of the snapshot
};
const PartRow partRows[] = {
    {{2, 3}, "a", {2, 3}, {2, 3}, {0, 1, 2, 3, 4, 5}},
    {{1, 3}, "a", {1, 3}, {1, 3}, {0, 1, 2}},
    {{3, 1}, "a", {3, 1}, {3, 1}, {0, 1, 2}},
    {{4}, "a", {1, 4}, {4}, {0, 1, 2, 3}},
    {{2, 3}, "a[0]", {1, 3}, {3}, {0, 2, 4}},
    {{2, 3}, "a[1][::-1]", {1, 3}, {3}, {5, 3, 1}},
    {{2, 3}, "a[1][0:3:2]", {1, 2}, {2}, {1, 5}},
    {{2, 3}, "a[1:2]", {1, 3}, {1, 3}, {1, 3, 5}},
    {{2, 3}, "a[::-1]", {2, 3}, {2, 3}, {1, 0, 3, 2, 5, 4}},
    {{2, 2, 2}, "a", {2, 2, 2}, {2, 2, 2}, {0, 1, 2, 3, 4, 5, 6, 7}},
    {{2, 2, 2}, "a[1]", {2, 2}, {2, 2}, {1, 3, 5, 7}},
    {{2, 2, 2}, "a[1][1:2]", {1, 2}, {1, 2}, {3, 7}},
    {{2, 2, 2}, "a[1][::-1]", {2, 2}, {2, 2}, {3, 1, 7, 5}},
    // Deliberate: without elements the dimensions are those of the storage, the first 0.
    {{2, 3}, "a[1:1]", {0, 3}, {0, 3}, {}},
    {{2, 3}, "a[1][0:0]", {0, 3}, {0, 3}, {}},
    {{2, 3, 4}, "a[1][1][4:9]", {0, 3, 4}, {0, 3, 4}, {}},
    {{0, 0}, "a", {0, 0}, {0, 0}, {}},
    {{0, 3}, "a", {0, 3}, {0, 3}, {}},
    {{3, 0}, "a", {0, 0}, {0, 0}, {}},
    {{3, 0}, "a[0]", {0, 0}, {0, 0}, {}},
    {{2, 0, 4}, "a", {0, 0, 4}, {0, 0, 4}, {}},
};

template <class T>
class Materialisation : public ::testing::Test {};
TYPED_TEST_SUITE(Materialisation, AllTypes, TypeWords);

TYPED_TEST(Materialisation, HoldsWhatTheViewShows) {
  for (const PartRow& row : partRows) {
    for (const bool makeTwoDimensional : {true, false}) {
      SCOPED_TRACE(testing::PrintToString(row.array) + row.part);
      const PyRef array = makeRecord(makeArray<TypeParam>(row.array));
      const PyRef part = evaluate(row.part, {{"a", array}});
      const std::optional<Array> snapshot = snapshotOf(viewOf(part), makeTwoDimensional);
      EXPECT_TRUE(raisedNothing());
      ASSERT_TRUE(snapshot);
      EXPECT_EQ(snapshot->getType(), arrayTypeOf<TypeParam>);
      EXPECT_EQ(snapshot->getDimensions(),
                makeTwoDimensional ? row.expected : row.expectedWithoutFlag);
      std::vector<TypeParam> expected;
      for (const std::size_t place : row.places) expected.push_back(sample<TypeParam>(place));
      EXPECT_EQ(elementsOf(TypedArray<TypeParam>(*snapshot)), expected);
    }
  }
}

TYPED_TEST(Materialisation, SharesNothingWithTheStorage) {
  const ViewPointer array = makeArray<TypeParam>({2, 3});
  const TypedArray<TypeParam> snapshot(*snapshotOf(*array));
  EXPECT_NE(snapshot.impl(), array->array().impl());
  EXPECT_NE(addressOf(snapshot), addressOf(TypedArray<TypeParam>(array->array())));
}

TYPED_TEST(Materialisation, WorksOnWeakViewsAndReportsStorageThatHasGone) {
  const ViewPointer owner = makeArray<TypeParam>({2, 3});
  MCppPyArray weak(*owner, {1}, true);
  const std::optional<Array> snapshot = snapshotOf(weak);
  ASSERT_TRUE(snapshot);
  EXPECT_EQ(snapshot->getDimensions(), (Dimensions{1, 3}));

  const ViewPointer views[] = {makeExpiredView<TypeParam>({2, 3}),
                               makeViewWithoutStorage<TypeParam>({2, 3})};
  for (const ViewPointer& view : views) {
    EXPECT_FALSE(snapshotOf(*view));
    EXPECT_TRUE(raisedExpired());
  }
}

// --- When it is made

TEST(Snapshot, IsMadeOnceAndTheFirstCallDecides) {
  for (const bool isTwoDimensional : {true, false}) {
    const ViewPointer array = makeArray<double>({2, 3});
    MCppPyArray row(*array, {1}, false);
    const std::optional<Array> first = snapshotOf(row, isTwoDimensional);
    const std::optional<Array> second = snapshotOf(row, !isTwoDimensional);
    ASSERT_TRUE(first && second);
    EXPECT_EQ(first->impl(), second->impl());
    EXPECT_EQ(second->getDimensions(), isTwoDimensional ? (Dimensions{1, 3}) : (Dimensions{3}));
    EXPECT_EQ(referenceCount(*first), 3U) << "the view's own and the two copies";
  }
}

TEST(Snapshot, DoesNotFollowLaterWrites) {
  const ViewPointer array = makeArray<double>({2, 3});
  MCppPyArray row(*array, {1}, false);
  MCppPyArray sameRow(*array, {1}, false);
  for (MCppPyArray* view : {array.get(), &row}) snapshotOf(*view);
  ASSERT_TRUE(array->setElementFromIndices<double>({1, 1}, 99.0));
  ASSERT_TRUE(row.setElementFromIndices<double>({1, 2}, 98.0));
  EXPECT_EQ(elementsOf(TypedArray<double>(*snapshotOf(*array))), samples<double>(6));
  EXPECT_EQ(elementsOf(TypedArray<double>(*snapshotOf(row))), (std::vector<double>{2, 4, 6}));
  EXPECT_EQ(elementsOf(TypedArray<double>(*snapshotOf(sameRow))), (std::vector<double>{2, 99, 98}))
      << "each view has a snapshot of its own";
  MCppPyArray copy(row, false);
  EXPECT_EQ(elementsOf(TypedArray<double>(*snapshotOf(copy))), (std::vector<double>{2, 99, 98}))
      << "a view of a view starts without";
  EXPECT_EQ(storedElements<double>(*array), (std::vector<double>{1, 2, 3, 99, 5, 98}));
}

TEST(Snapshot, CanBeGiven) {
  const ViewPointer view = makeExpiredView<double>({2, 3});
  const Array given = sampleArray<float>({7, 1});
  view->setIndexedArrayAsMDA(Array(given));
  const std::optional<Array> snapshot = snapshotOf(*view, false);
  ASSERT_TRUE(snapshot);
  EXPECT_EQ(snapshot->impl(), given.impl());
  EXPECT_TRUE(raisedNothing());
}

TEST(Snapshot, OutlivesTheStorage) {
  ViewPointer owner = makeArray<double>({2, 3});
  MCppPyArray weak(*owner, true);
  const std::optional<Array> first = snapshotOf(weak);
  owner.reset();
  const std::optional<Array> second = snapshotOf(weak);
  ASSERT_TRUE(first && second);
  EXPECT_EQ(first->impl(), second->impl());
  EXPECT_TRUE(raisedNothing());
}

TEST(Snapshot, IsComplexThroughPythonNumbers) {
  const ViewPointer array = makeArray<std::complex<std::int64_t>>({1, 2});
  constexpr std::int64_t large = (std::int64_t{1} << 60) + 1;
  ASSERT_TRUE(array->setElementFromIndices<std::complex<std::int64_t>>({0, 0}, {large, -3}));
  const std::optional<Array> snapshot = snapshotOf(*array);
  ASSERT_TRUE(snapshot);
  EXPECT_EQ(elementsOf(TypedArray<std::complex<std::int64_t>>(*snapshot)),
            (std::vector<std::complex<std::int64_t>>{{large - 1, -3}, {2, 62}}))
      << "53 bits of each part";
  const ViewPointer real = makeArray<std::int64_t>({1, 1});
  ASSERT_TRUE(real->setElementFromIndices<std::int64_t>({0, 0}, large));
  EXPECT_EQ(elementsOf(TypedArray<std::int64_t>(*snapshotOf(*real))),
            std::vector<std::int64_t>{large});
}

// --- Failures

TEST(SnapshotFailure, IsNotRemembered) {
  const ViewPointer array = makeArray<double>({4, 2});
  MCppPyArray view(*array, false);
  view.getIndicesRef().emplace_back(SliceIndexItem{1, 3, 1, 2, false});
  for (int attempt = 0; attempt < 2; ++attempt) {
    EXPECT_FALSE(snapshotOf(view));
    EXPECT_TRUE(raised(
        PyExc_RuntimeError,
        "getIntegerIndexValues(4, &success) was called before the slice item was normalized."));
  }
  view.getIndicesRef().assign(1, slice(1, 3, 1, 2));
  const std::optional<Array> snapshot = snapshotOf(view);
  ASSERT_TRUE(snapshot);
  EXPECT_EQ(elementsOf(TypedArray<double>(*snapshot)), (std::vector<double>{2, 3, 6, 7}));
}

TEST(SnapshotFailure, StorageWithoutDimensions) {
  const ViewPointer array = makeArray<double>({});
  EXPECT_FALSE(snapshotOf(*array));
  EXPECT_TRUE(raised(PyExc_RuntimeError, "dimensions are unexpectedly empty."));
}

TEST(SnapshotFailure, ElementOutOfReach) {
  const ViewPointer array = makeArray<double>({2, 3});
  for (const Position& position : {Position{5}, Position{99}, Position{-2}}) {
    MCppPyArray view(*array, position, false);
    EXPECT_FALSE(snapshotOf(view));
    EXPECT_TRUE(raised(PyExc_RuntimeError, nullPointer));
  }
}

TEST(SnapshotFailure, TooManyDimensions) {
  const ViewPointer array = makeArray<double>(Dimensions(200000, 1));
  EXPECT_FALSE(snapshotOf(*array));
  EXPECT_TRUE(raisedOwn(PyExc_RecursionError));
}

// --- The restricted copy

TEST(RestrictedCopy, IsMadeOnceAndOnlyForAChain) {
  const PyRef array = makeRecord(makeArray<double>({2, 3}));
  viewOf(array).updateIndexRestrictedMCppPyArrayIfNecessary(storageLayout, true);
  EXPECT_EQ(viewOf(array).getIndexRestrictedMCppPyArray(), nullptr);

  const PyRef row = evaluate("a[1]", {{"a", array}});
  viewOf(row).updateIndexRestrictedMCppPyArrayIfNecessary(storageLayout, true);
  MCppPyArray* const copy = viewOf(row).getIndexRestrictedMCppPyArray();
  ASSERT_NE(copy, nullptr);
  EXPECT_TRUE(copy->indicesAreEmpty());
  EXPECT_FALSE(copy->hasWeakPtrToWrapper());
  EXPECT_EQ(copy->shape(), (std::vector<std::int64_t>{1, 3}));
  EXPECT_EQ(copy->array().impl(), snapshotOf(viewOf(row))->impl());

  ASSERT_TRUE(viewOf(row).setElementFromIndices<double>({1, 0}, 99.0));
  viewOf(row).updateIndexRestrictedMCppPyArrayIfNecessary(storageLayout, false);
  EXPECT_EQ(viewOf(row).getIndexRestrictedMCppPyArray(), copy);
  EXPECT_EQ(storedElements<double>(*copy), (std::vector<double>{2, 4, 6}));

  ASSERT_TRUE(copy->setElementFromIndices<double>({0, 1}, 98.0));
  EXPECT_EQ(storedElements<double>(viewOf(array)), (std::vector<double>{1, 99, 3, 4, 5, 6}));
  EXPECT_EQ(elementsOf(TypedArray<double>(*snapshotOf(viewOf(row)))),
            (std::vector<double>{2, 4, 6}));
}

TEST(RestrictedCopy, StaysAwayAfterAFailureAndComesWithTheNextCall) {
  const ViewPointer array = makeArray<double>({4, 2});
  MCppPyArray view(*array, {9}, false);
  view.updateIndexRestrictedMCppPyArrayIfNecessary(storageLayout, true);
  EXPECT_TRUE(raised(PyExc_RuntimeError, nullPointer));
  EXPECT_EQ(view.getIndexRestrictedMCppPyArray(), nullptr);
  view.getIndicesRef().assign(1, IntegerIndexItem{3, true});
  view.updateIndexRestrictedMCppPyArrayIfNecessary(storageLayout, false);
  ASSERT_NE(view.getIndexRestrictedMCppPyArray(), nullptr);
  EXPECT_EQ(view.getIndexRestrictedMCppPyArray()->shape(), (std::vector<std::int64_t>{2}));
}

// --- Clones

template <class T>
class Clone : public ::testing::Test {};
TYPED_TEST_SUITE(Clone, WritableTypes, TypeWords);

TYPED_TEST(Clone, IsAWholeArrayOfItsOwn) {
  const PyRef array = makeRecord(makeArray<TypeParam>({2, 3}));
  const PyRef weak = PyRef::steal(viewOf(array).shallowCopyToMCPyArray());
  for (const PyRef* source : {&array, &weak}) {
    const PyRef clone = PyRef::steal(MCPyArray_Clone(source->get(), nullptr));
    ASSERT_TRUE(clone);
    EXPECT_EQ(Py_TYPE(clone.get()), typeObjectOf(classOfElement<TypeParam>()));
    MCppPyArray& view = viewOf(clone);
    EXPECT_EQ(view.isComplex(), isComplexElement<TypeParam>);
    EXPECT_TRUE(view.indicesAreEmpty());
    EXPECT_FALSE(view.hasWeakPtrToWrapper());
    EXPECT_EQ(view.getOrder(), 'F');
    EXPECT_NE(view.buf(), viewOf(array).buf());
    EXPECT_EQ(storedElements<TypeParam>(view), samples<TypeParam>(6));

    ASSERT_TRUE(view.setElementFromIndices<TypeParam>({0, 0}, otherThanSample<TypeParam>(0)));
    EXPECT_EQ(storedElements<TypeParam>(viewOf(array)), samples<TypeParam>(6));
    const PyRef again = PyRef::steal(MCPyArray_Clone(source->get(), nullptr));
    EXPECT_EQ(storedElements<TypeParam>(viewOf(again)), samples<TypeParam>(6))
        << "a write to a clone does not reach the snapshot";
  }
  EXPECT_TRUE(raisedNothing());
}

TYPED_TEST(Clone, OfStorageThatHasGoneHasNoViewAndLeavesTheError) {
  const PyRef sources[] = {makeRecord(makeExpiredView<TypeParam>({2, 3})),
                           makeRecord(makeViewWithoutStorage<TypeParam>({2, 3}))};
  for (const PyRef& source : sources) {
    EXPECT_EQ(viewOf(source).cloneAsMCppPyArrayUniquePtr(storageLayout, true), nullptr);
    EXPECT_TRUE(raisedExpired());
    // Deliberate: the record is there all the same.
    for (const bool throughHandler : {false, true}) {
      PyObject* const record = throughHandler
                                   ? MCPyArray_Clone(source.get(), nullptr)
                                   : viewOf(source).cloneAsMCPyArray(storageLayout, true);
      EXPECT_TRUE(raisedExpired());
      const PyRef owned = PyRef::steal(record);
      ASSERT_TRUE(owned);
      EXPECT_EQ(Py_TYPE(owned.get()), typeObjectOf(classOfElement<TypeParam>()));
      EXPECT_EQ(getMCPyArrayFromPyObject(owned.get())->mcppPyArray, nullptr);
    }
  }
}

TEST(CloneOf, AViewIsThatPartOnly) {
  const PyRef array = makeRecord(makeArray<double>({2, 3}));
  const PyRef row = evaluate("a[1][::-1]", {{"a", array}});
  const PyRef clone = PyRef::steal(MCPyArray_Clone(row.get(), nullptr));
  EXPECT_EQ(reprOf(clone), "velmar.double([[6.0,4.0,2.0]])");
}

TEST(CloneOf, AnArrayIsThatOfTheFirstCall) {
  const PyRef array = makeRecord(makeArray<double>({1, 3}));
  const PyRef first = PyRef::steal(MCPyArray_Clone(array.get(), nullptr));
  ASSERT_TRUE(viewOf(array).setElementFromIndices<double>({0, 0}, 99.0));
  const PyRef second = PyRef::steal(MCPyArray_Clone(array.get(), nullptr));
  EXPECT_EQ(reprOf(second), "velmar.double([[1.0,2.0,3.0]])");
  EXPECT_NE(viewOf(first).buf(), viewOf(second).buf());
}

TEST(CloneOf, AnotherOrderHasTheOrderOfItsSource) {
  MCppPyArray rowsFirst(sampleArray<double>({2, 3}), SupportedArrayEnum::Double, false, false);
  const auto clone = rowsFirst.cloneAsMCppPyArrayUniquePtr(storageLayout, true);
  ASSERT_NE(clone, nullptr);
  EXPECT_EQ(clone->getOrder(), 'C');
}

// The snapshot is there, but not the storage that tells the order: an error like any other.
TEST(CloneOf, ASnapshotWhoseStorageHasGoneIsRefused) {
  ViewPointer owner = makeArray<double>({2, 3});
  const PyRef weak = PyRef::steal(owner->shallowCopyToMCPyArray());
  ASSERT_TRUE(snapshotOf(viewOf(weak)));
  owner.reset();
  EXPECT_EQ(viewOf(weak).cloneAsMCppPyArrayUniquePtr(storageLayout, true), nullptr);
  EXPECT_TRUE(raisedExpired());
  for (const bool throughHandler : {false, true}) {
    EXPECT_FALSE(PyRef::steal(throughHandler ? MCPyArray_Clone(weak.get(), nullptr)
                                             : viewOf(weak).cloneAsMCPyArray(storageLayout, true)));
    EXPECT_TRUE(raisedExpired());
  }
}

TEST(CloneOf, AClassThatWasNotMadeIsReported) {
  const PyRef array = makeRecord(makeArray<double>({1, 1}));
  PyTypeObject* const type = std::exchange(TypeObjectPointers[0], nullptr);
  PyObject* const clone = viewOf(array).cloneAsMCPyArray(storageLayout, true);
  const testing::AssertionResult isReported =
      raised(PyExc_RuntimeError, "unable to initialize C object.");
  TypeObjectPointers[0] = type;
  EXPECT_EQ(clone, nullptr);
  EXPECT_TRUE(isReported);
}

TEST(CloneOf, ARecordWithoutAViewIsReported) {
  const PyRef record = PyRef::steal(allocMCPyArray(typeObjectOf(SupportedArrayEnum::Double)));
  for (PyObject* self : {record.get(), static_cast<PyObject*>(nullptr)}) {
    EXPECT_EQ(MCPyArray_Clone(self, nullptr), nullptr);
    EXPECT_TRUE(raised(PyExc_RuntimeError, "object not initialized."));
    EXPECT_EQ(MCPyArray_Reduce(self, nullptr), nullptr);
    EXPECT_TRUE(raised(PyExc_RuntimeError, "object not initialized."));
  }
}

// --- Arguments for making an array anew

TEST(Reduction, IsTheClassAndItsArguments) {
  struct Row {
    const char* part;
    const char* expected;
  };
  const Row rows[] = {
      {"a", "({}, [[1.0, 3.0, 5.0], [2.0, 4.0, 6.0]])"},
      {"a[1]", "({}, [2.0, 4.0, 6.0])"},
      // Deliberate: a final slice is not honoured.
      {"a[1:]", "({}, [[1.0, 3.0, 5.0], [2.0, 4.0, 6.0]])"},
      {"a[1][0:1]", "({}, [2.0, 4.0, 6.0])"},
      {"a[0:0]", "({}, [[1.0, 3.0, 5.0], [2.0, 4.0, 6.0]])"},
  };
  const PyRef array = makeRecord(makeArray<double>({2, 3}));
  for (const Row& row : rows) {
    SCOPED_TRACE(row.part);
    const PyRef part = evaluate(row.part, {{"a", array}});
    const PyRef pair = PyRef::steal(MCPyArray_Reduce(part.get(), nullptr));
    ASSERT_TRUE(pair);
    ASSERT_EQ(PyTuple_Size(pair.get()), 2);
    EXPECT_EQ(PyTuple_GetItem(pair.get(), 0), reinterpret_cast<PyObject*>(Py_TYPE(array.get())));
    EXPECT_EQ(textOf(PyTuple_GetItem(pair.get(), 1)), row.expected);
    EXPECT_TRUE(viewOf(part).getIndexRestrictedMCppPyArray() == nullptr);
  }
  const PyRef complex = makeRecord(makeArray<std::complex<std::int32_t>>({1, 2}));
  const PyRef pair = PyRef::steal(MCPyArray_Reduce(complex.get(), nullptr));
  EXPECT_EQ(textOf(PyTuple_GetItem(pair.get(), 1)), "({'is_complex': True}, [[(1+61j), (2+62j)]])");
}

TEST(ReductionFailure, ReportsWhatIsOutOfReach) {
  const PyRef gone[] = {makeRecord(makeExpiredView<double>({2, 3})),
                        makeRecord(makeViewWithoutStorage<double>({2, 3}))};
  for (const PyRef& source : gone) {
    EXPECT_EQ(MCPyArray_Reduce(source.get(), nullptr), nullptr);
    EXPECT_TRUE(raisedExpired());
  }
  const ViewPointer owner = makeArray<double>({2, 3});
  const PyRef outside = makeRecord(std::make_unique<MCppPyArray>(*owner, Position{5}, false));
  EXPECT_EQ(MCPyArray_Reduce(outside.get(), nullptr), nullptr);
  EXPECT_TRUE(raised(PyExc_RuntimeError, nullPointer));
}

}  // namespace
