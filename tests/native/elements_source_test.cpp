// Recognition of objects whose elements can be read from memory.
#include "elements/source.hpp"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "exporter_testing.hpp"
#include "module/element_to_number.hpp"
#include "module/type_objects.hpp"
#include "python_testing.hpp"

namespace {

using namespace python_testing;
using foundation::velmardata::ArrayType;

// The number at an address. Every byte but 0 is True.
PyRef numberAt(ArrayType type, const std::byte* address) {
  if (type == ArrayType::LOGICAL) return PyRef::steal(makeNumber(*address != std::byte{0}));
  switch (type) {
#define X(name, number, element)                 \
  case ArrayType::name: {                        \
    element value{};                             \
    std::memcpy(&value, address, sizeof(value)); \
    return PyRef::steal(makeNumber(value));      \
  }
    VELMARDATA_FOR_EACH_ARRAY_TYPE(X)
#undef X
  }
  return PyRef();
}

// The elements as nested lists, like those of tolist().
PyRef listOf(const Box& box, std::size_t level, const std::byte* address) {
  if (level == box.lanes.size()) return numberAt(box.type, address);
  PyRef list = PyRef::steal(PyList_New(0));
  for (std::int64_t k = 0; k < box.lanes[level].count; ++k) {
    const PyRef item = listOf(box, level + 1, address + k * box.lanes[level].stride);
    PyList_Append(list.get(), item.get());
  }
  return list;
}

// repr() of the elements, or "refused".
std::string elementsFoundIn(const PyRef& object) {
  Source source;
  const bool isFound = source.find(object.get());
  EXPECT_TRUE(raisedNothing());
  if (!isFound) return "refused";
  std::int64_t count = 1;
  for (const Lane& lane : source.box().lanes) count *= lane.count;
  EXPECT_EQ(source.box().count, count);
  return reprOf(listOf(source.box(), 0, source.box().first));
}

// --- Objects of Python

constexpr const char* foundExpressions[] = {
    "array.array('b', [-128, -1, 0, 127])",
    "array.array('B', [0, 1, 255])",
    "array.array('h', [-32768, 32767])",
    "array.array('H', [0, 65535])",
    "array.array('i', [-2**31, 2**31 - 1])",
    "array.array('I', [0, 2**32 - 1])",
    "array.array('l', [-2**63, 2**63 - 1])",
    "array.array('L', [0, 2**64 - 1])",
    "array.array('q', [-2**63, 2**63 - 1])",
    "array.array('Q', [0, 2**64 - 1])",
    "array.array('f', [0.5, -1e38, float('inf'), float('nan'), -0.0])",
    "array.array('d', [0.1, -1e300, float('-inf'), float('nan'), -0.0])",
    "array.array('d', [1.5])",
    "memoryview(b'abc')",
    "memoryview(bytearray(b'abc'))",
    "memoryview(array.array('d', [1, 2, 3, 4, 5]))",
    "memoryview(array.array('h', [1, 2, 3, 4, 5]))[1:4]",
    "memoryview(array.array('i', [1, 2, 3, 4, 5]))[::2]",
    "memoryview(array.array('q', [1, 2, 3, 4, 5]))[::-1]",
    "memoryview(array.array('L', [1, 2, 3, 4, 5]))[4:1:-2]",
    "memoryview(bytearray(b'\\x00\\x01\\x02\\xff')).cast('?')",
    "memoryview(bytearray(range(16))).cast('b')",
    "memoryview(bytearray(range(16))).cast('d')",
    "memoryview(bytearray(range(16))).cast('I')",
    "memoryview(bytearray(range(16)))[8:].cast('q')",
    "memoryview(b'abc').toreadonly()",
};

PyRef evaluateWithArray(const std::string& expression) {
  const PyRef module = PyRef::steal(PyImport_ImportModule("array"));
  return evaluate(expression, {{"array", module}});
}

TEST(SourceOf, ArraysAndMemoryviewsHasTheirItems) {
  for (const char* expression : foundExpressions) {
    SCOPED_TRACE(expression);
    const PyRef object = evaluateWithArray(expression);
    const PyRef items = PyRef::steal(PySequence_List(object.get()));
    EXPECT_EQ(elementsFoundIn(object), reprOf(items));
  }
}

constexpr const char* refusedExpressions[] = {
    "array.array('d')",
    "array.array('u', 'abc')",
    "type('Own', (array.array,), {})('d', [1])",
    "memoryview(b'')",
    "memoryview(array.array('d', [1, 2]))[:0]",
    "memoryview(bytearray(6)).cast('B', (2, 3))",
    "memoryview(bytearray(8)).cast('d', ())",
    "memoryview(bytearray(6)).cast('c')",
    "memoryview(bytearray(8)).cast('n')",
    "memoryview(bytearray(8)).cast('N')",
    "memoryview(bytearray(8)).cast('P')",
    "memoryview(bytearray(8)).cast('@d')",
    "memoryview(bytearray(9))[1:].cast('d')",                 // unaligned
    "memoryview((__import__('ctypes').c_int * 3)(1, 2, 3))",  // '<i'
    "memoryview(array.array('u', 'abc'))",
    "memoryview(__import__('velmar').double([[1, 2], [3, 4]]))",
    "[1, 2]",
    "(1, 2)",
    "b'abc'",
    "bytearray(b'abc')",
    "'abc'",
    "range(3)",
    "None",
    "5",
    "1.5",
    "array.array",
    "iter(array.array('d', [1]))",
    "type('Sequence', (), {'__len__': lambda s: 2, '__getitem__': lambda s, k: [1, 2][k]})()",
};

TEST(SourceOf, OtherObjectsIsRefused) {
  for (const char* expression : refusedExpressions) {
    SCOPED_TRACE(expression);
    EXPECT_EQ(elementsFoundIn(evaluateWithArray(expression)), "refused");
  }
}

TEST(SourceOf, AReleasedMemoryviewIsRefused) {
  const PyRef view = evaluateWithArray("memoryview(array.array('d', [1, 2]))");
  evaluate("view.release()", {{"view", view}});
  EXPECT_EQ(elementsFoundIn(view), "refused");
}

// An array that is exported refuses to grow.
TEST(SourceOf, HoldsTheBufferAsLongAsItLives) {
  const PyRef array = evaluateWithArray("array.array('d', [1, 2])");
  const auto canGrow = [&array] {
    const PyRef result = PyRef::steal(PyObject_CallMethod(array.get(), "append", "d", 3.0));
    PyErr_Clear();
    return static_cast<bool>(result);
  };
  {
    Source source;
    ASSERT_TRUE(source.find(array.get()));
    EXPECT_FALSE(canGrow());
  }
  EXPECT_TRUE(canGrow());
}

TEST(SourceOf, AnythingIsRefusedWhileAnErrorIsPending) {
  const PyRef objects[] = {evaluateWithArray("array.array('d', [1])"),
                           evaluateWithArray("memoryview(b'abc')"),
                           makeRecord(makeArray<double>({2, 3}))};
  for (const PyRef& object : objects) {
    PyErr_SetString(PyExc_KeyError, "pending");
    Source source;
    EXPECT_FALSE(source.find(object.get()));
    EXPECT_TRUE(raised(PyExc_KeyError, "'pending'"));
  }
}

// --- Memoryviews of buffers with any fields

// A memoryview of so many bytes of the exporter, as items of one dimension.
PyRef viewOfItems(SampleExporter<double>& exporter, const char* format, Py_ssize_t itemsize,
                  Py_ssize_t bytes) {
  exporter.exports.format = format;
  exporter.exports.itemsize = itemsize;
  exporter.exports.shape = Sizes{bytes / itemsize};
  exporter.exports.strides = Sizes{itemsize};
  return PyRef::steal(PyMemoryView_FromObject(exporter.object.get()));
}

TEST(SourceOfMemoryview, FormatsAreThoseOfOneLetter) {
  const struct {
    const char* format;
    Py_ssize_t itemsize;
    bool isFound;
  } rows[] = {
      {"d", 8, true},   {"q", 8, true},   {"Q", 8, true},   {"l", 8, true},   {"L", 8, true},
      {"=d", 8, false}, {"<d", 8, false}, {">d", 8, false}, {"!d", 8, false}, {"@d", 8, false},
      {"Zf", 8, false}, {"2f", 8, false}, {"d ", 8, false}, {"", 8, false},   {"e", 8, false},
      {"d", 4, false},  {"i", 8, false},  {"b", 2, false},  {"B", 2, false},  {"h", 4, false},
      {"H", 4, false},  {"I", 2, false},  {"q", 4, false},  {"Q", 4, false},  {"f", 8, false},
      {"?", 2, false},  {"l", 4, true},   {"L", 4, true},   {"l", 2, false},  {"L", 1, false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.format);
    SampleExporter<double> exporter({3});
    const PyRef view = viewOfItems(exporter, row.format, row.itemsize, 24);
    ASSERT_TRUE(view);
    EXPECT_EQ(elementsFoundIn(view) != "refused", row.isFound);
    EXPECT_EQ(elementsFoundIn(exporter.object), "refused") << "other exporters are not asked";
  }
}

// The letters for `long` tell the signedness alone.
TEST(SourceOfMemoryview, ItemsOfLongHaveTheSizeThatTheExporterGives) {
  const struct {
    const char* format;
    Py_ssize_t itemsize;
    const char* expected;
  } rows[] = {
      {"l", 4, "[-1, 2, -3, 4]"},
      {"L", 4, "[4294967295, 2, 4294967293, 4]"},
      {"l", 8, "[12884901887, 21474836477]"},
      {"L", 8, "[12884901887, 21474836477]"},
      {"l", 2, "refused"},
      {"L", 2, "refused"},
  };
  std::int32_t memory[] = {-1, 2, -3, 4};
  SampleExporter<double> exporter({2});
  for (const auto& row : rows) {
    SCOPED_TRACE(row.format + std::to_string(row.itemsize));
    exporter.exports.buf = memory;
    const PyRef view = viewOfItems(exporter, row.format, row.itemsize, 16);
    ASSERT_TRUE(view);
    EXPECT_EQ(elementsFoundIn(view), row.expected);
  }
}

TEST(SourceOfMemoryview, ItemsWithoutBytesAreRefused) {
  SampleExporter<double> exporter({3});
  exporter.exports.itemsize = 0;
  exporter.exports.shape = Sizes{3};
  exporter.exports.strides = Sizes{0};
  const PyRef view = PyRef::steal(PyMemoryView_FromObject(exporter.object.get()));
  ASSERT_TRUE(view);
  EXPECT_EQ(elementsFoundIn(view), "refused");
}

TEST(SourceOfMemoryview, ElementsThatAreNotAlignedAreRefused) {
  std::vector<double> memory(8, 1.5);
  SampleExporter<double> exporter({3});
  for (const Py_ssize_t distance : {0, 1, 4, 8}) {
    for (const Py_ssize_t stride : {8, 12, 16, -8, 0}) {
      SCOPED_TRACE(testing::PrintToString(std::vector<Py_ssize_t>{distance, stride}));
      exporter.exports.buf = reinterpret_cast<std::byte*>(memory.data() + 2) + distance;
      exporter.exports.strides = Sizes{stride};
      const PyRef view = PyRef::steal(PyMemoryView_FromObject(exporter.object.get()));
      const bool isExpected = distance % 8 == 0 && stride % 8 == 0;
      EXPECT_EQ(elementsFoundIn(view) != "refused", isExpected);
    }
  }
}

TEST(SourceOfMemoryview, SuboffsetsAreRefused) {
  SampleExporter<double> exporter({3});
  const PyRef plain = PyRef::steal(PyMemoryView_FromObject(exporter.object.get()));
  EXPECT_NE(elementsFoundIn(plain), "refused");
  exporter.exports.suboffsets = Sizes{0};
  const PyRef indirect = PyRef::steal(PyMemoryView_FromObject(exporter.object.get()));
  EXPECT_EQ(elementsFoundIn(indirect), "refused");
}

// --- Arrays of ours

TYPED_SUITE(SourceOfArray, WritableTypes, TypeWords);

TYPED_CASE(SourceOfArray, HasTheItemsOfArraysAndViews) {
  const PyRef array = makeRecord(makeArray<TypeParam>({2, 3, 4}));
  for (const char* expression : {"a", "a[1]", "a[::-1]", "a[1][1:]", "a[1][2]", "a[1][2][::-2]",
                                 "list(a)[1]", "a.clone()"}) {
    SCOPED_TRACE(expression);
    const PyRef view = evaluate(expression, {{"a", array}});
    const PyRef lists = evaluate(
        "(lambda f, x: f(f, x))(lambda f, x: [f(f, y) for y in x] if hasattr(x, '__len__') else x, "
        "view)",
        {{"view", view}});
    EXPECT_EQ(elementsFoundIn(view), reprOf(lists));
  }
}

TYPED_CASE(SourceOfArray, IsRefusedWithoutStorageOrElements) {
  const PyRef objects[] = {makeRecord(makeExpiredView<TypeParam>({2, 3})),
                           makeRecord(makeViewWithoutStorage<TypeParam>({2, 3})),
                           makeRecord(makeArray<TypeParam>({0, 3})),
                           PyRef::steal(allocMCPyArray(typeObjectOf(classOfElement<TypeParam>()))),
                           makeRecord(std::make_unique<MCppPyArray>(*makeArray<TypeParam>({2, 3}),
                                                                    Position{0, 0}, false))};
  for (const PyRef& object : objects) EXPECT_EQ(elementsFoundIn(object), "refused");
}

// In a child process, because the slots of a class cannot be given back. Returns the number of the
// first check that failed, or 0.
template <class T>
int checkRedefinedItems(const char* name) {
  constexpr SupportedArrayEnum type = classOfElement<T>();
  const PyRef array = makeRecord(makeArray<T>({2, 3}));
  const PyRef other = type == SupportedArrayEnum::Single ? makeRecord(makeArray<double>({2, 3}))
                                                         : makeRecord(makeArray<float>({2, 3}));
  if (!Source().find(array.get())) return 1;
  auto* const object = reinterpret_cast<PyObject*>(typeObjectOf(type));
  const PyRef redefined = evaluate("lambda self, *index: 1");
  if (PyObject_SetAttrString(object, name, redefined.get()) != 0) return 2;
  if (Source().find(array.get())) return 3;
  if (!Source().find(other.get())) return 4;
  return PyErr_Occurred() != nullptr ? 5 : 0;
}

TYPED_CASE(SourceOfArray, IsRefusedWhenAProgramHasRedefinedTheItems) {
  for (const char* name : {"__getitem__", "__len__"}) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) _exit(checkRedefinedItems<TypeParam>(name));
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status)) << name;
    EXPECT_EQ(WEXITSTATUS(status), 0) << name;
  }
}

}  // namespace
