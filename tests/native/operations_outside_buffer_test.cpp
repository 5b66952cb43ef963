// Buffers of other objects for native clients: the result, the error and the buffer in each case.
#include "operations/outside_buffer.hpp"

#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <optional>
#include <string>

#include "exporter_testing.hpp"
#include "python_testing.hpp"

namespace {

using namespace python_testing;

// --- Failures that obtain no buffer

TEST(FillPyBuffer, NoObjectAndNoBufferInterfaceSetNoError) {
  Py_buffer buffer = {};
  buffer.len = 77;
  bool isComplex = true;
  EXPECT_EQ(fillPyBuffer(nullptr, &buffer, &isComplex), -1);
  for (const char* expression : {"5", "None", "'text'", "[1.0, 2.0]", "object()", "bytes"}) {
    SCOPED_TRACE(expression);
    const PyRef object = evaluate(expression);
    EXPECT_EQ(fillPyBuffer(object.get(), &buffer, &isComplex), -1);
    EXPECT_EQ(fillPyBuffer(object.get(), nullptr, nullptr), -1) << "the object is checked first";
  }
  EXPECT_EQ(fillPyBuffer(nullptr, nullptr, nullptr), -1);
  EXPECT_TRUE(raisedNothing());
  EXPECT_EQ(buffer.len, 77);
  EXPECT_EQ(buffer.obj, nullptr);
  EXPECT_TRUE(isComplex);
}

TEST(FillPyBuffer, NullArgumentsAreReportedBeforeTheObjectIsAsked) {
  SampleExporter<double> exporter({2, 3});
  Py_buffer buffer = {};
  bool isComplex = true;
  EXPECT_EQ(fillPyBuffer(exporter.object.get(), nullptr, &isComplex), -2);
  EXPECT_TRUE(raised(PyExc_RuntimeError, "null data pointer."));
  EXPECT_EQ(fillPyBuffer(exporter.object.get(), &buffer, nullptr), -2);
  EXPECT_TRUE(raised(PyExc_RuntimeError, "null data pointer."));
  EXPECT_EQ(fillPyBuffer(exporter.object.get(), nullptr, nullptr), -2);
  EXPECT_TRUE(raised(PyExc_RuntimeError, "null data pointer."));
  EXPECT_EQ(exporter.exports.flags, -1);
  EXPECT_EQ(exporter.exports.obtained, 0);
  EXPECT_EQ(buffer.obj, nullptr);
  EXPECT_TRUE(isComplex);
}

TEST(FillPyBuffer, RefusalIsTheObjectsOwn) {
  SampleExporter<double> exporter({2, 3});
  exporter.exports.refuses = true;
  Py_buffer buffer = {};
  bool isComplex = true;
  EXPECT_EQ(fillPyBuffer(exporter.object.get(), &buffer, &isComplex), -3);
  EXPECT_TRUE(raised(PyExc_LookupError, "nothing to export."));
  EXPECT_EQ(exporter.exports.flags, contiguousWithFormat);
  EXPECT_EQ(exporter.exports.released, 0);
  EXPECT_TRUE(isComplex) << "unchanged";

  const PyRef scattered = evaluate("memoryview(b'abcd')[::2]");
  EXPECT_EQ(fillPyBuffer(scattered.get(), &buffer, &isComplex), -3);
  EXPECT_TRUE(raisedOwn(PyExc_BufferError));
  const PyRef expired = makeRecord(makeExpiredView<double>({2, 3}));
  EXPECT_EQ(fillPyBuffer(expired.get(), &buffer, &isComplex), -3);
  EXPECT_TRUE(raised(PyExc_RuntimeError, "null data pointer."));
}

// --- Failures after the buffer was obtained

struct FailureRow {
  std::optional<std::string> format;
  int code;
  bool isComplex;
  std::string message;
};

FailureRow unknownLetter(const std::string& format, char letter) {
  return {format, -6, format.front() == 'Z',
          std::string("format character not supported: ") + letter};
}

TEST(FillPyBuffer, FormatsThatNameNoTypeKeepTheBufferObtained) {
  const FailureRow rows[] = {
      {std::nullopt, -4, false, "format field is null."},
      {"", -5, false, "format field is empty."},
      unknownLetter("<d", '<'),
      unknownLetter("=q", '='),
      unknownLetter("@d", '@'),
      unknownLetter(">d", '>'),
      unknownLetter("!B", '!'),
      unknownLetter("2d", '2'),
      unknownLetter("(2,3)d", '('),
      unknownLetter(" d", ' '),
      unknownLetter("T{d:x:}", 'T'),
      unknownLetter("c", 'c'),
      unknownLetter("s", 's'),
      unknownLetter("x", 'x'),
      unknownLetter("e", 'e'),
      unknownLetter("g", 'g'),
      unknownLetter("n", 'n'),
      unknownLetter("P", 'P'),
      unknownLetter("O", 'O'),
      unknownLetter("D", 'D'),
      unknownLetter("F", 'F'),
      unknownLetter("z", 'z'),
      unknownLetter("Z<d", '<'),
      unknownLetter("ZZd", 'Z'),
      unknownLetter("Z d", ' '),
      unknownLetter("Zg", 'g'),
  };
  for (const FailureRow& row : rows) {
    SCOPED_TRACE(row.format.value_or("null"));
    SampleExporter<double> exporter({2, 3});
    exporter.exports.format = row.format;
    const Py_ssize_t references = Py_REFCNT(exporter.object.get());
    Py_buffer buffer = {};
    bool isComplex = !row.isComplex;
    EXPECT_EQ(fillPyBuffer(exporter.object.get(), &buffer, &isComplex), row.code);
    EXPECT_TRUE(raised(PyExc_RuntimeError, row.message));
    EXPECT_EQ(isComplex, row.isComplex);
    // Deliberate: the buffer is not released.
    EXPECT_EQ(exporter.exports.obtained, 1);
    EXPECT_EQ(exporter.exports.released, 0);
    EXPECT_EQ(buffer.obj, exporter.object.get());
    EXPECT_EQ(buffer.buf, exporter.memory.get());
    EXPECT_EQ(Py_REFCNT(exporter.object.get()), references + 1);
    PyBuffer_Release(&buffer);
    EXPECT_EQ(exporter.exports.released, 1);
  }
}

// --- Success

struct LetterRow {
  const char* format;
  Py_ssize_t itemsize;
  int number;
  bool isComplex;
};
constexpr LetterRow letterRows[] = {
    {"d", 8, 4, false},
    {"f", 4, 5, false},
    {"b", 1, 6, false},
    {"B", 1, 7, false},
    {"h", 2, 8, false},
    {"H", 2, 9, false},
    {"i", 4, 10, false},
    {"I", 4, 11, false},
    {"q", 8, 12, false},
    {"Q", 8, 13, false},
    {"?", 1, 14, false},
    // The item size counts only for the letters of the platform's long.
    {"d", 3, 4, false},
    {"i", 8, 10, false},
    {"q", 4, 12, false},
    {"l", 8, 12, false},
    {"l", 4, 10, false},
    {"l", 2, 12, false},
    {"l", 0, 12, false},
    {"l", -4, 12, false},
    {"L", 8, 13, false},
    {"L", 4, 11, false},
    {"L", 1, 13, false},
    {"L", 0, 13, false},
    {"Z", 16, 4, true},
    {"Z", 8, 4, true},
    {"Zd", 16, 4, true},
    {"Zf", 8, 5, true},
    {"Zb", 2, 6, true},
    {"ZB", 2, 7, true},
    {"Zh", 4, 8, true},
    {"ZH", 4, 9, true},
    {"Zi", 8, 10, true},
    {"ZI", 8, 11, true},
    {"Zq", 16, 12, true},
    {"ZQ", 16, 13, true},
    {"Z?", 2, 14, true},
    {"Zl", 16, 12, true},
    {"Zl", 8, 12, true},  // the size of the item, not of its part
    {"Zl", 4, 10, true},
    {"ZL", 16, 13, true},
    {"ZL", 4, 11, true},
    // Only the first letter is read, or the first behind a Z.
    {"dZ", 8, 4, false},
    {"dd", 8, 4, false},
    {"d:x:", 8, 4, false},
    {"b<", 1, 6, false},
    {"l4", 4, 10, false},
    {"Zfd", 8, 5, true},
    {"ZdZ", 16, 4, true},
};

TEST(FillPyBuffer, TypeIsThatOfTheLetter) {
  for (const LetterRow& row : letterRows) {
    SCOPED_TRACE(std::string(row.format) + " in items of " + std::to_string(row.itemsize));
    SampleExporter<double> exporter({2, 3});
    exporter.exports.format = row.format;
    exporter.exports.itemsize = row.itemsize;
    Py_buffer buffer = {};
    bool isComplex = !row.isComplex;
    EXPECT_EQ(fillPyBuffer(exporter.object.get(), &buffer, &isComplex), row.number);
    EXPECT_EQ(isComplex, row.isComplex);
    EXPECT_TRUE(raisedNothing());
    EXPECT_EQ(exporter.exports.flags, contiguousWithFormat);
    EXPECT_EQ(exporter.exports.obtained, 1);
    EXPECT_EQ(exporter.exports.released, 0);
    PyBuffer_Release(&buffer);
    EXPECT_EQ(exporter.exports.released, 1);
  }
}

TEST(FillPyBuffer, FieldsAreThoseOfTheExporterUnchecked) {
  SampleExporter<std::int16_t> exporter({2, 3}, 'C');
  Exports& exports = exporter.exports;
  exports.suboffsets = Sizes{-1, -1};
  Py_buffer buffer = {};
  bool isComplex = true;
  ASSERT_EQ(fillPyBuffer(exporter.object.get(), &buffer, &isComplex), 8);
  EXPECT_EQ(buffer.buf, exporter.memory.get());
  EXPECT_EQ(buffer.len, 12);
  EXPECT_EQ(buffer.itemsize, 2);
  EXPECT_EQ(buffer.ndim, 2);
  EXPECT_EQ(buffer.shape, exports.shape->data());
  EXPECT_EQ(buffer.strides, exports.strides->data());
  EXPECT_EQ(buffer.suboffsets, exports.suboffsets->data());
  PyBuffer_Release(&buffer);

  Exports nothing;
  nothing.format = "h";
  const PyRef bare = makeExporter(nothing);
  EXPECT_EQ(fillPyBuffer(bare.get(), &buffer, &isComplex), 8);
  EXPECT_EQ(buffer.buf, nullptr);
  EXPECT_EQ(buffer.shape, nullptr);
  PyBuffer_Release(&buffer);
  EXPECT_EQ(nothing.released, 1);
}

struct ObjectRow {
  const char* expression;
  int number;
  const char* message;  // of a failure
};

TEST(FillPyBuffer, ReadsTheInterpretersExporters) {
  const ObjectRow rows[] = {
      {"b'ab'", 7, nullptr},
      {"b''", 7, nullptr},
      {"bytearray(2)", 7, nullptr},
      {"memoryview(b'ab').cast('?')", 14, nullptr},
      {"memoryview(bytes(8)).cast('f', (2, 1))", 5, nullptr},
      {"memoryview(b'ab').cast('c')", -6, "format character not supported: c"},
      {"__import__('array').array('d', [1])", 4, nullptr},
      {"__import__('array').array('h', [])", 8, nullptr},
      {"__import__('array').array('l', [1])", 12, nullptr},
      {"__import__('array').array('L', [1])", 13, nullptr},
      // The format of ctypes begins with the byte order of the machine.
      {"(__import__('ctypes').c_double * 2)()", -6,
       std::endian::native == std::endian::big ? "format character not supported: >"
                                               : "format character not supported: <"},
  };
  for (const ObjectRow& row : rows) {
    SCOPED_TRACE(row.expression);
    const PyRef object = evaluate(row.expression);
    Py_buffer buffer = {};
    bool isComplex = true;
    EXPECT_EQ(fillPyBuffer(object.get(), &buffer, &isComplex), row.number);
    EXPECT_FALSE(isComplex);
    if (row.message != nullptr) {
      EXPECT_TRUE(raised(PyExc_RuntimeError, row.message));
    }
    EXPECT_TRUE(raisedNothing());
    PyBuffer_Release(&buffer);
  }
}

TYPED_SUITE(FillPyBufferOf, WritableTypes, TypeWords);

TYPED_CASE(FillPyBufferOf, AnArrayIsItsTypeAndMemory) {
  const PyRef array = makeRecord(makeArray<TypeParam>({2, 3}));
  const PyRef row = evaluate("a[1]", {{"a", array}});
  for (const PyRef* object : {&array, &row}) {
    MCppPyArray& view = viewOf(*object);
    Py_buffer buffer = {};
    bool isComplex = !isComplexElement<TypeParam>;
    EXPECT_EQ(fillPyBuffer(object->get(), &buffer, &isComplex),
              static_cast<int>(classOfElement<TypeParam>()) + 4);
    EXPECT_EQ(isComplex, isComplexElement<TypeParam>);
    const MCppPyArray* copy = view.caches().indexRestrictedMCppPyArray();
    EXPECT_EQ(buffer.buf, (copy != nullptr ? *copy : view).wrapper()->buf());
    EXPECT_EQ(buffer.obj, object->get());
    PyBuffer_Release(&buffer);
  }
  EXPECT_TRUE(raisedNothing());
}

}  // namespace
