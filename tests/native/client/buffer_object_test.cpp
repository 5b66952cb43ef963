// Function 3 of the capsule: arrays of the class that a buffer's format names, and type numbers.
#include <gtest/gtest.h>

#include <complex>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "client_testing.hpp"
#include "exporter_testing.hpp"

namespace {

using namespace client_testing;

// 4 plus the number of the class, plus 10 for complex elements.
template <class T>
constexpr int typeNumber = std::is_same_v<T, bool> ? 14 : static_cast<int>(arrayTypeOf<T>);

TYPED_SUITE(BufferObject, WritableTypes, TypeNames);

// --- Objects of every type

TYPED_CASE(BufferObject, BecomesAnArrayOfTheClassOfItsFormat) {
  const PyRef arrayClass = classObject<TypeParam>();
  const PyRef array = pythonSamples<TypeParam>();
  struct Row {
    const char* object;
    const char* expected;
  };
  const Row rows[] = {
      {"a", "a"},
      {"memoryview(a)", "a"},
      {"a[::-1]", "a[::-1]"},
      {"memoryview(a[::-1])", "a[::-1]"},
      // One dimension n becomes 1 by n.
      {"a[1]", "a[1:]"},
      {"memoryview(a[1])", "a[1:]"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.object);
    const PyRef object = evaluate(row.object, {{"a", array}});
    const Py_ssize_t references = Py_REFCNT(object.get());
    const Converted converted = convertBuffer(object);
    EXPECT_TRUE(raisedNothing());
    ASSERT_TRUE(converted.array);
    EXPECT_EQ(converted.type, typeNumber<TypeParam>);
    EXPECT_EQ(reinterpret_cast<PyObject*>(Py_TYPE(converted.array.get())), arrayClass.get());
    EXPECT_EQ(Py_REFCNT(converted.array.get()), 1);
    EXPECT_EQ(Py_REFCNT(object.get()), references);
    EXPECT_EQ(reprOf(converted.array), reprOf(evaluate(row.expected, {{"a", array}})));
  }
}

TYPED_CASE(BufferObject, IsReleasedAndCopied) {
  SampleExporter<TypeParam> exporter({2, 3});
  const Py_ssize_t references = Py_REFCNT(exporter.object.get());
  const Converted converted = convertBuffer(exporter.object);
  EXPECT_TRUE(raisedNothing());
  ASSERT_TRUE(converted.array);
  EXPECT_EQ(converted.type, typeNumber<TypeParam>);
  EXPECT_GT(exporter.exports.obtained, 0);
  EXPECT_EQ(exporter.exports.released, exporter.exports.obtained);
  EXPECT_EQ(Py_REFCNT(exporter.object.get()), references);
  static_cast<TypeParam*>(exporter.memory.get())[0] = otherThanSample<TypeParam>(0);
  EXPECT_EQ(reprOf(converted.array), textOfRows(samples<TypeParam>(6)));
  const Array array = handOut(converted.array);
  EXPECT_EQ(array.getType(), arrayTypeOf<TypeParam>);
  EXPECT_EQ(referenceCount(array), 2U);
}

TYPED_CASE(BufferObject, InRowMajorOrderKeepsItsShape) {
  const SampleExporter<TypeParam> exporter({2, 3}, 'C');
  const Converted converted = convertBuffer(exporter.object);
  std::vector<TypeParam> expected;
  for (const std::size_t place : {0U, 3U, 1U, 4U, 2U, 5U})
    expected.push_back(sample<TypeParam>(place));
  EXPECT_EQ(reprOf(converted.array), textOfRows(expected));
}

// --- Objects of other classes

struct ObjectRow {
  const char* expression;
  int type;
  const char* text;
};

TEST(BufferObjectOf, TheInterpreter) {
  const ObjectRow rows[] = {
      {"b'ab'", 7, "velmar.uint8([[97,98]])"},
      {"bytearray(b'a')", 7, "velmar.uint8([[97]])"},
      {"b''", 7, "velmar.uint8([])"},
      {"memoryview(b'\\0\\2').cast('?')", 14, "velmar.logical([[False,True]])"},
      {"memoryview(b'\\0\\2').cast('b')", 6, "velmar.int8([[0,2]])"},
      {"memoryview(bytes(8)).cast('d')", 4, "velmar.double([[0.0]])"},
      {"__import__('array').array('d', [1, 2])", 4, "velmar.double([[1.0,2.0]])"},
      {"__import__('array').array('f', [0.5])", 5, "velmar.single([[0.5]])"},
      {"__import__('array').array('h', [-1])", 8, "velmar.int16([[-1]])"},
      {"__import__('array').array('H', [1])", 9, "velmar.uint16([[1]])"},
      {"__import__('array').array('i', [-1])", 10, "velmar.int32([[-1]])"},
      {"__import__('array').array('I', [1])", 11, "velmar.uint32([[1]])"},
      {"__import__('array').array('q', [-1])", 12, "velmar.int64([[-1]])"},
      {"__import__('array').array('Q', [1])", 13, "velmar.uint64([[1]])"},
      {"__import__('array').array('l', [-1])", 12, "velmar.int64([[-1]])"},
      {"__import__('array').array('L', [1])", 13, "velmar.uint64([[1]])"},
  };
  for (const ObjectRow& row : rows) {
    SCOPED_TRACE(row.expression);
    const Converted converted = convertBuffer(evaluate(row.expression));
    EXPECT_EQ(converted.type, row.type);
    EXPECT_EQ(reprOf(converted.array), row.text);
  }
  EXPECT_TRUE(raisedNothing());
}

TEST(BufferObjectOf, ThePlatformsLong) {
  SampleExporter<std::int32_t> narrow({1, 2});
  narrow.exports.format = "l";
  const Converted signedOne = convertBuffer(narrow.object);
  EXPECT_EQ(signedOne.type, 10);
  EXPECT_EQ(reprOf(signedOne.array), "velmar.int32([[1,2]])");
  narrow.exports.format = "L";
  const Converted unsignedOne = convertBuffer(narrow.object);
  EXPECT_EQ(unsignedOne.type, 11);
  EXPECT_EQ(reprOf(unsignedOne.array), "velmar.uint32([[1,2]])");
  SampleExporter<std::complex<std::int64_t>> wide({1, 2});
  wide.exports.format = "Zl";
  const Converted complexOne = convertBuffer(wide.object);
  EXPECT_EQ(complexOne.type, 22);
  EXPECT_EQ(reprOf(complexOne.array), "velmar.int64([[(1+61j),(2+62j)]], is_complex=True)");
}

// Deliberate: logical elements and complex doubles have the same number; the classes differ.
TEST(BufferObjectOf, LogicalAndComplexDoubleElementsReportTheSameNumber) {
  const SampleExporter<bool> logical({1, 2});
  const SampleExporter<std::complex<double>> complex({1, 2});
  const Converted fromLogical = convertBuffer(logical.object);
  const Converted fromComplex = convertBuffer(complex.object);
  EXPECT_EQ(fromLogical.type, 14);
  EXPECT_EQ(fromComplex.type, 14);
  EXPECT_EQ(handOut(fromLogical.array).getType(), ArrayType::LOGICAL);
  EXPECT_EQ(handOut(fromComplex.array).getType(), ArrayType::COMPLEX_DOUBLE);
}

// --- Failures before the type is known

TEST(BufferObjectFailure, WithoutABufferThereIsNoError) {
  int type = -99;
  EXPECT_EQ(capsuleTable().BufferObjectToMCPyArray(nullptr, &type), nullptr);
  EXPECT_EQ(type, 0);
  EXPECT_TRUE(raisedNothing());
  for (const char* expression :
       {"None", "5", "'text'", "[1.0]", "object()", "bytes", "__import__('velmar').double"}) {
    SCOPED_TRACE(expression);
    const PyRef object = evaluate(expression);
    const Py_ssize_t references = Py_REFCNT(object.get());
    const Converted converted = convertBuffer(object);
    EXPECT_EQ(Py_REFCNT(object.get()), references);
    EXPECT_FALSE(converted.array);
    EXPECT_EQ(converted.type, 0);
    EXPECT_TRUE(raisedNothing());
  }
}

TEST(BufferObjectFailure, NullPointerForTheTypeIsReportedFirst) {
  const SampleExporter<double> exporter({1, 2});
  for (PyObject* object : {exporter.object.get(), static_cast<PyObject*>(nullptr)}) {
    EXPECT_EQ(capsuleTable().BufferObjectToMCPyArray(object, nullptr), nullptr);
    EXPECT_TRUE(raised(PyExc_RuntimeError, "null data pointer."));
  }
  EXPECT_EQ(exporter.exports.obtained, 0);
}

TEST(BufferObjectFailure, RefusalOfTheObjectStaysSet) {
  SampleExporter<double> exporter({1, 2});
  exporter.exports.refuses = true;
  const Py_ssize_t references = Py_REFCNT(exporter.object.get());
  const Converted refused = convertBuffer(exporter.object);
  EXPECT_TRUE(raised(PyExc_LookupError, "nothing to export."));
  EXPECT_FALSE(refused.array);
  EXPECT_EQ(refused.type, 0);
  EXPECT_EQ(exporter.exports.released, 0);
  EXPECT_EQ(Py_REFCNT(exporter.object.get()), references);

  const Converted scattered = convertBuffer(evaluate("memoryview(b'abcd')[::2]"));
  EXPECT_TRUE(raisedOwn(PyExc_BufferError));
  EXPECT_FALSE(scattered.array);
  EXPECT_EQ(scattered.type, 0);
}

TEST(BufferObjectFailure, ArraysWithoutStorageAreReported) {
  for (const char* expression : expiredViews) {
    SCOPED_TRACE(expression);
    const Converted converted = convertBuffer(evaluate(expression));
    EXPECT_TRUE(raised(PyExc_RuntimeError, "null data pointer."));
    EXPECT_FALSE(converted.array);
    EXPECT_EQ(converted.type, 0);
  }
  const PyRef record = bareRecord(classObject<double>());
  EXPECT_FALSE(convertBuffer(record).array);
  EXPECT_TRUE(raised(PyExc_RuntimeError, "object not initialized."));
  EXPECT_EQ(Py_REFCNT(record.get()), 1);
}

TEST(BufferObjectFailure, FormatsWithoutAClassAreReportedAndTheBufferIsKept) {
  struct Row {
    std::optional<std::string> format;
    const char* message;
  };
  const Row rows[] = {
      {std::nullopt, "format field is null."},     {"", "format field is empty."},
      {"<d", "format character not supported: <"}, {"@d", "format character not supported: @"},
      {"2d", "format character not supported: 2"}, {"c", "format character not supported: c"},
      {"e", "format character not supported: e"},  {"T{d:x:}", "format character not supported: T"},
      {"ZZ", "format character not supported: Z"}, {"Zg", "format character not supported: g"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.format.value_or("null"));
    SampleExporter<double> exporter({1, 2});
    exporter.exports.format = row.format;
    const Py_ssize_t references = Py_REFCNT(exporter.object.get());
    const Converted converted = convertBuffer(exporter.object);
    EXPECT_TRUE(raised(PyExc_RuntimeError, row.message));
    EXPECT_FALSE(converted.array);
    EXPECT_EQ(converted.type, 0);
    // Deliberate: the buffer is not released.
    EXPECT_EQ(exporter.exports.obtained, 1);
    EXPECT_EQ(exporter.exports.released, 0);
    EXPECT_EQ(Py_REFCNT(exporter.object.get()), references + 1);
  }
}

TEST(BufferObjectFailure, KeptBufferIsVisibleInPython) {
  const PyRef characters = evaluate("memoryview(b'ab').cast('c')");
  EXPECT_FALSE(convertBuffer(characters).array);
  EXPECT_TRUE(raised(PyExc_RuntimeError, "format character not supported: c"));
  EXPECT_THROW(evaluate("m.release()", {{"m", characters}}), std::invalid_argument);
  EXPECT_TRUE(raisedOwn(PyExc_BufferError));

  const PyRef bytes = evaluate("memoryview(b'ab')");
  EXPECT_TRUE(convertBuffer(bytes).array);
  EXPECT_NO_THROW(evaluate("m.release()", {{"m", bytes}}));
}

// --- Failures of the class

template <class T>
void expectRefusal(SampleExporter<T>& exporter, int type, PyObject* exceptionClass,
                   const std::string& message) {
  SCOPED_TRACE(message);
  const Py_ssize_t references = Py_REFCNT(exporter.object.get());
  const Converted converted = convertBuffer(exporter.object);
  EXPECT_TRUE(raised(exceptionClass, message));
  EXPECT_FALSE(converted.array);
  EXPECT_EQ(converted.type, type) << "the number is known at that point";
  EXPECT_EQ(exporter.exports.released, exporter.exports.obtained);
  EXPECT_EQ(Py_REFCNT(exporter.object.get()), references);
}

TEST(BufferObjectFailure, BufferThatTheClassRefusesIsReleased) {
  SampleExporter<std::int16_t> pairs({2, 3});
  pairs.exports.format = "Z?";
  expectRefusal(pairs, 24, PyExc_TypeError, "logical arrays must not be complex.");

  SampleExporter<std::complex<double>> unnamed({2, 3});
  unnamed.exports.format = "Z";
  expectRefusal(unnamed, 14, PyExc_BufferError,
                "input buffer format ('Z') is not compatible with output format ('Zd'); use a "
                "different input or output type");

  SampleExporter<double> torn({2, 3});
  torn.exports.len -= 1;
  expectRefusal(torn, 4, PyExc_BufferError, "input does not fit evenly into output type.");

  SampleExporter<double> shapeless({2, 3});
  shapeless.exports.shape.reset();
  expectRefusal(shapeless, 4, PyExc_BufferError, "shape is null.");
}

// --- Leaks

TEST(BufferObjectMemory, ACallForComplexElementsLeavesOneDict) {
  const SampleExporter<double> real({1, 2});
  const SampleExporter<std::complex<double>> complex({1, 2});
  const std::optional<double> ofReal = blocksPerCall([&] { convertBuffer(real.object); });
  if (!ofReal) GTEST_SKIP() << "PYTHONMALLOC=malloc counts no blocks, so no leak can be seen";
  const std::optional<double> ofComplex = blocksPerCall([&] { convertBuffer(complex.object); });
  const std::optional<double> ofDict = blocksPerCall([] {
    PyRef dict = PyRef::steal(PyDict_New());
    PyDict_SetItemString(dict.get(), "is_complex", Py_True);
    keepForever(std::move(dict));  // the leak that is measured
  });
  EXPECT_LT(*ofReal, 0.5);
  // Deliberate: the dict of the keyword is not released.
  EXPECT_GT(*ofDict, 0.5);
  EXPECT_NEAR(*ofComplex, *ofDict, 0.5);
}

}  // namespace
