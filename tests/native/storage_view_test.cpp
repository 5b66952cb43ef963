// Views: whose storage they share and for how long, what they copy, what they forward.
#include "storage/mcpp_py_array.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "module/type_objects.hpp"
#include "python_testing.hpp"

namespace {

using namespace python_testing;
using namespace foundation::velmardata;
using velmardata_testing::referenceCount;

using Numbers = std::vector<std::int64_t>;

// --- Fresh arrays

template <class T>
class FreshView : public ::testing::Test {};
TYPED_TEST_SUITE(FreshView, ClassTypes, TypeWords);

TYPED_TEST(FreshView, HasStorageOfItsOwnAndNoChain) {
  constexpr SupportedArrayEnum type = classOf<TypeParam>;
  for (const bool isColumnMajor : {true, false}) {
    const Array kept = sampleArray<TypeParam>({2, 3});
    Array moved = kept;
    const MCppPyArray views[] = {MCppPyArray(kept, type, false, isColumnMajor),
                                 MCppPyArray(std::move(moved), type, true, isColumnMajor)};
    EXPECT_EQ(referenceCount(kept), 3U);
    for (const MCppPyArray& view : views) {
      EXPECT_EQ(view.getSupportedArrayEnum(), type);
      EXPECT_EQ(view.isComplex(), &view == &views[1]);
      EXPECT_EQ(view.getOrder(), isColumnMajor ? 'F' : 'C');
      EXPECT_FALSE(view.hasWeakPtrToWrapper());
      EXPECT_TRUE(view.indicesAreEmpty());
      EXPECT_EQ(view.getNumberOfIntegerIndicesSoFar(), 0);
      EXPECT_FALSE(view.sliceInFinalPreexistingPosition());
      EXPECT_EQ(view.finalSlice(), nullptr);
      EXPECT_EQ(view.getIndexRestrictedMCppPyArray(), nullptr);
      EXPECT_EQ(view.array().impl(), kept.impl());
    }
    EXPECT_NE(views[0].buf(), views[1].buf());
  }
}

TEST(FreshViewFailure, UnknownTypeLeavesNothingBehind) {
  const Array unknown = ArrayFactory().createArray(static_cast<ArrayType>(24), {0, 0});
  EXPECT_THROW(MCppPyArray(unknown, SupportedArrayEnum::Double, false, true),
               EArrayUnknownDataType);
  EXPECT_EQ(referenceCount(unknown), 1U);
}

// --- Views of views

// A 4 by 5 by 6 array, and a view of it with a chain.
struct Family {
  ViewPointer array = makeArray<double>({4, 5, 6});
  ViewPointer view = std::make_unique<MCppPyArray>(*array, false);

  Family() {
    IntegerIndexItem integer{2, true};
    SliceIndexItem run = slice(1, 3, 1, 2);
    view->appendIndexItem(integer);
    view->appendIndexItem(run);
  }
};

TEST(CopiedView, HasTheChainAndTheType) {
  for (const bool useWeakPtr : {false, true}) {
    SCOPED_TRACE(useWeakPtr);
    Family family;
    MCppPyArray copy(*family.view, useWeakPtr);
    EXPECT_EQ(copy.hasWeakPtrToWrapper(), useWeakPtr);
    EXPECT_EQ(describe(copy.getRestrictingIndices()), "2 1:3:1/2");
    EXPECT_EQ(copy.getNumberOfIntegerIndicesSoFar(), 1);
    EXPECT_TRUE(copy.sliceInFinalPreexistingPosition());
    EXPECT_EQ(copy.getSupportedArrayEnum(), SupportedArrayEnum::Double);
    EXPECT_FALSE(copy.isComplex());
    EXPECT_EQ(copy.buf(), family.array->buf());

    copy.getIndicesRef().pop_back();
    EXPECT_EQ(describe(copy.getRestrictingIndices()), "2");
    EXPECT_EQ(describe(family.view->getRestrictingIndices()), "2 1:3:1/2");
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
    EXPECT_EQ(describe(view.getRestrictingIndices()), "3? 0? -7?")
        << "positions of the storage, taken as they are";
    EXPECT_EQ(view.getNumberOfIntegerIndicesSoFar(), 3);
    EXPECT_EQ(view.buf(), family.array->buf());
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
    // Deliberate: the strong pointer is what is copied, and a weak view has none.
    {"strong of weak", true, false, false, false},
};

TEST(Sharing, GoesByTheKindOfTheParentAndTheFlag) {
  for (const SharingRow& row : sharingRows) {
    for (const bool atPositions : {false, true}) {
      SCOPED_TRACE(std::string(row.label) + (atPositions ? ", at positions" : ", copied"));
      ViewPointer owner = makeArray<double>({2, 3});
      auto parent = std::make_unique<MCppPyArray>(*owner, row.parentIsWeak);
      const ViewPointer view =
          atPositions ? std::make_unique<MCppPyArray>(*parent, Position{1}, row.useWeakPtr)
                      : std::make_unique<MCppPyArray>(*parent, row.useWeakPtr);
      EXPECT_EQ(view->hasWeakPtrToWrapper(), row.useWeakPtr);
      EXPECT_EQ(view->getNumberOfElements(), row.worksAtFirst ? 6 : -1);
      if (!row.worksAtFirst) {
        EXPECT_TRUE(raisedExpired());
      }
      parent.reset();
      EXPECT_EQ(view->getNumberOfElements(), row.worksAtFirst ? 6 : -1) << "the owner lives";
      if (!row.worksAtFirst) {
        EXPECT_TRUE(raisedExpired());
      }
      owner.reset();
      EXPECT_EQ(view->getNumberOfElements(), row.keepsStorageAlive ? 6 : -1);
      if (!row.keepsStorageAlive) {
        EXPECT_TRUE(raisedExpired());
      }
    }
  }
}

TEST(Sharing, StorageGoesWithTheLastStrongView) {
  const Array kept = sampleArray<double>({2, 3});
  auto owner = std::make_unique<MCppPyArray>(kept, SupportedArrayEnum::Double, false, true);
  auto strong = std::make_unique<MCppPyArray>(*owner, false);
  const MCppPyArray weak(*owner, true);
  EXPECT_EQ(referenceCount(kept), 2U) << "views share the storage and not only the contents";
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
    EXPECT_EQ(weak.getNumberOfElements(), 6);
  }
  EXPECT_FALSE(weak.wrapper());
  EXPECT_TRUE(raisedExpired());
}

// --- Forwarding

struct ForwardingRow {
  const char* operation;
  // Whether the result is that of the storage, and whether it is the one for want of storage.
  std::function<bool(const MCppPyArray&, MDArrayWrapper&)> isForwarded;
  std::function<bool(const MCppPyArray&)> isMissing;
};

const ForwardingRow forwardingRows[] = {
    {"buf", [](auto& view, auto& wrapper) { return view.buf() == wrapper.buf(); },
     [](auto& view) { return view.buf() == nullptr; }},
    {"getBufAsCharPtr",
     [](auto& view, auto& wrapper) {
       return view.getBufAsCharPtr() == reinterpret_cast<char*>(wrapper.buf());
     },
     [](auto& view) { return view.getBufAsCharPtr() == nullptr; }},
    {"getNumberOfDimensions", [](auto& view, auto&) { return view.getNumberOfDimensions() == 2; },
     [](auto& view) { return view.getNumberOfDimensions() == -1; }},
    {"shape", [](auto& view, auto& wrapper) { return &view.shape() == &wrapper.shape(); },
     [](auto& view) { return view.shape().empty(); }},
    {"getOrder", [](auto& view, auto&) { return view.getOrder() == 'F'; },
     [](auto& view) { return view.getOrder() == static_cast<char>(-1); }},
    {"bytewiseStrides",
     [](auto& view, auto& wrapper) { return view.bytewiseStrides() == wrapper.bytewiseStrides(); },
     [](auto& view) { return view.bytewiseStrides() == nullptr; }},
    {"getBufferSizeInBytes", [](auto& view, auto&) { return view.getBufferSizeInBytes() == 12; },
     [](auto& view) { return view.getBufferSizeInBytes() == -1; }},
    {"getElementSizeInBytes", [](auto& view, auto&) { return view.getElementSizeInBytes() == 2; },
     [](auto& view) { return view.getElementSizeInBytes() == -1; }},
    {"isReadOnly", [](auto& view, auto&) { return view.isReadOnly() == 1; },
     [](auto& view) { return view.isReadOnly() == -1; }},
    {"suboffsets", [](auto& view, auto&) { return view.suboffsets() == nullptr; },
     [](auto& view) { return view.suboffsets() == nullptr; }},
    {"getNumberOfElements", [](auto& view, auto&) { return view.getNumberOfElements() == 6; },
     [](auto& view) { return view.getNumberOfElements() == -1; }},
    {"array", [](auto& view, auto& wrapper) { return &view.array() == &wrapper.array(); },
     [](auto& view) { return view.array().impl() == nullptr; }},
    {"format", [](auto& view, auto&) { return view.format() == std::string("h"); },
     [](auto& view) { return view.format() == nullptr; }},
};

TEST(Forwarding, ReachesTheStorage) {
  const ViewPointer strong = makeArray<std::int16_t>({2, 3});
  const MCppPyArray weak(*strong, true);
  const MCppPyArray ofWeak(*strong, {1, 2}, true);
  MDArrayWrapper* const wrapper = strong->wrapper().operator->();
  for (const ForwardingRow& row : forwardingRows) {
    SCOPED_TRACE(row.operation);
    for (const MCppPyArray* view : {&std::as_const(*strong), &weak, &ofWeak}) {
      EXPECT_TRUE(row.isForwarded(*view, *wrapper));
      EXPECT_TRUE(raisedNothing());
    }
  }
}

TEST(Forwarding, ReportsStorageThatHasGone) {
  const ViewPointer views[] = {makeExpiredView<std::int16_t>({2, 3}),
                               makeViewWithoutStorage<std::int16_t>({2, 3})};
  for (const ForwardingRow& row : forwardingRows) {
    SCOPED_TRACE(row.operation);
    for (const ViewPointer& view : views) {
      EXPECT_TRUE(row.isMissing(*view));
      EXPECT_TRUE(raisedExpired());
    }
  }
}

TEST(Forwarding, AccessorsWithoutStorageReportNothing) {
  const ViewPointer view = makeExpiredView<std::complex<float>>({2, 3});
  EXPECT_EQ(view->getSupportedArrayEnum(), SupportedArrayEnum::Single);
  EXPECT_TRUE(view->isComplex());
  EXPECT_EQ(view->getNumberOfIntegerIndicesSoFar(), 0);
  EXPECT_TRUE(view->hasWeakPtrToWrapper());
  EXPECT_TRUE(view->indicesAreEmpty());
  EXPECT_TRUE(view->getIndicesRef().empty());
  EXPECT_TRUE(view->getRestrictingIndices().empty());
  EXPECT_FALSE(view->sliceInFinalPreexistingPosition());
  EXPECT_EQ(view->getIndexRestrictedMCppPyArray(), nullptr);
  EXPECT_TRUE(raisedNothing());
}

// --- What a view caches

TEST(CachedArray, IsReplacedAndGoesWithTheView) {
  const Array first = sampleArray<double>({1, 2});
  const Array second = sampleArray<double>({1, 3});
  {
    const ViewPointer view = makeArray<double>({2, 3});
    view->setIndexedArrayAsMDA(Array(first));
    EXPECT_EQ(referenceCount(first), 2U);
    const MCppPyArray copy(*view, false);
    EXPECT_EQ(referenceCount(first), 2U) << "a view of a view starts without";
    view->setIndexedArrayAsMDA(Array(second));
    EXPECT_EQ(referenceCount(first), 1U);
    EXPECT_EQ(referenceCount(second), 2U);
  }
  EXPECT_EQ(referenceCount(second), 1U);
}

// --- Views as Python objects

TEST(ViewObjects, RecordIsOfTheClassOfTheElements) {
  for (std::size_t i = 0; i < numberOfArrayClasses; ++i) {
    SCOPED_TRACE(i);
    const MCppPyArray view(sampleArray<double>({1, 1}), static_cast<SupportedArrayEnum>(i), false,
                           true);
    const PyRef record = PyRef::steal(view.allocMCPyArrayFromMCppPyArray());
    ASSERT_TRUE(record);
    EXPECT_EQ(Py_TYPE(record.get()), TypeObjectPointers[i]);
    EXPECT_EQ(getMCPyArrayFromPyObject(record.get())->mcppPyArray, nullptr);
  }
}

TEST(ViewObjects, ClassThatWasNotMadeGivesNoRecord) {
  const ViewPointer view = makeArray<double>({1, 1});
  PyTypeObject* const type = std::exchange(TypeObjectPointers[0], nullptr);
  PyObject* const record = view->allocMCPyArrayFromMCppPyArray();
  const testing::AssertionResult isReported =
      raised(PyExc_RuntimeError, "unable to initialize C object.");
  PyObject* const copy = view->shallowCopyToMCPyArray();
  const testing::AssertionResult isReportedAgain =
      raised(PyExc_RuntimeError, "unable to initialize C object.");
  TypeObjectPointers[0] = type;
  EXPECT_EQ(record, nullptr);
  EXPECT_TRUE(isReported);
  EXPECT_EQ(copy, nullptr);
  EXPECT_TRUE(isReportedAgain);
}

TEST(ViewObjects, ShallowCopyIsAWeakViewOfTheSamePart) {
  Family family;
  for (const bool ofWeak : {false, true}) {
    SCOPED_TRACE(ofWeak);
    MCppPyArray view(*family.view, ofWeak);
    const PyRef copy = PyRef::steal(view.shallowCopyToMCPyArray());
    ASSERT_TRUE(copy);
    EXPECT_EQ(Py_TYPE(copy.get()), typeObjectOf(SupportedArrayEnum::Double));
    EXPECT_TRUE(viewOf(copy).hasWeakPtrToWrapper());
    EXPECT_EQ(describe(viewOf(copy).getRestrictingIndices()), "2 1:3:1/2");
    EXPECT_EQ(viewOf(copy).buf(), family.array->buf());
  }
  const PyRef copy = PyRef::steal(family.view->shallowCopyToMCPyArray());
  family.array.reset();
  EXPECT_EQ(viewOf(copy).getNumberOfDimensions(), 3) << "the view it was made of is strong";
  family.view.reset();
  EXPECT_EQ(viewOf(copy).getNumberOfDimensions(), -1);
  EXPECT_TRUE(raisedExpired());
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
  const PyRef weak = PyRef::steal(owner->shallowCopyToMCPyArray());
  for (const WeakSubscriptRow& row : rows) {
    SCOPED_TRACE(row.expression);
    const PyRef result = evaluate(row.expression, {{"a", weak}});
    EXPECT_EQ(viewOf(result).hasWeakPtrToWrapper(), row.isWeak);
    EXPECT_EQ(viewOf(result).buf(), row.hasStorage ? owner->buf() : nullptr);
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
    EXPECT_EQ(viewOf(result).getNumberOfElements(), 120);
  }
}

// Every use that would reach the missing storage says so.
TEST(ViewObjects, UsesOfViewsWithoutStorageAreReported) {
  const ViewPointer owner = makeArray<double>({4, 5});
  const PyRef weak = PyRef::steal(owner->shallowCopyToMCPyArray());
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
    if (isSlice) {  // its chain alone says how long it is
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
