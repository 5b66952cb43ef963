// Snapshots of views: their contents and when they are made. Clones, and arguments for pickling.
#include <gtest/gtest.h>

#include <array>
#include <complex>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "module/type_objects.hpp"
#include "operations/handlers.hpp"
#include "operations/materialisation.hpp"
#include "python_testing.hpp"
#include "storage_testing.hpp"

namespace {

using namespace python_testing;
using namespace foundation::velmardata;
using velmardata_testing::addressOf;
using velmardata_testing::elementsOf;
using velmardata_testing::referenceCount;

// --- Contents

struct PartRow {
  Dimensions array;
  const char* part;
  Dimensions expected;
  std::vector<std::size_t> places;  // of the elements in the array, in the order of the snapshot
};
const PartRow partRows[] = {
    {{2, 3}, "a", {2, 3}, {0, 1, 2, 3, 4, 5}},
    {{1, 3}, "a", {1, 3}, {0, 1, 2}},
    {{3, 1}, "a", {3, 1}, {0, 1, 2}},
    {{4}, "a", {1, 4}, {0, 1, 2, 3}},
    {{2, 3}, "a[0]", {1, 3}, {0, 2, 4}},
    {{2, 3}, "a[1][::-1]", {1, 3}, {5, 3, 1}},
    {{2, 3}, "a[1][0:3:2]", {1, 2}, {1, 5}},
    {{2, 3}, "a[1:2]", {1, 3}, {1, 3, 5}},
    {{2, 3}, "a[::-1]", {2, 3}, {1, 0, 3, 2, 5, 4}},
    {{2, 2, 2}, "a", {2, 2, 2}, {0, 1, 2, 3, 4, 5, 6, 7}},
    {{2, 2, 2}, "a[1]", {2, 2}, {1, 3, 5, 7}},
    {{2, 2, 2}, "a[1][1:2]", {1, 2}, {3, 7}},
    {{2, 2, 2}, "a[1][::-1]", {2, 2}, {3, 1, 7, 5}},
    // Deliberate: without elements the dimensions are those of the storage, but the first is 0.
    {{2, 3}, "a[1:1]", {0, 3}, {}},
    {{2, 3}, "a[1][0:0]", {0, 3}, {}},
    {{2, 3, 4}, "a[1][1][4:9]", {0, 3, 4}, {}},
    {{0, 0}, "a", {0, 0}, {}},
    {{0, 3}, "a", {0, 3}, {}},
    {{3, 0}, "a", {0, 0}, {}},
    {{3, 0}, "a[0]", {0, 0}, {}},
    {{2, 0, 4}, "a", {0, 0, 4}, {}},
};

TYPED_SUITE(Materialisation, AllTypes, TypeWords);

TYPED_CASE(Materialisation, HoldsWhatTheViewShows) {
  for (const PartRow& row : partRows) {
    SCOPED_TRACE(testing::PrintToString(row.array) + row.part);
    const PyRef array = makeRecord(makeArray<TypeParam>(row.array));
    const PyRef part = evaluate(row.part, {{"a", array}});
    const std::optional<Array> snapshot = getIndexedArrayAsMDA(viewOf(part));
    EXPECT_TRUE(raisedNothing());
    ASSERT_TRUE(snapshot);
    EXPECT_EQ(snapshot->getType(), arrayTypeOf<TypeParam>);
    EXPECT_EQ(snapshot->getDimensions(), row.expected);
    std::vector<TypeParam> expected;
    for (const std::size_t place : row.places) expected.push_back(sample<TypeParam>(place));
    EXPECT_EQ(elementsOf(TypedArray<TypeParam>(*snapshot)), expected);
  }
}

TYPED_CASE(Materialisation, SharesNothingWithTheStorage) {
  const ViewPointer array = makeArray<TypeParam>({2, 3});
  const TypedArray<TypeParam> snapshot(*getIndexedArrayAsMDA(*array));
  const TypedArray<TypeParam> stored(array->wrapper()->array());
  EXPECT_NE(snapshot.impl(), stored.impl());
  EXPECT_NE(addressOf(snapshot), addressOf(stored));
}

TYPED_CASE(Materialisation, WorksOnWeakViewsAndReportsStorageThatHasGone) {
  const ViewPointer owner = makeArray<TypeParam>({2, 3});
  MCppPyArray weak(*owner, {1}, true);
  const std::optional<Array> snapshot = getIndexedArrayAsMDA(weak);
  ASSERT_TRUE(snapshot);
  EXPECT_EQ(snapshot->getDimensions(), (Dimensions{1, 3}));

  const ViewPointer views[] = {makeExpiredView<TypeParam>({2, 3}),
                               makeViewWithoutStorage<TypeParam>({2, 3})};
  for (const ViewPointer& view : views) {
    EXPECT_FALSE(getIndexedArrayAsMDA(*view));
    EXPECT_TRUE(raisedExpired());
  }
}

// --- When it is made

TEST(Snapshot, IsMadeOnce) {
  const ViewPointer array = makeArray<double>({2, 3});
  MCppPyArray row(*array, {1}, false);
  EXPECT_FALSE(row.caches().indexedArrayAsMDA());
  const std::optional<Array> first = getIndexedArrayAsMDA(row);
  const std::optional<Array> second = getIndexedArrayAsMDA(row);
  ASSERT_TRUE(first && second);
  EXPECT_EQ(first->impl(), second->impl());
  EXPECT_EQ(row.caches().indexedArrayAsMDA()->impl(), first->impl());
  EXPECT_EQ(referenceCount(*first), 3U) << "the view's own and the two copies";
}

TEST(Snapshot, DoesNotFollowLaterWrites) {
  const ViewPointer array = makeArray<double>({2, 3});
  MCppPyArray row(*array, {1}, false);
  MCppPyArray sameRow(*array, {1}, false);
  for (MCppPyArray* view : {array.get(), &row}) getIndexedArrayAsMDA(*view);
  ASSERT_TRUE(setElement<double>(*array, {1, 1}, 99.0));
  ASSERT_TRUE(setElement<double>(row, {1, 2}, 98.0));
  EXPECT_EQ(elementsOf(TypedArray<double>(*getIndexedArrayAsMDA(*array))), samples<double>(6));
  EXPECT_EQ(elementsOf(TypedArray<double>(*getIndexedArrayAsMDA(row))),
            (std::vector<double>{2, 4, 6}));
  EXPECT_EQ(elementsOf(TypedArray<double>(*getIndexedArrayAsMDA(sameRow))),
            (std::vector<double>{2, 99, 98}))
      << "each view has its own snapshot";
  MCppPyArray copy(row, false);
  EXPECT_EQ(elementsOf(TypedArray<double>(*getIndexedArrayAsMDA(copy))),
            (std::vector<double>{2, 99, 98}))
      << "a copy of a view starts without a snapshot";
  EXPECT_EQ(storedElements<double>(*array), (std::vector<double>{1, 2, 3, 99, 5, 98}));
}

TEST(Snapshot, CanBeGiven) {
  const ViewPointer view = makeExpiredView<double>({2, 3});
  const Array given = sampleArray<float>({7, 1});
  view->setIndexedArrayAsMDA(Array(given));
  const std::optional<Array> snapshot = getIndexedArrayAsMDA(*view);
  ASSERT_TRUE(snapshot);
  EXPECT_EQ(snapshot->impl(), given.impl());
  EXPECT_TRUE(raisedNothing());
}

TEST(Snapshot, OutlivesTheStorage) {
  ViewPointer owner = makeArray<double>({2, 3});
  MCppPyArray weak(*owner, true);
  const std::optional<Array> first = getIndexedArrayAsMDA(weak);
  owner.reset();
  const std::optional<Array> second = getIndexedArrayAsMDA(weak);
  ASSERT_TRUE(first && second);
  EXPECT_EQ(first->impl(), second->impl());
  EXPECT_TRUE(raisedNothing());
}

TEST(Snapshot, IsComplexThroughPythonNumbers) {
  const ViewPointer array = makeArray<std::complex<std::int64_t>>({1, 2});
  constexpr std::int64_t large = (std::int64_t{1} << 60) + 1;
  ASSERT_TRUE(setElement<std::complex<std::int64_t>>(*array, {0, 0}, {large, -3}));
  const std::optional<Array> snapshot = getIndexedArrayAsMDA(*array);
  ASSERT_TRUE(snapshot);
  EXPECT_EQ(elementsOf(TypedArray<std::complex<std::int64_t>>(*snapshot)),
            (std::vector<std::complex<std::int64_t>>{{large - 1, -3}, {2, 62}}))
      << "each part keeps 53 bits";
  const ViewPointer real = makeArray<std::int64_t>({1, 1});
  ASSERT_TRUE(setElement<std::int64_t>(*real, {0, 0}, large));
  EXPECT_EQ(elementsOf(TypedArray<std::int64_t>(*getIndexedArrayAsMDA(*real))),
            std::vector<std::int64_t>{large});
}

// --- Failures

// A reshape of the storage brings the view's only element into reach.
TEST(SnapshotFailure, IsNotKept) {
  const ViewPointer array = makeArray<double>({2, 3});
  MCppPyArray view(*array, {5}, false);
  for (int attempt = 0; attempt < 2; ++attempt) {
    EXPECT_FALSE(getIndexedArrayAsMDA(view));
    EXPECT_TRUE(raised(PyExc_RuntimeError, nullPointer));
    EXPECT_FALSE(view.caches().indexedArrayAsMDA());
  }
  ASSERT_TRUE(array->wrapper()->reshape(std::array<std::int64_t, 2>{6, 1}, 'F'));
  const std::optional<Array> snapshot = getIndexedArrayAsMDA(view);
  ASSERT_TRUE(snapshot);
  EXPECT_EQ(elementsOf(TypedArray<double>(*snapshot)), (std::vector<double>{6}));
}

TEST(SnapshotFailure, StorageWithoutDimensions) {
  const ViewPointer array = makeArray<double>({});
  EXPECT_FALSE(getIndexedArrayAsMDA(*array));
  EXPECT_TRUE(raised(PyExc_RuntimeError, "dimensions are unexpectedly empty."));
}

TEST(SnapshotFailure, ElementOutOfReach) {
  const ViewPointer array = makeArray<double>({2, 3});
  for (const Position& position : {Position{5}, Position{99}, Position{-2}}) {
    MCppPyArray view(*array, position, false);
    EXPECT_FALSE(getIndexedArrayAsMDA(view));
    EXPECT_TRUE(raised(PyExc_RuntimeError, nullPointer));
  }
}

TEST(Snapshot, InMemoryHasAnyNumberOfDimensions) {
  const Dimensions dimensions(200000, 1);
  const ViewPointer array = makeArray<double>(dimensions);
  const std::optional<Array> copy = getIndexedArrayAsMDA(*array);
  EXPECT_TRUE(raisedNothing());
  ASSERT_TRUE(copy);
  EXPECT_EQ(copy->getDimensions(), dimensions);
}

TEST(SnapshotFailure, PendingErrorStays) {
  const ViewPointer array = makeArray<double>({2, 3});
  setError(PyExc_KeyError, "pending");
  EXPECT_FALSE(getIndexedArrayAsMDA(*array));
  EXPECT_TRUE(raised(PyExc_KeyError, "'pending'"));
  EXPECT_FALSE(array->caches().indexedArrayAsMDA());
}

TEST(SnapshotFailure, TooManyDimensions) {
  const ViewPointer array = makeArray<double>(Dimensions(200000, 1));
  // Elements outside the storage are not copied in memory.
  MCppPyArray outside(*array, Position{1}, false);
  EXPECT_FALSE(getIndexedArrayAsMDA(outside));
  EXPECT_TRUE(raisedOwn(PyExc_RecursionError));
}

// --- The restricted copy

TEST(RestrictedCopy, IsMadeOnceAndOnlyForAChain) {
  const PyRef array = makeRecord(makeArray<double>({2, 3}));
  updateIndexRestrictedMCppPyArrayIfNecessary(viewOf(array));
  EXPECT_EQ(viewOf(array).caches().indexRestrictedMCppPyArray(), nullptr);

  const PyRef row = evaluate("a[1]", {{"a", array}});
  updateIndexRestrictedMCppPyArrayIfNecessary(viewOf(row));
  MCppPyArray* const copy = viewOf(row).caches().indexRestrictedMCppPyArray();
  ASSERT_NE(copy, nullptr);
  EXPECT_TRUE(copy->indicesAreEmpty());
  EXPECT_FALSE(copy->hasWeakPtrToWrapper());
  EXPECT_EQ(numbersOf(copy->wrapper()->shape()), (std::vector<std::int64_t>{1, 3}));
  EXPECT_EQ(copy->wrapper()->array().impl(), getIndexedArrayAsMDA(viewOf(row))->impl());

  ASSERT_TRUE(setElement<double>(viewOf(row), {1, 0}, 99.0));
  updateIndexRestrictedMCppPyArrayIfNecessary(viewOf(row));
  EXPECT_EQ(viewOf(row).caches().indexRestrictedMCppPyArray(), copy);
  EXPECT_EQ(storedElements<double>(*copy), (std::vector<double>{2, 4, 6}));
  EXPECT_EQ(storedElements<double>(viewOf(array)), (std::vector<double>{1, 99, 3, 4, 5, 6}));
  EXPECT_EQ(elementsOf(TypedArray<double>(*getIndexedArrayAsMDA(viewOf(row)))),
            (std::vector<double>{2, 4, 6}));
}

// A reshape of the storage brings the view's only element into reach.
TEST(RestrictedCopy, IsMissingAfterAFailureAndMadeByTheNextCall) {
  const ViewPointer array = makeArray<double>({4, 2});
  MCppPyArray view(*array, {5}, false);
  updateIndexRestrictedMCppPyArrayIfNecessary(view);
  EXPECT_TRUE(raised(PyExc_RuntimeError, nullPointer));
  EXPECT_EQ(view.caches().indexRestrictedMCppPyArray(), nullptr);
  ASSERT_TRUE(array->wrapper()->reshape(std::array<std::int64_t, 2>{8, 1}, 'F'));
  updateIndexRestrictedMCppPyArrayIfNecessary(view);
  MCppPyArray* const copy = view.caches().indexRestrictedMCppPyArray();
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(numbersOf(copy->wrapper()->shape()), (std::vector<std::int64_t>{1, 1}));
  EXPECT_EQ(storedElements<double>(*copy), (std::vector<double>{6}));
}

// --- Clones

TYPED_SUITE(Clone, WritableTypes, TypeWords);

TYPED_CASE(Clone, IsAnArrayWithItsOwnStorage) {
  const PyRef array = makeRecord(makeArray<TypeParam>({2, 3}));
  const PyRef weak = makeRecord(std::make_unique<MCppPyArray>(viewOf(array), true));
  for (const PyRef* source : {&array, &weak}) {
    const PyRef clone = PyRef::steal(MCPyArray_Clone(source->get(), nullptr));
    ASSERT_TRUE(clone);
    EXPECT_EQ(Py_TYPE(clone.get()), typeObjectOf(classOfElement<TypeParam>()));
    MCppPyArray& view = viewOf(clone);
    EXPECT_EQ(view.isComplex(), isComplexElement<TypeParam>);
    EXPECT_TRUE(view.indicesAreEmpty());
    EXPECT_FALSE(view.hasWeakPtrToWrapper());
    EXPECT_EQ(view.wrapper()->getOrder(), 'F');
    EXPECT_NE(view.wrapper()->buf(), viewOf(array).wrapper()->buf());
    EXPECT_EQ(storedElements<TypeParam>(view), samples<TypeParam>(6));

    ASSERT_TRUE(setElement<TypeParam>(view, {0, 0}, otherThanSample<TypeParam>(0)));
    EXPECT_EQ(storedElements<TypeParam>(viewOf(array)), samples<TypeParam>(6));
    const PyRef again = PyRef::steal(MCPyArray_Clone(source->get(), nullptr));
    EXPECT_EQ(storedElements<TypeParam>(viewOf(again)), samples<TypeParam>(6))
        << "a write to a clone does not reach the snapshot";
  }
  EXPECT_TRUE(raisedNothing());
}

TYPED_CASE(Clone, OfStorageThatHasGoneHasNoViewAndLeavesTheError) {
  const PyRef sources[] = {makeRecord(makeExpiredView<TypeParam>({2, 3})),
                           makeRecord(makeViewWithoutStorage<TypeParam>({2, 3}))};
  for (const PyRef& source : sources) {
    EXPECT_EQ(cloneAsMCppPyArrayUniquePtr(viewOf(source), Contents::Copied), nullptr);
    EXPECT_TRUE(raisedExpired());
    // Deliberate: there is a record nevertheless.
    for (const bool throughHandler : {false, true}) {
      PyObject* const record = throughHandler ? MCPyArray_Clone(source.get(), nullptr)
                                              : cloneAsMCPyArray(viewOf(source));
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
  ASSERT_TRUE(setElement<double>(viewOf(array), {0, 0}, 99.0));
  const PyRef second = PyRef::steal(MCPyArray_Clone(array.get(), nullptr));
  EXPECT_EQ(reprOf(second), "velmar.double([[1.0,2.0,3.0]])");
  EXPECT_NE(viewOf(first).wrapper()->buf(), viewOf(second).wrapper()->buf());
}

TEST(CloneOf, AnotherOrderHasTheOrderOfItsSource) {
  MCppPyArray rowsFirst(sampleArray<double>({2, 3}), SupportedArrayEnum::Double, false, false,
                        Contents::Own);
  const auto clone = cloneAsMCppPyArrayUniquePtr(rowsFirst, Contents::Copied);
  ASSERT_NE(clone, nullptr);
  EXPECT_EQ(clone->wrapper()->getOrder(), 'C');
}

// The snapshot outlives the storage, but the clone needs the storage to know the order.
TEST(CloneOf, ASnapshotWhoseStorageHasGoneIsRefused) {
  ViewPointer owner = makeArray<double>({2, 3});
  const PyRef weak = makeRecord(std::make_unique<MCppPyArray>(*owner, true));
  ASSERT_TRUE(getIndexedArrayAsMDA(viewOf(weak)));
  owner.reset();
  EXPECT_EQ(cloneAsMCppPyArrayUniquePtr(viewOf(weak), Contents::Copied), nullptr);
  EXPECT_TRUE(raisedExpired());
  for (const bool throughHandler : {false, true}) {
    EXPECT_FALSE(PyRef::steal(throughHandler ? MCPyArray_Clone(weak.get(), nullptr)
                                             : cloneAsMCPyArray(viewOf(weak))));
    EXPECT_TRUE(raisedExpired());
  }
}

// The snapshot is there, but the error stops the clone.
TEST(CloneOf, AnArrayIsRefusedWhileAnErrorIsPending) {
  const ViewPointer array = makeArray<double>({2, 3});
  ASSERT_TRUE(getIndexedArrayAsMDA(*array));
  setError(PyExc_KeyError, "pending");
  EXPECT_EQ(cloneAsMCppPyArrayUniquePtr(*array, Contents::Copied), nullptr);
  EXPECT_TRUE(raised(PyExc_KeyError, "'pending'"));
  EXPECT_NE(cloneAsMCppPyArrayUniquePtr(*array, Contents::Copied), nullptr);
}

TEST(CloneOf, AClassThatWasNotMadeIsReported) {
  const PyRef array = makeRecord(makeArray<double>({1, 1}));
  PyTypeObject* const type = std::exchange(TypeObjectPointers[0], nullptr);
  PyObject* const clone = cloneAsMCPyArray(viewOf(array));
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

// --- Arguments for pickling

TEST(Reduction, IsTheClassAndItsArguments) {
  struct Row {
    const char* part;
    const char* expected;
  };
  const Row rows[] = {
      {"a", "({}, [[1.0, 3.0, 5.0], [2.0, 4.0, 6.0]])"},
      {"a[1]", "({}, [2.0, 4.0, 6.0])"},
      // Deliberate: a final slice does not count.
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
    EXPECT_TRUE(viewOf(part).caches().indexRestrictedMCppPyArray() == nullptr);
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
