// Function 2 of the capsule: the library array of a Python array or view, and its references.
#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "client_testing.hpp"

namespace {

using namespace client_testing;

constexpr const char* notInitialized = "object not initialized.";

TYPED_SUITE(HandingOut, WritableTypes, TypeNames);

// --- Arrays without subscripts

TYPED_CASE(HandingOut, GivesTheArrayItselfWithANewReference) {
  const Array array = sampleArray<TypeParam>({2, 3});
  const PyRef adopted = adopt(array);
  const Py_ssize_t references = Py_REFCNT(adopted.get());
  void* const impl = capsuleTable().MCPyArrayToMDAImpl(adopted.get());
  EXPECT_EQ(impl, array.impl());
  EXPECT_EQ(referenceCount(array), 3U);
  void* const again = capsuleTable().MCPyArrayToMDAImpl(adopted.get());
  EXPECT_EQ(again, impl);
  EXPECT_EQ(referenceCount(array), 4U);
  EXPECT_EQ(Py_REFCNT(adopted.get()), references);
  releaseReference(static_cast<ArrayImpl*>(again));
  releaseReference(static_cast<ArrayImpl*>(impl));
  EXPECT_EQ(referenceCount(array), 2U);
  EXPECT_TRUE(raisedNothing());
}

TYPED_CASE(HandingOut, GivesArraysMadeByPython) {
  const PyRef object = pythonSamples<TypeParam>();
  const Array array = handOut(object);
  EXPECT_TRUE(raisedNothing());
  EXPECT_EQ(referenceCount(array), 2U);
  EXPECT_EQ(array.getType(), arrayTypeOf<TypeParam>);
  EXPECT_EQ(array.getDimensions(), (Dimensions{2, 3}));
  EXPECT_EQ(elementsOf(TypedArray<TypeParam>(array)), samples<TypeParam>(6));
}

TYPED_CASE(HandingOut, OutlivesTheObject) {
  PyRef object = pythonSamples<TypeParam>();
  const Array array = handOut(object);
  object = PyRef();
  EXPECT_EQ(referenceCount(array), 1U);
  EXPECT_EQ(elementsOf(TypedArray<TypeParam>(array)), samples<TypeParam>(6));
}

TYPED_CASE(HandingOut, WritesDoNotReachTheOtherSide) {
  const PyRef object = pythonSamples<TypeParam>();
  TypedArray<TypeParam> array(handOut(object));
  *array.begin() = otherThanSample<TypeParam>(0);
  EXPECT_EQ(reprOf(object), textOfRows(samples<TypeParam>(6)));
  EXPECT_EQ(elementsOf(TypedArray<TypeParam>(handOut(object))), samples<TypeParam>(6));

  const TypedArray<TypeParam> before(handOut(object));
  setFromPython(object, 1, 2, otherThanSample<TypeParam>(5));
  EXPECT_EQ(elementsOf(before), samples<TypeParam>(6));
  std::vector<TypeParam> clients = samples<TypeParam>(6);
  clients[0] = otherThanSample<TypeParam>(0);
  EXPECT_EQ(elementsOf(array), clients);
  std::vector<TypeParam> written = samples<TypeParam>(6);
  written[5] = otherThanSample<TypeParam>(5);
  EXPECT_EQ(elementsOf(TypedArray<TypeParam>(handOut(object))), written);
}

// --- Views

TYPED_CASE(HandingOut, GivesACopyOfAView) {
  const Array array = sampleArray<TypeParam>({2, 3});
  const PyRef adopted = adopt(array);
  const PyRef row = evaluate("a[1]", {{"a", adopted}});
  const Py_ssize_t references = Py_REFCNT(row.get());
  const Array copy = handOut(row);
  EXPECT_TRUE(raisedNothing());
  ASSERT_NE(copy.impl(), nullptr);
  EXPECT_NE(copy.impl(), array.impl());
  EXPECT_EQ(copy.getType(), arrayTypeOf<TypeParam>);
  EXPECT_EQ(copy.getDimensions(), (Dimensions{1, 3}));
  const TypedArray<TypeParam> elements(copy);
  EXPECT_EQ(
      elementsOf(elements),
      (std::vector<TypeParam>{sample<TypeParam>(1), sample<TypeParam>(3), sample<TypeParam>(5)}));
  EXPECT_NE(addressOf(elements), addressOf(TypedArray<TypeParam>(array)));
  EXPECT_EQ(referenceCount(array), 2U) << "the copy holds no reference to the whole array";
  EXPECT_EQ(referenceCount(copy), 3U) << "of the view, the handle and the typed handle";
  EXPECT_EQ(Py_REFCNT(row.get()), references);
}

TYPED_CASE(HandingOut, GivesOneCopyForEachView) {
  const PyRef object = pythonSamples<TypeParam>();
  PyRef row = evaluate("a[1]", {{"a", object}});
  const PyRef sameRow = evaluate("a[1]", {{"a", object}});
  const Array first = handOut(row);
  const Array second = handOut(row);
  EXPECT_EQ(second.impl(), first.impl());
  EXPECT_EQ(referenceCount(first), 3U);

  // Deliberate: the copy is made once, and later writes do not reach it.
  setFromPython(object, 1, 2, otherThanSample<TypeParam>(5));
  const Array third = handOut(row);
  EXPECT_EQ(third.impl(), first.impl());
  EXPECT_EQ(elementAt<TypeParam>(third, 2), sample<TypeParam>(5));
  const Array other = handOut(sameRow);
  EXPECT_NE(other.impl(), first.impl());
  EXPECT_EQ(elementAt<TypeParam>(other, 2), otherThanSample<TypeParam>(5));

  row = PyRef();
  EXPECT_EQ(referenceCount(first), 3U) << "only those of the three handles";
}

TYPED_CASE(HandingOut, WritesToTheCopyOfAViewDoNotReachTheView) {
  const PyRef object = pythonSamples<TypeParam>();
  const PyRef row = evaluate("a[1]", {{"a", object}});
  TypedArray<TypeParam> copy(handOut(row));
  *copy.begin() = otherThanSample<TypeParam>(1);
  EXPECT_EQ(elementAt<TypeParam>(handOut(row), 0), sample<TypeParam>(1));
  EXPECT_EQ(reprOf(object), textOfRows(samples<TypeParam>(6)));
}

struct ViewRow {
  const char* view;  // of 2 by 3 samples
  Dimensions dimensions;
  std::vector<double> elements;  // in storage order
};
const ViewRow viewRows[] = {
    {"a[0]", {1, 3}, {1, 3, 5}},
    {"a[-1]", {1, 3}, {2, 4, 6}},
    {"a[1][::-1]", {1, 3}, {6, 4, 2}},
    {"a[1][::2]", {1, 2}, {2, 6}},
    {"a[1][2:]", {1, 1}, {6}},
    {"a[:]", {2, 3}, {1, 2, 3, 4, 5, 6}},
    {"a[::-1]", {2, 3}, {2, 1, 4, 3, 6, 5}},
    {"a[1:]", {1, 3}, {2, 4, 6}},
    {"a[1:][0]", {1, 3}, {2, 4, 6}},
    {"list(a)[1]", {1, 3}, {2, 4, 6}},
    // Deliberate: without elements the dimensions are those of the whole array, except that the
    // first is 0.
    {"a[1:1]", {0, 3}, {}},
    {"a[1][3:]", {0, 3}, {}},
};

TEST(HandingOutOf, EveryFormOfView) {
  const Array array = sampleArray<double>({2, 3});
  const PyRef adopted = adopt(array);
  for (const ViewRow& row : viewRows) {
    SCOPED_TRACE(row.view);
    const PyRef view = evaluate(row.view, {{"a", adopted}});
    const Array copy = handOut(view);
    EXPECT_TRUE(raisedNothing());
    ASSERT_NE(copy.impl(), nullptr);
    EXPECT_NE(copy.impl(), array.impl());
    EXPECT_EQ(copy.getDimensions(), row.dimensions);
    EXPECT_EQ(elementsOf(TypedArray<double>(copy)), row.elements);
    EXPECT_EQ(referenceCount(copy), 2U);
    EXPECT_EQ(referenceCount(array), 2U);
  }
}

TEST(HandingOutOf, ArraysOfMoreDimensions) {
  const PyRef adopted = adopt(sampleArray<std::int16_t>({2, 2, 3}));
  const PyRef plane = evaluate("a[1]", {{"a", adopted}});
  const PyRef row = evaluate("a[1][0]", {{"a", adopted}});
  EXPECT_EQ(handOut(adopted).getDimensions(), (Dimensions{2, 2, 3}));
  EXPECT_EQ(handOut(plane).getDimensions(), (Dimensions{2, 3}));
  EXPECT_EQ(elementsOf(TypedArray<std::int16_t>(handOut(plane))),
            (std::vector<std::int16_t>{2, 4, 6, 8, 10, 12}));
  EXPECT_EQ(handOut(row).getDimensions(), (Dimensions{1, 3}));
  EXPECT_EQ(elementsOf(TypedArray<std::int16_t>(handOut(row))),
            (std::vector<std::int16_t>{2, 6, 10}));
}

TEST(HandingOutOf, AReshapedArrayHasItsNewDimensions) {
  const Array array = sampleArray<double>({2, 3});
  const PyRef adopted = adopt(array);
  evaluate("a.reshape((3, 2))", {{"a", adopted}});
  const Array reshaped = handOut(adopted);
  EXPECT_EQ(reshaped.getDimensions(), (Dimensions{3, 2}));
  EXPECT_EQ(elementsOf(TypedArray<double>(reshaped)), samples<double>(6));
  EXPECT_EQ(array.getDimensions(), (Dimensions{2, 3})) << "the array of the client is unchanged";
}

// --- Round trips

TYPED_CASE(HandingOut, RoundTripGivesTheSameArray) {
  Array array = sampleArray<TypeParam>({2, 3});
  const ArrayImpl* const impl = array.impl();
  PyRef object = adopt(array);
  array = Array();
  for (int i = 0; i < 3; ++i) {
    const Array handed = handOut(object);
    object = adopt(handed);
    ASSERT_TRUE(object);
    EXPECT_EQ(handed.impl(), impl);
  }
  EXPECT_EQ(impl->m_referenceCount.load(), 1U) << "the reference of the last object";
  EXPECT_EQ(reprOf(object), textOfRows(samples<TypeParam>(6)));
}

TYPED_CASE(HandingOut, RoundTripOfAViewGivesANewArray) {
  const PyRef object = pythonSamples<TypeParam>();
  const PyRef view = evaluate("a[::-1]", {{"a", object}});
  const PyRef back = adopt(handOut(view));
  EXPECT_EQ(reprOf(back), reprOf(view));
  setFromPython(back, 0, 0, otherThanSample<TypeParam>(1));
  EXPECT_EQ(reprOf(object), textOfRows(samples<TypeParam>(6)));
  EXPECT_EQ(elementAt<TypeParam>(handOut(view), 0), sample<TypeParam>(1));
}

// --- Failures

TEST(HandingOutFailure, OtherObjectsAreReported) {
  EXPECT_EQ(capsuleTable().MCPyArrayToMDAImpl(nullptr), nullptr);
  EXPECT_TRUE(raised(PyExc_RuntimeError, notInitialized));
  const char* const objects[] = {
      "None",
      "5",
      "1.5",
      "'text'",
      "[[1.0, 2.0]]",
      "b'bytes'",
      "object()",
      "type",
      "__import__",
      "iter(__import__('velmar').double([1]))",
      "__import__('velmar').double",
      "memoryview(__import__('velmar').double([1]))",
  };
  for (const char* expression : objects) {
    SCOPED_TRACE(expression);
    const PyRef object = evaluate(expression);
    const Py_ssize_t references = Py_REFCNT(object.get());
    EXPECT_EQ(capsuleTable().MCPyArrayToMDAImpl(object.get()), nullptr);
    EXPECT_TRUE(raised(PyExc_RuntimeError, notInitialized));
    EXPECT_EQ(Py_REFCNT(object.get()), references);
  }
}

TYPED_CASE(HandingOut, ReportsARecordBeforeItsConstruction) {
  const PyRef record = bareRecord(classObject<TypeParam>());
  EXPECT_EQ(capsuleTable().MCPyArrayToMDAImpl(record.get()), nullptr);
  EXPECT_TRUE(raised(PyExc_RuntimeError, notInitialized));
  EXPECT_EQ(Py_REFCNT(record.get()), 1);
}

TEST(HandingOutFailure, ViewsWhoseStorageHasExpiredAreReported) {
  for (const char* expression : expiredViews) {
    SCOPED_TRACE(expression);
    const PyRef view = evaluate(expression);
    const Py_ssize_t references = Py_REFCNT(view.get());
    for (int attempt = 0; attempt < 2; ++attempt) {
      EXPECT_EQ(capsuleTable().MCPyArrayToMDAImpl(view.get()), nullptr);
      EXPECT_TRUE(raised(PyExc_RuntimeError, "locked shared pointer is null."));
    }
    EXPECT_EQ(Py_REFCNT(view.get()), references);
  }
}

TEST(HandingOutFailure, EarlierCopyOutlivesTheStorage) {
  PyRef owner = pythonSamples<double>();
  const PyRef row = evaluate("list(a)[1]", {{"a", owner}});
  const Array first = handOut(row);
  owner = PyRef();
  const Array second = handOut(row);
  EXPECT_TRUE(raisedNothing());
  EXPECT_EQ(second.impl(), first.impl());
  EXPECT_EQ(elementsOf(TypedArray<double>(second)), (std::vector<double>{2, 4, 6}));
}

// --- Leaks

TEST(HandingOutMemory, ReleasedArraysAreFreed) {
  constexpr unsigned long count = 1UL << 21;
  const std::size_t before = heapInUse();
  for (int i = 0; i < 8; ++i) {
    PyRef object = adopt(ArrayFactory().createArray(ArrayType::DOUBLE, {count, 1}));
    void* const impl = capsuleTable().MCPyArrayToMDAImpl(object.get());
    object = PyRef();
    releaseReference(static_cast<ArrayImpl*>(impl));
  }
  EXPECT_LT(heapInUse(), before + count * sizeof(double));
}

TEST(HandingOutMemory, NoBlockOfTheInterpreterIsKept) {
  const PyRef object = pythonSamples<double>();
  const std::optional<double> kept = blocksPerCall([&] {
    handOut(object);
    const PyRef row = evaluate("a[1]", {{"a", object}});
    handOut(row);
    capsuleTable().MCPyArrayToMDAImpl(Py_None);
    PyErr_Clear();
  });
  if (!kept) GTEST_SKIP() << "PYTHONMALLOC=malloc counts no blocks, so no leak can be seen";
  EXPECT_LT(*kept, 0.5);
}

}  // namespace
