// The capsule itself, and functions 4 and 5: destroying an array, asking for the buffer protocol.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <iterator>
#include <optional>
#include <set>
#include <string>

#include "client_testing.hpp"

namespace {

using namespace client_testing;
using velmar::MCPyArrayAPITable;

// --- The table

constexpr std::size_t entry = sizeof(void (*)());
static_assert(sizeof(MCPyArrayAPITable) == 5 * entry);
static_assert(offsetof(MCPyArrayAPITable, MDAImplToMCPyArray) == 0 * entry);
static_assert(offsetof(MCPyArrayAPITable, MCPyArrayToMDAImpl) == 1 * entry);
static_assert(offsetof(MCPyArrayAPITable, BufferObjectToMCPyArray) == 2 * entry);
static_assert(offsetof(MCPyArrayAPITable, DestroyMCPyArray) == 3 * entry);
static_assert(offsetof(MCPyArrayAPITable, SatisfiesBufferProtocol) == 4 * entry);

TEST(Capsule, IsTheModulesAttribute) {
  const PyRef capsule = evaluate("__import__('velmarmultidimarrayforpython')._capi");
  ASSERT_TRUE(PyCapsule_IsValid(capsule.get(), "velmarmultidimarrayforpython._capi"));
  EXPECT_STREQ(velmar::capsuleName, "velmarmultidimarrayforpython._capi");
  EXPECT_EQ(PyCapsule_GetPointer(capsule.get(), velmar::capsuleName), &capsuleTable());
  EXPECT_EQ(PyCapsule_GetDestructor(capsule.get()), nullptr);
  EXPECT_EQ(PyCapsule_GetContext(capsule.get()), nullptr);
  EXPECT_EQ(PyCapsule_Import(velmar::capsuleName, 0), &capsuleTable());
  EXPECT_TRUE(raisedNothing());
}

TEST(Capsule, HasFiveFunctions) {
  const void* entries[5] = {};
  std::memcpy(entries, &capsuleTable(), sizeof entries);
  const std::set<const void*> different(std::begin(entries), std::end(entries));
  EXPECT_EQ(different.size(), 5U);
  EXPECT_EQ(different.count(nullptr), 0U);
}

TEST(Capsule, IsNotFoundUnderAnotherName) {
  EXPECT_EQ(PyCapsule_Import("velmarmultidimarrayforpython._api", 0), nullptr);
  EXPECT_TRUE(raisedOwn(PyExc_AttributeError));
}

// --- Destroying

TYPED_SUITE(Destruction, WritableTypes, TypeNames);

TYPED_CASE(Destruction, ReleasesTheContents) {
  const Array array = sampleArray<TypeParam>({2, 3});
  PyRef object = adopt(array);
  EXPECT_EQ(referenceCount(array), 2U);
  capsuleTable().DestroyMCPyArray(object.release());
  EXPECT_EQ(referenceCount(array), 1U);
  EXPECT_TRUE(raisedNothing());
}

TYPED_CASE(Destruction, IgnoresTheReferenceCount) {
  const Array array = sampleArray<TypeParam>({2, 3});
  PyObject* const object = adopt(array).release();
  PyObject* const second = PyRef::borrow(object).release();  // never released
  EXPECT_EQ(Py_REFCNT(second), 2);
  capsuleTable().DestroyMCPyArray(object);
  EXPECT_EQ(referenceCount(array), 1U);
}

TYPED_CASE(Destruction, OfARecordBeforeItsConstruction) {
  PyRef record = bareRecord(classObject<TypeParam>());
  capsuleTable().DestroyMCPyArray(record.release());
  EXPECT_TRUE(raisedNothing());
}

TEST(DestructionOf, AnArrayWithViews) {
  const Array array = sampleArray<double>({2, 3});
  PyRef object = adopt(array);
  const PyRef row = evaluate("a[1]", {{"a", object}});
  const PyRef yielded = evaluate("list(a)[1]", {{"a", object}});
  capsuleTable().DestroyMCPyArray(object.release());
  EXPECT_EQ(referenceCount(array), 2U) << "the view of a subscript keeps the contents";
  EXPECT_EQ(reprOf(row), "velmar.double([2.0,4.0,6.0])");
  EXPECT_EQ(reprOf(yielded), "velmar.double([2.0,4.0,6.0])");
}

TEST(DestructionOf, TheLastOwnerExpiresTheViews) {
  const Array array = sampleArray<double>({2, 3});
  PyRef object = adopt(array);
  const PyRef yielded = evaluate("list(a)[1]", {{"a", object}});
  capsuleTable().DestroyMCPyArray(object.release());
  EXPECT_EQ(referenceCount(array), 1U);
  EXPECT_EQ(handOut(yielded).impl(), nullptr);
  EXPECT_TRUE(raised(PyExc_RuntimeError, "locked shared pointer is null."));
}

TEST(DestructionOf, AViewReleasesItsCopy) {
  const PyRef object = pythonSamples<double>();
  PyRef row = evaluate("a[1]", {{"a", object}});
  const Array copy = handOut(row);
  EXPECT_EQ(referenceCount(copy), 2U);
  capsuleTable().DestroyMCPyArray(row.release());
  EXPECT_EQ(referenceCount(copy), 1U);
  EXPECT_EQ(reprOf(object), textOfRows(samples<double>(6)));
}

TEST(DestructionOf, ViewsWhoseStorageHasExpired) {
  for (const char* expression : expiredViews) {
    PyRef view = evaluate(expression);
    ASSERT_EQ(Py_REFCNT(view.get()), 1);
    capsuleTable().DestroyMCPyArray(view.release());
  }
  EXPECT_TRUE(raisedNothing());
}

TEST(DestructionOf, OtherObjectsDoesNothing) {
  capsuleTable().DestroyMCPyArray(nullptr);
  for (const char* expression :
       {"None", "5", "'text'", "[1, 2]", "object()", "__import__('velmar').double",
        "iter(__import__('velmar').double([1]))", "memoryview(b'ab')"}) {
    SCOPED_TRACE(expression);
    const PyRef object = evaluate(expression);
    const Py_ssize_t references = Py_REFCNT(object.get());
    capsuleTable().DestroyMCPyArray(object.get());
    EXPECT_EQ(Py_REFCNT(object.get()), references);
    EXPECT_TRUE(raisedNothing());
  }
}

TEST(DestructionMemory, NoBlockOfTheInterpreterIsKept) {
  const Array array = sampleArray<double>({2, 3});
  const std::optional<double> kept =
      blocksPerCall([&] { capsuleTable().DestroyMCPyArray(adopt(array).release()); });
  if (!kept) GTEST_SKIP() << "PYTHONMALLOC=malloc counts no blocks, so no leak can be seen";
  EXPECT_LT(*kept, 0.5);
}

// --- The question for a buffer

TEST(BufferQuestion, DependsOnTheClassOfTheObject) {
  struct Row {
    const char* expression;
    bool answer;
  };
  const Row rows[] = {
      {"None", false},
      {"5", false},
      {"1.5", false},
      {"'text'", false},
      {"[1.0]", false},
      {"(1,)", false},
      {"object()", false},
      {"bytes", false},
      {"__import__('velmar').double", false},
      {"iter(__import__('velmar').double([1]))", false},
      {"b'ab'", true},
      {"bytearray()", true},
      {"memoryview(b'ab')", true},
      // The function does not check whether a request would succeed.
      {"memoryview(b'abcd')[::2]", true},
      {"memoryview(b'ab').cast('c')", true},
      {"__import__('array').array('d')", true},
      {"__import__('velmar').double([1])[0:1]", true},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.expression);
    const PyRef object = evaluate(row.expression);
    const Py_ssize_t references = Py_REFCNT(object.get());
    EXPECT_EQ(capsuleTable().SatisfiesBufferProtocol(object.get()), row.answer);
    EXPECT_EQ(Py_REFCNT(object.get()), references);
  }
  EXPECT_FALSE(capsuleTable().SatisfiesBufferProtocol(nullptr));
  for (const char* expression : expiredViews) {
    EXPECT_TRUE(capsuleTable().SatisfiesBufferProtocol(evaluate(expression).get()));
  }
  EXPECT_TRUE(capsuleTable().SatisfiesBufferProtocol(bareRecord(classObject<double>()).get()));
  EXPECT_TRUE(raisedNothing());
}

TYPED_CASE(Destruction, ArraysAnswerThatTheyHaveABuffer) {
  const PyRef object = adopt(sampleArray<TypeParam>({2, 3}));
  EXPECT_TRUE(capsuleTable().SatisfiesBufferProtocol(object.get()));
}

}  // namespace
