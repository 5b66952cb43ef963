// Exports of memory: every field of a Py_buffer, every refusal, and how long the memory lives.
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "exporter_testing.hpp"
#include "module/type_objects.hpp"
#include "operations/handlers.hpp"
#include "python_testing.hpp"
#include "storage_testing.hpp"

namespace {

using namespace python_testing;
using namespace foundation::velmardata;

constexpr const char* notWritable = "underlying buffer is not writable.";
constexpr const char* notContiguous = "underlying buffer not C-contiguous.";

// One request for a buffer. Releases the buffer if the request was granted.
class Request {
 public:
  Request(const PyRef& array, int flags) {
    buffer.obj = Py_None;  // is replaced or cleared
    buffer.internal = this;
    result = MCPyArray_GetBuffer(array.get(), &buffer, flags);
  }
  Request(const Request&) = delete;
  Request& operator=(const Request&) = delete;
  ~Request() {
    if (result == 0) PyBuffer_Release(&buffer);
  }
  Numbers shape() const { return numbersAt(buffer.shape); }
  Numbers strides() const { return numbersAt(buffer.strides); }
  template <class T>
  std::vector<T> elements() const {
    const T* const first = static_cast<const T*>(buffer.buf);
    return std::vector<T>(first, first + buffer.len / buffer.itemsize);
  }

  Py_buffer buffer = {};
  int result = 0;

 private:
  Numbers numbersAt(const Py_ssize_t* first) const { return Numbers(first, first + buffer.ndim); }
};

// Requests are refused for the bit of writing, or for all bits of C-contiguity together.
const int grantedFlags[] = {PyBUF_SIMPLE,
                            PyBUF_FORMAT,
                            PyBUF_ND,
                            PyBUF_STRIDES,
                            PyBUF_INDIRECT,
                            PyBUF_F_CONTIGUOUS,
                            PyBUF_ANY_CONTIGUOUS,
                            PyBUF_FULL_RO,
                            PyBUF_F_CONTIGUOUS | PyBUF_FORMAT,
                            PyBUF_ANY_CONTIGUOUS | PyBUF_FORMAT,
                            0x20,
                            0x28,
                            0x30,
                            0x7FFFFFD6};

TYPED_SUITE(Export, WritableTypes, TypeWords);

// --- Fields

TYPED_CASE(Export, FieldsAreThoseOfTheStorage) {
  constexpr auto size = static_cast<std::int64_t>(sizeof(TypeParam));
  const PyRef array = makeRecord(makeArray<TypeParam>({2, 3}));
  MDArrayWrapper& storage = *viewOf(array).wrapper();
  for (const int flags : grantedFlags) {
    SCOPED_TRACE(flags);
    const Py_ssize_t references = Py_REFCNT(array.get());
    {
      const Request request(array, flags);
      ASSERT_EQ(request.result, 0);
      const Py_buffer& buffer = request.buffer;
      EXPECT_EQ(buffer.obj, array.get());
      EXPECT_EQ(Py_REFCNT(array.get()), references + 1);
      EXPECT_EQ(buffer.buf, storage.buf());
      EXPECT_EQ(buffer.len, 6 * size);
      EXPECT_EQ(buffer.itemsize, size);
      EXPECT_EQ(buffer.ndim, 2);
      EXPECT_EQ(buffer.readonly, 1);
      if ((flags & PyBUF_FORMAT) != 0) {
        EXPECT_EQ(std::string(buffer.format), formatOf<TypeParam>());
      } else {
        EXPECT_EQ(buffer.format, nullptr);
      }
      EXPECT_EQ(buffer.shape, storage.shape().data());
      EXPECT_EQ(buffer.strides, storage.bytewiseStrides().data());
      EXPECT_EQ(request.shape(), (Numbers{2, 3}));
      EXPECT_EQ(request.strides(), (Numbers{size, 2 * size}));
      EXPECT_EQ(buffer.suboffsets, nullptr);
      EXPECT_EQ(buffer.internal, &request);
      EXPECT_EQ(request.template elements<TypeParam>(), samples<TypeParam>(6));
    }
    EXPECT_EQ(Py_REFCNT(array.get()), references);
  }
  EXPECT_TRUE(raisedNothing());
}

TYPED_CASE(Export, OfAViewIsItsOwnCopyAndStays) {
  const PyRef array = makeRecord(makeArray<TypeParam>({2, 3}));
  const PyRef row = evaluate("a[1]", {{"a", array}});
  const std::vector<TypeParam> elements = {sample<TypeParam>(1), sample<TypeParam>(3),
                                           sample<TypeParam>(5)};
  const Request first(row, PyBUF_FULL_RO);
  ASSERT_EQ(first.result, 0);
  EXPECT_EQ(first.buffer.obj, row.get());
  EXPECT_EQ(first.shape(), (Numbers{1, 3}));
  EXPECT_NE(first.buffer.buf, viewOf(array).wrapper()->buf());
  EXPECT_EQ(first.template elements<TypeParam>(), elements);

  ASSERT_TRUE(setElement<TypeParam>(viewOf(row), {1, 1}, otherThanSample<TypeParam>(3)));
  const Request second(row, PyBUF_FULL_RO);
  ASSERT_EQ(second.result, 0);
  EXPECT_EQ(second.buffer.buf, first.buffer.buf);
  EXPECT_EQ(second.buffer.shape, first.buffer.shape);
  EXPECT_EQ(second.buffer.strides, first.buffer.strides);
  EXPECT_EQ(second.template elements<TypeParam>(), elements);

  const PyRef sameRow = evaluate("a[1]", {{"a", array}});
  const Request other(sameRow, PyBUF_FULL_RO);
  EXPECT_NE(other.buffer.buf, first.buffer.buf) << "each view has its own copy";
  EXPECT_EQ(other.template elements<TypeParam>()[1], otherThanSample<TypeParam>(3));
  EXPECT_TRUE(raisedNothing());
}

struct ShapeRow {
  Dimensions array;
  const char* part;
  bool isColumnMajor;
  Numbers shape;
  Numbers strides;
};

TEST(ExportOf, PartsAndOrders) {
  const ShapeRow rows[] = {
      {{2, 3}, "a", false, {2, 3}, {24, 8}},          {{6}, "a", true, {6}, {8}},
      {{2, 2, 3}, "a", true, {2, 2, 3}, {8, 16, 32}}, {{0, 3}, "a", true, {0, 3}, {8, 0}},
      {{2, 3}, "a[1][0:2]", true, {1, 2}, {8, 8}},    {{4, 3}, "a[1:3]", true, {2, 3}, {8, 16}},
      {{2, 2, 3}, "a[1]", true, {2, 3}, {8, 16}},     {{2, 3}, "a[1:1]", true, {0, 3}, {8, 0}},
      {{2, 3}, "a[1]", false, {1, 3}, {24, 8}},
  };
  for (const ShapeRow& row : rows) {
    SCOPED_TRACE(testing::PrintToString(row.array) + row.part);
    const PyRef array = makeRecord(std::make_unique<MCppPyArray>(sampleArray<double>(row.array),
                                                                 SupportedArrayEnum::Double, false,
                                                                 row.isColumnMajor, Contents::Own));
    const PyRef part = evaluate(row.part, {{"a", array}});
    const Request request(part, PyBUF_FULL_RO);
    ASSERT_EQ(request.result, 0);
    EXPECT_EQ(request.shape(), row.shape);
    EXPECT_EQ(request.strides(), row.strides);
    EXPECT_EQ(request.buffer.ndim, static_cast<int>(row.shape.size()));
  }
  EXPECT_TRUE(raisedNothing());
}

// Python programs cannot make arrays without a format, because no class has characters.
TEST(ExportOf, CharactersHasNoFormat) {
  const PyRef array = makeRecord(makeArray<char16_t>({2, 3}));
  {
    const Request request(array, PyBUF_STRIDES);
    ASSERT_EQ(request.result, 0);
    EXPECT_EQ(request.buffer.itemsize, 2);
    EXPECT_EQ(request.buffer.len, 12);
    EXPECT_EQ(request.buffer.format, nullptr);
    EXPECT_EQ(request.elements<char16_t>(), samples<char16_t>(6));
  }
  Py_buffer buffer = {};
  const Py_ssize_t references = Py_REFCNT(array.get());
  EXPECT_THROW(MCPyArray_GetBuffer(array.get(), &buffer, PyBUF_FORMAT), std::out_of_range);
  EXPECT_EQ(Py_REFCNT(array.get()), references);
}

TEST(Release, DoesNothing) {
  MCPyArray_ReleaseBuffer(nullptr, nullptr);
  const PyRef array = makeRecord(makeArray<double>({2, 3}));
  const Py_ssize_t references = Py_REFCNT(array.get());
  Py_buffer buffer = {};
  buffer.obj = array.get();
  MCPyArray_ReleaseBuffer(array.get(), &buffer);
  EXPECT_EQ(buffer.obj, array.get());
  EXPECT_EQ(Py_REFCNT(array.get()), references);
}

// --- Refusals

TYPED_CASE(Export, WritableAndContiguousRequestsAreRefusedInThatOrder) {
  const PyRef array = makeRecord(makeArray<TypeParam>({1, 3}));
  const PyRef row = evaluate("a[0]", {{"a", array}});
  const std::pair<int, const char*> rows[] = {
      {PyBUF_WRITABLE, notWritable},
      {PyBUF_FULL, notWritable},
      {PyBUF_C_CONTIGUOUS | PyBUF_WRITABLE, notWritable},
      {PyBUF_F_CONTIGUOUS | PyBUF_WRITABLE, notWritable},
      {PyBUF_C_CONTIGUOUS, notContiguous},
      {PyBUF_C_CONTIGUOUS | PyBUF_FORMAT, notContiguous},
      {PyBUF_C_CONTIGUOUS | PyBUF_F_CONTIGUOUS, notContiguous},
      {0x7FFFFFFE, notContiguous},
  };
  for (const PyRef* object : {&array, &row}) {
    for (const auto& [flags, message] : rows) {
      SCOPED_TRACE(flags);
      const Py_ssize_t references = Py_REFCNT(object->get());
      const Request request(*object, flags);
      EXPECT_EQ(request.result, -1);
      EXPECT_TRUE(raised(PyExc_ValueError, message));
      EXPECT_EQ(request.buffer.obj, nullptr);
      EXPECT_EQ(Py_REFCNT(object->get()), references);
    }
  }
}

TEST(ExportRefused, WithoutAnObjectOrABuffer) {
  const PyRef none;
  const PyRef record = PyRef::steal(allocMCPyArray(typeObjectOf(SupportedArrayEnum::Double)));
  for (const PyRef* object : {&none, &record}) {
    const Request request(*object, PyBUF_C_CONTIGUOUS | PyBUF_WRITABLE);
    EXPECT_EQ(request.result, -1);
    EXPECT_TRUE(raised(PyExc_RuntimeError, notInitialized));
    EXPECT_EQ(request.buffer.obj, nullptr);
    EXPECT_EQ(MCPyArray_GetBuffer(object->get(), nullptr, PyBUF_SIMPLE), -1);
    EXPECT_TRUE(raised(PyExc_RuntimeError, notInitialized)) << "the object is looked at first";
  }
  const PyRef array = makeRecord(makeArray<double>({2, 3}));
  const PyRef expired = makeRecord(makeExpiredView<double>({2, 3}));
  for (const PyRef* object : {&array, &expired}) {
    EXPECT_EQ(MCPyArray_GetBuffer(object->get(), nullptr, PyBUF_SIMPLE), -1);
    EXPECT_TRUE(raised(PyExc_RuntimeError, "null pointer to view object null."));
  }
}

TEST(ExportRefused, WithoutATarget) {
  const ViewPointer owner = makeArray<double>({2, 3});
  const ViewPointer expired = makeExpiredView<double>({2, 3});
  const PyRef objects[] = {
      makeRecord(makeExpiredView<double>({2, 3})),
      makeRecord(makeViewWithoutStorage<double>({2, 3})),
      makeRecord(std::make_unique<MCppPyArray>(*expired, Position{1}, true)),
      makeRecord(std::make_unique<MCppPyArray>(*owner, Position{5}, false)),
  };
  for (const PyRef& object : objects) {
    const Request request(object, PyBUF_C_CONTIGUOUS | PyBUF_WRITABLE);
    EXPECT_EQ(request.result, -1);
    EXPECT_TRUE(raised(PyExc_RuntimeError, nullPointer));
    EXPECT_EQ(request.buffer.obj, nullptr);
    EXPECT_EQ(PyRef::steal(MCPyArray_ToMemoryView(object.get(), nullptr)).get(), nullptr);
    EXPECT_TRUE(raised(PyExc_RuntimeError, nullPointer));
  }
}

// --- The address

TEST(BufferInfo, IsThatOfTheWholeStorage) {
  const PyRef array = makeRecord(makeArray<double>({2, 3}));
  const PyRef parts[] = {evaluate("a[1]", {{"a", array}}), evaluate("a[0:1]", {{"a", array}}),
                         makeRecord(std::make_unique<MCppPyArray>(viewOf(array), true))};
  const std::string expected =
      "(" + std::to_string(reinterpret_cast<std::uintptr_t>(viewOf(array).wrapper()->buf())) +
      ", 6)";
  EXPECT_EQ(reprOf(PyRef::steal(MCPyArray_BufferInfo(array.get(), nullptr))), expected);
  for (const PyRef& part : parts) {
    EXPECT_EQ(reprOf(PyRef::steal(MCPyArray_BufferInfo(part.get(), nullptr))), expected);
    EXPECT_EQ(viewOf(part).caches().indexRestrictedMCppPyArray(), nullptr) << "no copy was made";
  }
}

TEST(BufferInfo, OfNothingIsAnError) {
  const PyRef record = PyRef::steal(allocMCPyArray(typeObjectOf(SupportedArrayEnum::Double)));
  for (PyObject* object : {static_cast<PyObject*>(nullptr), record.get()}) {
    EXPECT_EQ(MCPyArray_BufferInfo(object, nullptr), nullptr);
    EXPECT_TRUE(raised(PyExc_RuntimeError, notInitialized));
  }
  const PyRef gone[] = {makeRecord(makeExpiredView<double>({2, 3})),
                        makeRecord(makeViewWithoutStorage<double>({2, 3}))};
  for (const PyRef& object : gone) {
    EXPECT_EQ(MCPyArray_BufferInfo(object.get(), nullptr), nullptr);
    EXPECT_TRUE(raisedExpired());
  }
}

// --- Lifetimes

TEST(ExportLifetime, TheCopyOfAWeakViewOutlivesTheStorage) {
  ViewPointer owner = makeArray<double>({2, 3});
  const PyRef row = makeRecord(std::make_unique<MCppPyArray>(*owner, Position{1}, true));
  const Request before(row, PyBUF_FULL_RO);
  ASSERT_EQ(before.result, 0);
  owner.reset();
  const Request after(row, PyBUF_FULL_RO);
  ASSERT_EQ(after.result, 0);
  EXPECT_TRUE(raisedNothing());
  EXPECT_EQ(after.buffer.buf, before.buffer.buf);
  EXPECT_EQ(before.elements<double>(), (std::vector<double>{2, 4, 6}));
  EXPECT_EQ(before.shape(), (Numbers{1, 3}));
}

TYPED_CASE(Export, StaysReadableThroughReshapes) {
  constexpr auto size = static_cast<std::int64_t>(sizeof(TypeParam));
  PyRef array = makeRecord(makeArray<TypeParam>({2, 3}));
  const Request before(array, PyBUF_FULL_RO);
  const Request same(array, PyBUF_FULL_RO);
  for (const char* shape : {"(3, 2)", "(6,)", "(1, 2, 3)", "(6, 1)"}) {
    const PyRef arguments = evaluate(std::string("(") + shape + ",)");
    const PyRef result = PyRef::steal(MCPyArray_Reshape(array.get(), arguments.get(), nullptr));
    EXPECT_EQ(result.get(), array.get());
  }
  const Request after(array, PyBUF_FULL_RO);
  array = PyRef();  // from here on, only the requests hold the array
  for (const Request* request : {&before, &same}) {
    ASSERT_EQ(request->result, 0);
    EXPECT_EQ(request->shape(), (Numbers{2, 3}));
    EXPECT_EQ(request->strides(), (Numbers{size, 2 * size}));
    EXPECT_EQ(request->template elements<TypeParam>(), samples<TypeParam>(6));
  }
  ASSERT_EQ(after.result, 0);
  EXPECT_EQ(after.buffer.buf, before.buffer.buf);
  EXPECT_EQ(after.shape(), (Numbers{6, 1}));
  EXPECT_EQ(after.template elements<TypeParam>(), samples<TypeParam>(6));
}

TEST(ExportLifetime, TheCopyOfAViewDoesNotFollowAReshape) {
  const PyRef array = makeRecord(makeArray<double>({2, 3}));
  const PyRef row = evaluate("a[1]", {{"a", array}});
  const Request before(row, PyBUF_FULL_RO);
  const PyRef arguments = evaluate("(6, 1)");
  EXPECT_EQ(PyRef::steal(MCPyArray_Reshape(array.get(), arguments.get(), nullptr)).get(),
            array.get());
  const Request after(row, PyBUF_FULL_RO);
  ASSERT_EQ(after.result, 0);
  EXPECT_EQ(after.buffer.buf, before.buffer.buf);
  EXPECT_EQ(after.shape(), (Numbers{1, 3}));
  EXPECT_EQ(after.elements<double>(), (std::vector<double>{2, 4, 6}));
}

}  // namespace
