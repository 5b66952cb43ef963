// The Python record of an array: allocation, views in it, deletion, the mark of its class.
#include "storage/mcpy_array.hpp"

#include <gtest/gtest.h>

#include <cstddef>
#include <limits>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "module/support.hpp"
#include "module/type_objects.hpp"
#include "python_testing.hpp"
#include "storage_testing.hpp"

namespace {

using namespace python_testing;

class Records : public ::testing::TestWithParam<SupportedArrayEnum> {
 protected:
  PyTypeObject* type() const { return typeObjectOf(GetParam()); }
  PyObject* classObject() const { return reinterpret_cast<PyObject*>(type()); }
};

TEST_P(Records, AreAllocatedWithoutAView) {
  const PyRef record = PyRef::steal(allocMCPyArray(type()));
  ASSERT_TRUE(record);
  EXPECT_EQ(Py_TYPE(record.get()), type());
  EXPECT_EQ(Py_REFCNT(record.get()), 1);
  EXPECT_EQ(getMCPyArrayFromPyObject(record.get())->mcppPyArray, nullptr);
}

TEST_P(Records, WithoutAViewAreDestroyed) {
  {
    const PyRef record = PyRef::steal(allocMCPyArray(type()));
  }
  EXPECT_TRUE(raisedNothing());
}

TEST_P(Records, ReferenceOfARecordOnItsClassIsKept) {
  const Py_ssize_t before = Py_REFCNT(classObject());
  {
    const PyRef record = PyRef::steal(allocMCPyArray(type()));
    EXPECT_EQ(Py_REFCNT(classObject()), before + 1);
  }
  EXPECT_EQ(Py_REFCNT(classObject()), before + 1);
}

TEST_P(Records, AreRecognisedByTheirDestructorSlot) {
  const PyRef record = PyRef::steal(allocMCPyArray(type()));
  EXPECT_TRUE(MCPyArray_Check(record.get()));
  EXPECT_FALSE(MCPyArray_Check(classObject()));
  EXPECT_EQ(PyType_GetSlot(type(), Py_tp_dealloc), reinterpret_cast<void*>(MCPyArray_Delete));
}

// Every handler first checks that there is a view.
TEST_P(Records, HandlersRefuseARecordWithoutAView) {
  const PyRef record = PyRef::steal(allocMCPyArray(type()));
  const PyRef integer = evaluate("0");
  const PyRef slice = evaluate("slice(None)");
  const PyRef noSubscript = evaluate("None");
  for (PyObject* self : {record.get(), static_cast<PyObject*>(nullptr)}) {
    SCOPED_TRACE(self != nullptr ? "record without a view" : "no record");
    const auto refused = [] { return raised(PyExc_RuntimeError, "object not initialized."); };
    for (const int slot : {Py_sq_length, Py_mp_length}) {
      const auto length = reinterpret_cast<lenfunc>(PyType_GetSlot(type(), slot));
      EXPECT_EQ(length(self), -1);
      EXPECT_TRUE(refused());
    }
    for (const int slot : {Py_tp_str, Py_tp_repr}) {
      const auto form = reinterpret_cast<reprfunc>(PyType_GetSlot(type(), slot));
      EXPECT_EQ(form(self), nullptr);
      EXPECT_TRUE(refused());
    }
    const auto item = reinterpret_cast<ssizeargfunc>(PyType_GetSlot(type(), Py_sq_item));
    EXPECT_EQ(item(self, 0), nullptr);
    EXPECT_TRUE(refused());
    const auto subscript = reinterpret_cast<binaryfunc>(PyType_GetSlot(type(), Py_mp_subscript));
    for (const PyRef* index : {&integer, &slice, &noSubscript}) {
      EXPECT_EQ(subscript(self, index->get()), nullptr);
      EXPECT_TRUE(refused());
    }
  }
}

constexpr SupportedArrayEnum classes[] = {
#define X(name, number, enumerator, ...) SupportedArrayEnum::enumerator,
    VELMARDATA_FOR_EACH_CLASS_TYPE(X)
#undef X
};
constexpr const char* words[] = {
#define X(name, number, enumerator, type, suffix, word, letter) word,
    VELMARDATA_FOR_EACH_CLASS_TYPE(X)
#undef X
};
INSTANTIATE_TEST_SUITE_P(Classes, Records, ::testing::ValuesIn(classes), [](const auto& row) {
  return std::string(words[static_cast<std::size_t>(row.param)]);
});

TEST(RecordHelpers, MissingClassIsReported) {
  EXPECT_EQ(allocMCPyArray(nullptr), nullptr);
  EXPECT_TRUE(raised(PyExc_RuntimeError, "unable to initialize C object."));
}

TEST(RecordHelpers, FailureOfTheAllocatorIsReported) {
  PyType_Slot slots[] = {{0, nullptr}};
  PyType_Spec spec = {"test.Large", 1 << 30, 0, 0, slots};
  const PyRef type = PyRef::steal(PyType_FromSpec(&spec));
  ASSERT_TRUE(type);
  bool isLimited = false;
  PyObject* record = Py_None;
  {
    const MemoryLimit limit;
    isLimited = limit.isSet();
    if (isLimited) record = allocMCPyArray(reinterpret_cast<PyTypeObject*>(type.get()));
  }
  if (!isLimited) GTEST_SKIP() << "an emulator ignores the limit on memory";
  EXPECT_EQ(record, nullptr);
  EXPECT_TRUE(raised(PyExc_RuntimeError, "unable to initialize C object."));
}

TEST(RecordHelpers, OtherObjectsAreNotArrays) {
  for (const char* expression :
       {"None", "1.0", "[]", "'text'", "memoryview(b'bytes')", "__import__('array').array('d')",
        "type", "__import__('velmarmultidimarrayforpython').MCPyIter"}) {
    SCOPED_TRACE(expression);
    EXPECT_FALSE(MCPyArray_Check(evaluate(expression).get()));
  }
}

TEST(RecordHelpers, CastIsUnchecked) {
  EXPECT_EQ(getMCPyArrayFromPyObject(nullptr), nullptr);
  const PyRef object = evaluate("[]");
  EXPECT_EQ(static_cast<void*>(getMCPyArrayFromPyObject(object.get())),
            static_cast<void*>(object.get()));
}

TEST(RecordHelpers, GuardReturnsTheView) {
  const PyRef record = makeRecord(makeArray<double>({2, 3}));
  EXPECT_EQ(getInitializedView(record.get()), &viewOf(record));
  EXPECT_TRUE(raisedNothing());
}

TEST(RecordHelpers, DestroyedRecordDestroysItsView) {
  ViewPointer weak;
  {
    const PyRef record = makeRecord(makeArray<double>({2, 3}));
    weak = std::make_unique<MCppPyArray>(viewOf(record), true);
    EXPECT_EQ(weak->getNumberOfDimensions(), 2);
  }
  EXPECT_EQ(weak->getNumberOfDimensions(), -1);
  EXPECT_TRUE(raisedExpired());
}

// --- Views for records

TYPED_SUITE(NewView, WritableTypes, TypeWords);

TYPED_CASE(NewView, OwnsAnArrayWithMirror) {
  constexpr SupportedArrayEnum type = classOfElement<TypeParam>();
  for (const bool isColumnMajor : {true, false}) {
    const ViewPointer view = makeNewView(sampleArray<TypeParam>({2, 3}), type,
                                         isComplexElement<TypeParam>, Contents::Own, isColumnMajor);
    ASSERT_NE(view, nullptr);
    EXPECT_EQ(view->getSupportedArrayEnum(), type);
    EXPECT_EQ(view->isComplex(), isComplexElement<TypeParam>);
    EXPECT_FALSE(view->hasWeakPtrToWrapper());
    EXPECT_TRUE(view->indicesAreEmpty());
    EXPECT_TRUE(view->wrapper()->hasMirror());
    EXPECT_EQ(view->wrapper()->getOrder(), isColumnMajor ? 'F' : 'C');
    EXPECT_EQ(storedElements<TypeParam>(*view), samples<TypeParam>(6));
  }
  EXPECT_TRUE(raisedNothing());
}

TYPED_CASE(NewView, IsGivenToARecord) {
  constexpr SupportedArrayEnum type = classOfElement<TypeParam>();
  const PyRef record = PyRef::steal(allocMCPyArray(typeObjectOf(type)));
  const MCppPyArray* const view = giveNewView(record.get(), sampleArray<TypeParam>({2, 3}), type,
                                              isComplexElement<TypeParam>, Contents::Own);
  ASSERT_NE(view, nullptr);
  EXPECT_EQ(view, getMCPyArrayFromPyObject(record.get())->mcppPyArray);
  EXPECT_EQ(view->wrapper()->getOrder(), 'F');
  EXPECT_EQ(view->isComplex(), isComplexElement<TypeParam>);
  EXPECT_EQ(storedElements<TypeParam>(*view), samples<TypeParam>(6));
}

TEST(NewViewFailure, NoMemoryForTheMirrorIsReported) {
  namespace vd = foundation::velmardata;
  constexpr unsigned long bytes = 256UL << 20;
  const vd::Array kept = vd::ArrayFactory().createArray(vd::ArrayType::INT8, {bytes, 1});
  const PyRef record = PyRef::steal(allocMCPyArray(typeObjectOf(SupportedArrayEnum::Int8)));
  const auto reported = [] {
    return raised(PyExc_MemoryError,
                  "unable to allocate memory for array with number of elements = 268435456; "
                  "type = int8");
  };
  bool isLimited = false;
  ViewPointer view;
  {
    const MemoryLimit limit;
    isLimited = limit.isSet();
    if (isLimited)
      view = makeNewView(vd::Array(kept), SupportedArrayEnum::Int8, false, Contents::Client);
  }
  if (!isLimited) GTEST_SKIP() << "an emulator ignores the limit on memory";
  EXPECT_EQ(view, nullptr);
  EXPECT_TRUE(reported());
  const MCppPyArray* given = nullptr;
  {
    const MemoryLimit limit;
    given = giveNewView(record.get(), vd::Array(kept), SupportedArrayEnum::Int8, false,
                        Contents::Client);
  }
  EXPECT_EQ(given, nullptr);
  EXPECT_TRUE(reported());
  EXPECT_EQ(getMCPyArrayFromPyObject(record.get())->mcppPyArray, nullptr);
  EXPECT_EQ(velmardata_testing::referenceCount(kept), 1U);
}

TEST(RecordsOfViews, AreOfTheClassOfTheElements) {
  for (std::size_t i = 0; i < numberOfArrayClasses; ++i) {
    SCOPED_TRACE(i);
    const MCppPyArray view(sampleArray<double>({1, 1}), static_cast<SupportedArrayEnum>(i), false,
                           true, Contents::Own);
    const PyRef record = PyRef::steal(allocMCPyArrayFromMCppPyArray(view));
    ASSERT_TRUE(record);
    EXPECT_EQ(Py_TYPE(record.get()), TypeObjectPointers[i]);
    EXPECT_EQ(getMCPyArrayFromPyObject(record.get())->mcppPyArray, nullptr);
  }
}

TEST(RecordsOfViews, MissingClassIsReported) {
  const ViewPointer view = makeArray<double>({1, 1});
  PyTypeObject* const type = std::exchange(TypeObjectPointers[0], nullptr);
  PyObject* const record = allocMCPyArrayFromMCppPyArray(*view);
  TypeObjectPointers[0] = type;
  EXPECT_EQ(record, nullptr);
  EXPECT_TRUE(raised(PyExc_RuntimeError, "unable to initialize C object."));
}

TEST(ViewMemory, ShortMemoryIsBadAlloc) {
  const volatile std::size_t most = std::numeric_limits<std::size_t>::max();
  EXPECT_THROW(MCppPyArray::operator delete(MCppPyArray::operator new(most)), std::bad_alloc);
  EXPECT_TRUE(raisedNothing());
}

TEST(Tables, HoldTheClassesInTheirOrder) {
  const char* const names[] = {"double", "single", "int8",  "uint8",  "int16",  "uint16",
                               "int32",  "uint32", "int64", "uint64", "logical"};
  for (std::size_t i = 0; i < numberOfArrayClasses; ++i) {
    SCOPED_TRACE(names[i]);
    const PyRef published = evaluate(
        std::string("getattr(__import__('velmarmultidimarrayforpython'), '") + names[i] + "')");
    EXPECT_EQ(reinterpret_cast<PyObject*>(TypeObjectPointers[i]), published.get());
    EXPECT_EQ(typeObjectOf(static_cast<SupportedArrayEnum>(i)), TypeObjectPointers[i]);
  }
  const PyRef iteratorClass = evaluate("__import__('velmarmultidimarrayforpython').MCPyIter");
  EXPECT_EQ(reinterpret_cast<PyObject*>(MCPyIterTypeObj), iteratorClass.get());
}

}  // namespace
