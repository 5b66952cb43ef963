// Views: which storage they share and for how long, their chains, their caches.
#include "storage/mcpp_py_array.hpp"

#include <gtest/gtest.h>

#include <complex>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "python_testing.hpp"

namespace {

using namespace python_testing;
using namespace foundation::velmardata;
using velmardata_testing::copyOf;
using velmardata_testing::referenceCount;

// --- New arrays

TYPED_SUITE(FreshView, ClassTypes, TypeWords);

TYPED_CASE(FreshView, HasStorageOfItsOwnAndNoChain) {
  constexpr SupportedArrayEnum type = classOf<TypeParam>;
  for (const bool isColumnMajor : {true, false}) {
    const Array kept = sampleArray<TypeParam>({2, 3});
    const MCppPyArray views[] = {
        MCppPyArray(copyOf(kept), type, false, isColumnMajor, Contents::Client),
        MCppPyArray(copyOf(kept), type, true, isColumnMajor, Contents::Client)};
    EXPECT_EQ(referenceCount(kept), 3U);
    for (const MCppPyArray& view : views) {
      EXPECT_EQ(view.getSupportedArrayEnum(), type);
      EXPECT_EQ(view.isComplex(), &view == &views[1]);
      EXPECT_EQ(view.wrapper()->getOrder(), isColumnMajor ? 'F' : 'C');
      EXPECT_FALSE(view.hasWeakPtrToWrapper());
      EXPECT_TRUE(view.indicesAreEmpty());
      EXPECT_EQ(view.getNumberOfIntegerIndicesSoFar(), 0);
      EXPECT_TRUE(view.chain().isEmpty());
      EXPECT_EQ(view.wrapper()->array().impl(), kept.impl());
    }
    EXPECT_NE(views[0].wrapper()->buf(), views[1].wrapper()->buf());
  }
}

TEST(FreshViewFailure, UnknownTypeLeavesNothingBehind) {
  const Array unknown = ArrayFactory().createArray(static_cast<ArrayType>(24), {0, 0});
  EXPECT_THROW(
      MCppPyArray(copyOf(unknown), SupportedArrayEnum::Double, false, true, Contents::Client),
      EArrayUnknownDataType);
  EXPECT_EQ(referenceCount(unknown), 1U);
}

// --- Views of views

// A 4 by 5 by 6 array, and a view of it with a chain.
struct Family {
  ViewPointer array = makeArray<double>({4, 5, 6});
  ViewPointer view = std::make_unique<MCppPyArray>(*array, false);

  Family() {
    view->appendIndexItem(IntegerIndexItem{2, true});
    view->appendIndexItem(slice(1, 3, 1, 2));
  }
};

TEST(CopiedView, HasAChainOfItsOwnAndTheType) {
  for (const bool useWeakPtr : {false, true}) {
    SCOPED_TRACE(useWeakPtr);
    Family family;
    MCppPyArray copy(*family.view, useWeakPtr);
    EXPECT_EQ(copy.hasWeakPtrToWrapper(), useWeakPtr);
    EXPECT_EQ(describe(copy.chain()), "2 1:3:1/2");
    EXPECT_FALSE(copy.indicesAreEmpty());
    EXPECT_EQ(copy.getNumberOfIntegerIndicesSoFar(), 1);
    EXPECT_EQ(entriesOf(copy.getIntegerIndicesSoFar()), (std::vector<std::int64_t>{2}));
    EXPECT_EQ(copy.getSupportedArrayEnum(), SupportedArrayEnum::Double);
    EXPECT_FALSE(copy.isComplex());
    EXPECT_EQ(copy.borrowWrapper(), family.array->borrowWrapper());

    MCppPyArray row(copy, IntegerIndexItem{1, true}, useWeakPtr);
    row.appendIndexItem(slice(0, 4, 2, 2));
    EXPECT_EQ(describe(row.chain()), "2 1 0:4:2/2");
    EXPECT_EQ(entriesOf(row.getIntegerIndicesSoFar()), (std::vector<std::int64_t>{2, 1}));
    EXPECT_EQ(row.hasWeakPtrToWrapper(), useWeakPtr);
    EXPECT_EQ(row.borrowWrapper(), family.array->borrowWrapper());
    EXPECT_EQ(describe(copy.chain()), "2 1:3:1/2");
    EXPECT_EQ(describe(family.view->chain()), "2 1:3:1/2");
  }
}

TEST(CopiedView, OfAComplexArrayIsComplex) {
  const ViewPointer array = makeArray<std::complex<std::int8_t>>({2, 3});
  const MCppPyArray copy(*array, false);
  const MCppPyArray atPositions(*array, {1}, true);
  for (const MCppPyArray* view : {&copy, &atPositions}) {
    EXPECT_TRUE(view->isComplex());
    EXPECT_EQ(view->getSupportedArrayEnum(), SupportedArrayEnum::Int8);
  }
}

TEST(ViewAtPositions, HasAChainOfItsOwn) {
  for (const bool useWeakPtr : {false, true}) {
    SCOPED_TRACE(useWeakPtr);
    Family family;
    const MCppPyArray view(*family.view, {3, 0, -7}, useWeakPtr);
    EXPECT_EQ(view.hasWeakPtrToWrapper(), useWeakPtr);
    EXPECT_EQ(describe(view.chain()), "3? 0? -7?") << "positions of the storage are not checked";
    EXPECT_EQ(view.getNumberOfIntegerIndicesSoFar(), 3);
    EXPECT_EQ(entriesOf(view.getIntegerIndicesSoFar()), (std::vector<std::int64_t>{3, 0, -7}));
    EXPECT_EQ(view.borrowWrapper(), family.array->borrowWrapper());
  }
}

TEST(ViewAtPositions, CanHaveNone) {
  Family family;
  const MCppPyArray view(*family.view, Position(), false);
  EXPECT_TRUE(view.indicesAreEmpty());
  EXPECT_EQ(view.getNumberOfIntegerIndicesSoFar(), 0);
}

struct SharingRow {
  const char* label;
  bool parentIsWeak;
  bool useWeakPtr;
  bool worksAtFirst;
  bool keepsStorageAlive;
};
constexpr SharingRow sharingRows[] = {
    {"strong of strong", false, false, true, true},
    {"weak of strong", false, true, true, false},
    {"weak of weak", true, true, true, false},
    // Deliberate: the strong pointer is copied, and a weak view has none.
    {"strong of weak", true, false, false, false},
};

TEST(Sharing, DependsOnTheParentAndTheFlag) {
  for (const SharingRow& row : sharingRows) {
    for (const bool atPositions : {false, true}) {
      SCOPED_TRACE(std::string(row.label) + (atPositions ? ", at positions" : ", copied"));
      ViewPointer owner = makeArray<double>({2, 3});
      auto parent = std::make_unique<MCppPyArray>(*owner, row.parentIsWeak);
      const ViewPointer view =
          atPositions ? std::make_unique<MCppPyArray>(*parent, Position{1}, row.useWeakPtr)
                      : std::make_unique<MCppPyArray>(*parent, row.useWeakPtr);
      EXPECT_EQ(view->hasWeakPtrToWrapper(), row.useWeakPtr);
      EXPECT_EQ(view->getNumberOfDimensions(), row.worksAtFirst ? 2 : -1);
      if (!row.worksAtFirst) {
        EXPECT_TRUE(raisedExpired());
      }
      parent.reset();
      EXPECT_EQ(view->getNumberOfDimensions(), row.worksAtFirst ? 2 : -1) << "the owner lives";
      if (!row.worksAtFirst) {
        EXPECT_TRUE(raisedExpired());
      }
      owner.reset();
      EXPECT_EQ(view->getNumberOfDimensions(), row.keepsStorageAlive ? 2 : -1);
      if (!row.keepsStorageAlive) {
        EXPECT_TRUE(raisedExpired());
      }
    }
  }
}

TEST(Sharing, StorageIsFreedWithTheLastStrongView) {
  const Array kept = sampleArray<double>({2, 3});
  auto owner = std::make_unique<MCppPyArray>(copyOf(kept), SupportedArrayEnum::Double, false, true,
                                             Contents::Client);
  auto strong = std::make_unique<MCppPyArray>(*owner, false);
  const MCppPyArray weak(*owner, true);
  EXPECT_EQ(referenceCount(kept), 2U) << "the views share one storage";
  owner.reset();
  EXPECT_EQ(referenceCount(kept), 2U);
  strong.reset();
  EXPECT_EQ(referenceCount(kept), 1U);
}

TEST(Sharing, AccessKeepsTheStorageOfAWeakViewAlive) {
  ViewPointer owner = makeArray<double>({2, 3});
  const MCppPyArray weak(*owner, true);
  {
    const WrapperAccess access = weak.wrapper();
    ASSERT_TRUE(access);
    owner.reset();
    EXPECT_EQ(access->getNumberOfElements(), 6);
    EXPECT_EQ(weak.wrapper()->getNumberOfElements(), 6);
  }
  EXPECT_FALSE(weak.wrapper());
  EXPECT_TRUE(raisedExpired());
}

TEST(StorageAccess, FindsTheSharedStorage) {
  const ViewPointer strong = makeArray<std::int16_t>({2, 3});
  const MCppPyArray weak(*strong, true);
  const MCppPyArray ofWeak(weak, {1, 2}, true);
  const MDArrayWrapper* const storage = strong->wrapper().operator->();
  for (const MCppPyArray* view : {&std::as_const(*strong), &weak, &ofWeak}) {
    const WrapperAccess access = view->wrapper();
    EXPECT_TRUE(access);
    EXPECT_EQ(access.operator->(), storage);
    EXPECT_EQ(&*access, storage);
    EXPECT_EQ(view->borrowWrapper(), storage);
    EXPECT_EQ(view->getNumberOfDimensions(), 2);
  }
  EXPECT_TRUE(raisedNothing());
}

TEST(StorageAccess, ReportsExpiredStorage) {
  const ViewPointer views[] = {makeExpiredView<std::int16_t>({2, 3}),
                               makeViewWithoutStorage<std::int16_t>({2, 3})};
  for (const ViewPointer& view : views) {
    EXPECT_FALSE(view->wrapper());
    EXPECT_TRUE(raisedExpired());
    EXPECT_EQ(view->borrowWrapper(), nullptr);
    EXPECT_TRUE(raisedExpired());
    EXPECT_EQ(view->getNumberOfDimensions(), -1);
    EXPECT_TRUE(raisedExpired());
  }
}

TEST(StorageAccess, IsNotNeededForTypeChainAndCaches) {
  const ViewPointer view = makeExpiredView<std::complex<float>>({2, 3});
  EXPECT_EQ(view->getSupportedArrayEnum(), SupportedArrayEnum::Single);
  EXPECT_TRUE(view->isComplex());
  EXPECT_EQ(view->getNumberOfIntegerIndicesSoFar(), 0);
  EXPECT_TRUE(view->getIntegerIndicesSoFar().empty());
  EXPECT_TRUE(view->hasWeakPtrToWrapper());
  EXPECT_TRUE(view->indicesAreEmpty());
  EXPECT_TRUE(view->chain().isEmpty());
  EXPECT_FALSE(view->caches().indexedArrayAsMDA());
  EXPECT_EQ(view->caches().indexRestrictedMCppPyArray(), nullptr);
  EXPECT_TRUE(raisedNothing());
}

// --- Caches

TEST(CachedArray, IsReplacedAndReleasedWithTheView) {
  const Array first = sampleArray<double>({1, 2});
  const Array second = sampleArray<double>({1, 3});
  {
    const ViewPointer view = makeArray<double>({2, 3});
    EXPECT_FALSE(view->caches().indexedArrayAsMDA());
    view->setIndexedArrayAsMDA(copyOf(first));
    EXPECT_EQ(view->caches().indexedArrayAsMDA()->impl(), first.impl());
    EXPECT_EQ(referenceCount(first), 2U);
    MCppPyArray copy(*view, false);
    EXPECT_FALSE(copy.caches().indexedArrayAsMDA()) << "a view of a view has caches of its own";
    EXPECT_EQ(referenceCount(first), 2U);
    view->setIndexedArrayAsMDA(copyOf(second));
    EXPECT_EQ(referenceCount(first), 1U);
    EXPECT_EQ(referenceCount(second), 2U);
  }
  EXPECT_EQ(referenceCount(second), 1U);
}

TEST(CachedView, FirstOneIsKept) {
  const Array first = sampleArray<double>({1, 2});
  const Array second = sampleArray<double>({1, 3});
  const auto makeViewOf = [](const Array& array) {
    return std::make_unique<MCppPyArray>(copyOf(array), SupportedArrayEnum::Double, false, true,
                                         Contents::Client);
  };
  {
    ViewCaches caches;
    EXPECT_EQ(caches.indexRestrictedMCppPyArray(), nullptr);
    caches.keepIndexRestrictedMCppPyArray(nullptr);
    EXPECT_EQ(caches.indexRestrictedMCppPyArray(), nullptr);
    caches.keepIndexRestrictedMCppPyArray(makeViewOf(first));
    caches.keepIndexRestrictedMCppPyArray(makeViewOf(second));
    caches.keepIndexRestrictedMCppPyArray(nullptr);
    ASSERT_NE(caches.indexRestrictedMCppPyArray(), nullptr);
    EXPECT_EQ(caches.indexRestrictedMCppPyArray()->wrapper()->array().impl(), first.impl());
    EXPECT_EQ(referenceCount(first), 2U);
    EXPECT_EQ(referenceCount(second), 1U);
  }
  EXPECT_EQ(referenceCount(first), 1U) << "the cache owns the view";
}

// --- Views as Python objects

PyRef makeWeakRecord(const MCppPyArray& owner) {
  return makeRecord(std::make_unique<MCppPyArray>(owner, true));
}

struct WeakSubscriptRow {
  const char* expression;
  bool isWeak;
  bool hasStorage;
};

TEST(ViewObjects, SubscriptOfAWeakViewIsWeakAndItsSliceHasNoStorage) {
  const WeakSubscriptRow rows[] = {
      {"a[1]", true, true},       {"a[1][2]", true, true},       {"a[1:]", false, false},
      {"a[1][2:]", false, false}, {"a[1:][::-1]", false, false},
  };
  const ViewPointer owner = makeArray<double>({4, 5, 6});
  const PyRef weak = makeWeakRecord(*owner);
  for (const WeakSubscriptRow& row : rows) {
    SCOPED_TRACE(row.expression);
    const PyRef result = evaluate(row.expression, {{"a", weak}});
    EXPECT_EQ(viewOf(result).hasWeakPtrToWrapper(), row.isWeak);
    EXPECT_EQ(viewOf(result).borrowWrapper(), row.hasStorage ? owner->borrowWrapper() : nullptr);
    if (!row.hasStorage) {
      EXPECT_TRUE(raisedExpired());
    }
  }
}

TEST(ViewObjects, SubscriptOfAStrongViewIsStrong) {
  PyRef array = makeRecord(makeArray<double>({4, 5, 6}));
  const PyRef results[] = {evaluate("a[1]", {{"a", array}}), evaluate("a[1:]", {{"a", array}}),
                           evaluate("a[1][2:][0]", {{"a", array}})};
  array = PyRef();
  for (const PyRef& result : results) {
    EXPECT_FALSE(viewOf(result).hasWeakPtrToWrapper());
    ASSERT_TRUE(viewOf(result).wrapper());
    EXPECT_EQ(viewOf(result).wrapper()->getNumberOfElements(), 120);
  }
}

// Every use that needs the storage reports that it is missing.
TEST(ViewObjects, UsesOfViewsWithoutStorageAreReported) {
  const ViewPointer owner = makeArray<double>({4, 5});
  const PyRef weak = makeWeakRecord(*owner);
  const PyRef sliceOfWeak = evaluate("a[1:3]", {{"a", weak}});
  const PyRef expired = makeRecord(makeExpiredView<double>({4, 5}));
  const PyRef zero = evaluate("0");
  const PyRef all = evaluate("slice(None)");
  for (const PyRef* object : {&sliceOfWeak, &expired}) {
    const bool isSlice = object == &sliceOfWeak;
    SCOPED_TRACE(isSlice ? "slice of a weak view" : "expired view");
    EXPECT_EQ(PyObject_Str(object->get()), nullptr);
    EXPECT_TRUE(raisedExpired());
    EXPECT_EQ(PyObject_Repr(object->get()), nullptr);
    EXPECT_TRUE(raisedExpired());
    EXPECT_EQ(PyObject_GetItem(object->get(), zero.get()), nullptr);
    EXPECT_TRUE(raisedExpired());
    EXPECT_EQ(PySequence_GetItem(object->get(), 0), nullptr);
    EXPECT_TRUE(raisedExpired());
    if (isSlice) {  // its length is in the chain
      EXPECT_EQ(PyObject_Length(object->get()), 2);
      EXPECT_TRUE(PyRef::steal(PyObject_GetItem(object->get(), all.get())));
      EXPECT_TRUE(raisedNothing());
    } else {
      EXPECT_EQ(PyObject_Length(object->get()), -1);
      EXPECT_TRUE(raisedExpired());
      EXPECT_EQ(PyObject_GetItem(object->get(), all.get()), nullptr);
      EXPECT_TRUE(raisedExpired());
    }
  }
}

}  // namespace
