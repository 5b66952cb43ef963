// Iterators: their items, their bounds and their lifetimes.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "module/type_objects.hpp"
#include "operations/handlers.hpp"
#include "operations/iterator.hpp"
#include "python_testing.hpp"
#include "storage_testing.hpp"

namespace {

using namespace python_testing;
using foundation::velmardata::Array;
using velmardata_testing::referenceCount;

testing::AssertionResult isAtItsEnd(MCppPyIter& iterator) {
  const PyRef item = PyRef::steal(iterator.increment());
  if (item) return testing::AssertionFailure() << "there is another item: " << reprOf(item);
  return raised(PyExc_StopIteration, "");
}

// The items: numbers as Python prints them, rows by their chains in angle brackets.
std::string itemsOf(const MCppPyArray& view) {
  MCppPyIter iterator(&view);
  std::string text;
  while (const PyRef item = PyRef::steal(iterator.increment())) {
    if (!text.empty()) text += ' ';
    text += MCPyArray_Check(item.get()) ? "<" + describe(viewOf(item).chain()) + ">" : reprOf(item);
  }
  EXPECT_TRUE(raised(PyExc_StopIteration, ""));
  for (int i = 0; i < 2; ++i) EXPECT_TRUE(isAtItsEnd(iterator));
  return text;
}

// --- Items

struct WalkRow {
  Dimensions dimensions;
  const char* part;
  const char* expected;
};
const WalkRow walkRows[] = {
    {{2, 3}, "a", "<0?> <1?>"},
    {{1, 3}, "a", "<0?>"},
    {{3, 1}, "a", "<0?> <1?> <2?>"},
    {{3}, "a", "1.0 2.0 3.0"},
    {{2, 3}, "a[1]", "2.0 4.0 6.0"},
    {{2, 3}, "a[-1][1:]", "4.0 6.0"},
    {{2, 3}, "a[1][::-1]", "6.0 4.0 2.0"},
    {{2, 3}, "a[1][::-2]", "6.0 2.0"},
    {{2, 3}, "a[::-1]", "<1?> <0?>"},
    {{7, 3}, "a[1:6:2]", "<1?> <3?> <5?>"},
    {{7, 3}, "a[1:6:2][::-1]", "<5?> <3?> <1?>"},
    {{2, 2, 2}, "a", "<0?> <1?>"},
    {{2, 2, 2}, "a[1]", "<1? 0?> <1? 1?>"},
    {{2, 2, 2}, "a[1][::-1]", "<1? 1?> <1? 0?>"},
    {{2, 2, 2}, "a[1][1]", "4.0 8.0"},
    {{0, 3}, "a", ""},
    {{0, 0}, "a", ""},
    {{}, "a", ""},
    {{3, 0}, "a", "<0?> <1?> <2?>"},
    {{3, 0}, "a[0]", ""},
    {{3, 0}, "a[0][:]", ""},
    {{2, 3}, "a[1:1]", ""},
    {{2, 3}, "a[1][2:1]", ""},
    // Extreme steps and strides.
    {{1, 3}, "a[0][::-2**57]", "3.0"},
    {{1, 3}, "a[0][::-2**63 + 1]", "3.0"},
    {{1, 3}, "a[0][::2**63 - 1]", "1.0"},
    {{1UL << 59, 0}, "a[0]", ""},
};

TEST(Iterator, YieldsRowsOrNumbersInTheOrderOfTheView) {
  for (const WalkRow& row : walkRows) {
    SCOPED_TRACE(testing::PrintToString(row.dimensions) + row.part);
    const PyRef array = makeRecord(makeArray<double>(row.dimensions));
    const PyRef part = evaluate(row.part, {{"a", array}});
    EXPECT_EQ(itemsOf(viewOf(part)), row.expected);
    MCppPyArray weak(viewOf(part), true);
    EXPECT_EQ(itemsOf(weak), row.expected);
  }
}

TEST(Iterator, OfAViewWithoutFreeDimensionsIsAtItsEnd) {
  const ViewPointer array = makeArray<double>({2, 3});
  MCppPyArray element(*array, {1, 1}, false);
  EXPECT_EQ(itemsOf(element), "");
}

TYPED_SUITE(IteratorOf, AllTypes, TypeWords);

TYPED_CASE(IteratorOf, YieldsTheNumbersOfARow) {
  const ViewPointer array = makeArray<TypeParam>({2, 9});
  MCppPyArray row(*array, {1}, false);
  MCppPyArray part(row, false);
  part.appendIndexItem(slice(7, 0, -3, 3));
  MCppPyIter whole(&row);
  for (std::int64_t k = 0; k < 9; ++k) {
    const PyRef number = PyRef::steal(whole.increment());
    const PyRef expected =
        PyRef::steal(array->wrapper()->getElementAsPyObjectFromElementOffset(1 + 2 * k));
    ASSERT_TRUE(number);
    EXPECT_EQ(reprOf(number), reprOf(expected));
    EXPECT_EQ(Py_TYPE(number.get()), Py_TYPE(expected.get()));
  }
  EXPECT_TRUE(isAtItsEnd(whole));
  MCppPyIter backwards(&part);
  for (std::int64_t k = 7; k > 0; k -= 3) {
    const PyRef expected =
        PyRef::steal(array->wrapper()->getElementAsPyObjectFromElementOffset(1 + 2 * k));
    EXPECT_EQ(reprOf(PyRef::steal(backwards.increment())), reprOf(expected));
  }
  EXPECT_TRUE(isAtItsEnd(backwards));
}

TYPED_CASE(IteratorOf, YieldsWeakRowsOfTheClass) {
  const ViewPointer array = makeArray<TypeParam>({2, 3});
  MCppPyIter iterator(array.get());
  for (int i = 0; i < 2; ++i) {
    const PyRef row = PyRef::steal(iterator.increment());
    ASSERT_TRUE(row && MCPyArray_Check(row.get()));
    EXPECT_EQ(Py_TYPE(row.get()), typeObjectOf(classOfElement<TypeParam>()));
    EXPECT_EQ(viewOf(row).isComplex(), isComplexElement<TypeParam>);
    EXPECT_TRUE(viewOf(row).hasWeakPtrToWrapper());
    EXPECT_EQ(viewOf(row).borrowWrapper(), array->borrowWrapper());
  }
  EXPECT_TRUE(isAtItsEnd(iterator));
}

TEST(Iterator, ReadsElementsWrittenMeanwhile) {
  const ViewPointer array = makeArray<double>({1, 3});
  MCppPyArray row(*array, {0}, false);
  MCppPyIter iterator(&row);
  EXPECT_EQ(reprOf(PyRef::steal(iterator.increment())), "1.0");
  ASSERT_TRUE(setElement<double>(*array, {0, 1}, 99.0));
  EXPECT_EQ(reprOf(PyRef::steal(iterator.increment())), "99.0");
}

TEST(Iterator, KeepsTheBoundsOfItsMaking) {
  const ViewPointer array = makeArray<double>({5, 1});
  MCppPyArray view(*array, false);
  view.appendIndexItem(slice(3, 1, -1, 2));
  MCppPyIter whole(array.get());
  MCppPyIter part(&view);
  ASSERT_TRUE(array->wrapper()->reshape(std::array<std::int64_t, 2>{1, 5}, 'F'));
  const auto expectRows = [](MCppPyIter& iterator, const std::vector<std::string>& chains) {
    for (const std::string& chain : chains) {
      const PyRef row = PyRef::steal(iterator.increment());
      ASSERT_TRUE(row);
      EXPECT_EQ(describe(viewOf(row).chain()), chain);
    }
    EXPECT_TRUE(isAtItsEnd(iterator));
  };
  expectRows(whole, {"0?", "1?", "2?", "3?", "4?"});
  expectRows(part, {"3?", "2?"});
}

TEST(Iterator, YieldsTheErrorOfAnElementOutOfReachAndGoesOn) {
  const ViewPointer array = makeArray<double>({2, 3});
  MCppPyArray view(*array, {5}, false);
  MCppPyIter iterator(&view);
  EXPECT_EQ(reprOf(PyRef::steal(iterator.increment())), "6.0");
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(iterator.increment(), nullptr);
    EXPECT_TRUE(raised(PyExc_RuntimeError, "null data pointer."));
  }
  EXPECT_TRUE(isAtItsEnd(iterator));
}

TEST(Iterator, YieldsTheErrorOfARowThatCannotBeMadeAndGoesOn) {
  const ViewPointer array = makeArray<double>({2, 3});
  MCppPyIter iterator(array.get());
  PyTypeObject* const type = std::exchange(TypeObjectPointers[0], nullptr);
  PyObject* const row = iterator.increment();
  const testing::AssertionResult isReported =
      raised(PyExc_RuntimeError, "unable to initialize C object.");
  TypeObjectPointers[0] = type;
  EXPECT_EQ(row, nullptr);
  EXPECT_TRUE(isReported);
  const PyRef next = PyRef::steal(iterator.increment());
  ASSERT_TRUE(next);
  EXPECT_EQ(describe(viewOf(next).chain()), "1?");
  EXPECT_TRUE(isAtItsEnd(iterator));
}

// --- Lifetimes

TEST(IteratorLifetime, KeepsNoStorageAlive) {
  const Array kept = sampleArray<double>({2, 3});
  auto owner = std::make_unique<MCppPyArray>(Array(kept), SupportedArrayEnum::Double, false, true,
                                             Contents::Client);
  MCppPyIter iterator(owner.get());
  const PyRef first = PyRef::steal(iterator.increment());
  const PyRef ofFirst = PyRef::steal(MCPyArray_GetIter(first.get()));
  EXPECT_EQ(referenceCount(kept), 2U);
  owner.reset();
  EXPECT_EQ(referenceCount(kept), 1U);

  const PyRef second = PyRef::steal(iterator.increment());
  ASSERT_TRUE(second) << "rows are made without access to the storage";
  EXPECT_TRUE(raisedNothing());
  for (const PyRef* row : {&first, &second}) {
    EXPECT_EQ(viewOf(*row).getNumberOfDimensions(), -1);
    EXPECT_TRUE(raisedExpired());
    EXPECT_EQ(MCPyArray_GetIter(row->get()), nullptr);
    EXPECT_TRUE(raisedExpired());
  }
  EXPECT_TRUE(isAtItsEnd(iterator));
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(MCPyIter_GetIterNext(ofFirst.get()), nullptr);
    EXPECT_TRUE(raisedExpired());
  }
  EXPECT_EQ(MCPyIter_GetIterNext(ofFirst.get()), nullptr);
  EXPECT_TRUE(raised(PyExc_StopIteration, ""));
}

TEST(IteratorLifetime, RowsLiveAsLongAsAnyStrongView) {
  ViewPointer owner = makeArray<double>({2, 3});
  ViewPointer strong = std::make_unique<MCppPyArray>(*owner, Position{1}, false);
  MCppPyIter iterator(owner.get());
  owner.reset();
  const PyRef row = PyRef::steal(iterator.increment());
  EXPECT_EQ(itemsOf(viewOf(row)), "1.0 3.0 5.0");
  strong.reset();
  EXPECT_EQ(viewOf(row).getNumberOfDimensions(), -1);
  EXPECT_TRUE(raisedExpired());
}

TEST(IteratorLifetime, OfStorageThatHasGoneIsAtItsEnd) {
  const ViewPointer views[] = {makeExpiredView<double>({2, 3}),
                               makeViewWithoutStorage<double>({2, 3})};
  for (const ViewPointer& view : views) {
    MCppPyIter iterator(view.get());
    EXPECT_TRUE(raisedExpired());
    EXPECT_TRUE(isAtItsEnd(iterator));
    EXPECT_TRUE(isAtItsEnd(iterator));
  }
}

// --- The Python object

TEST(IteratorObject, IsItsOwnIterator) {
  const PyRef array = makeRecord(makeArray<double>({2, 3}));
  const PyRef iterator = PyRef::steal(MCPyArray_GetIter(array.get()));
  ASSERT_TRUE(iterator);
  EXPECT_EQ(Py_TYPE(iterator.get()), MCPyIterTypeObj);
  const PyRef same = PyRef::steal(MCPyIter_GetIter(iterator.get()));
  EXPECT_EQ(same.get(), iterator.get());
  for (const char* chain : {"0?", "1?"}) {
    const PyRef row = PyRef::steal(MCPyIter_GetIterNext(iterator.get()));
    ASSERT_TRUE(row);
    EXPECT_EQ(describe(viewOf(row).chain()), chain);
  }
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(MCPyIter_GetIterNext(iterator.get()), nullptr);
    EXPECT_TRUE(raised(PyExc_StopIteration, ""));
  }
}

TEST(IteratorObject, WorksInLoops) {
  const PyRef array = makeRecord(makeArray<double>({2, 3}));
  EXPECT_EQ(reprOf(evaluate("[x for row in a for x in row]", {{"a", array}})),
            "[1.0, 3.0, 5.0, 2.0, 4.0, 6.0]");
  EXPECT_EQ(reprOf(evaluate("[list(row) for row in a[::-1]]", {{"a", array}})),
            "[[2.0, 4.0, 6.0], [1.0, 3.0, 5.0]]");
  EXPECT_EQ(reprOf(evaluate("[next(i), next(i, 'end'), next(i, 'end')]",
                            {{"i", evaluate("iter(a[0][1:2])", {{"a", array}})}})),
            "[3.0, 'end', 'end']");
}

TEST(IteratorObject, WithoutStateIsReported) {
  const PyRef iterator = evaluate("__import__('velmarmultidimarrayforpython').MCPyIter()");
  EXPECT_EQ(MCPyIter_GetIterNext(iterator.get()), nullptr);
  EXPECT_TRUE(raised(PyExc_RuntimeError, "object not initialized."));
  const PyRef same = PyRef::steal(MCPyIter_GetIter(iterator.get()));
  EXPECT_EQ(same.get(), iterator.get());
}

TEST(IteratorObject, OfARecordWithoutAViewIsReported) {
  const PyRef record = PyRef::steal(allocMCPyArray(typeObjectOf(SupportedArrayEnum::Double)));
  EXPECT_EQ(MCPyArray_GetIter(record.get()), nullptr);
  EXPECT_TRUE(raised(PyExc_RuntimeError, "object not initialized."));
}

TEST(IteratorObject, OfAClassThatWasNotMadeIsReported) {
  const PyRef array = makeRecord(makeArray<double>({2, 3}));
  PyTypeObject* const type = std::exchange(MCPyIterTypeObj, nullptr);
  PyObject* const iterator = MCPyArray_GetIter(array.get());
  const testing::AssertionResult isReported =
      raised(PyExc_RuntimeError, "unable to initialize C object.");
  MCPyIterTypeObj = type;
  EXPECT_EQ(iterator, nullptr);
  EXPECT_TRUE(isReported);
}

}  // namespace
