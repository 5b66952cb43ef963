// Function 1 of the capsule: library arrays as Python arrays, and their references afterwards.
#include <gtest/gtest.h>

#include <complex>
#include <cstdint>
#include <cstring>
#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "client_testing.hpp"
#include "exporter_testing.hpp"
#include "memory_limit.hpp"

namespace {

using namespace client_testing;

TYPED_SUITE(Adoption, WritableTypes, TypeNames);

TYPED_CASE(Adoption, IsAnArrayOfTheClassWithTheElements) {
  const Array array = sampleArray<TypeParam>({2, 3});
  const PyRef adopted = adopt(array);
  EXPECT_TRUE(raisedNothing());
  ASSERT_TRUE(adopted);
  EXPECT_EQ(reinterpret_cast<PyObject*>(Py_TYPE(adopted.get())), classObject<TypeParam>().get());
  EXPECT_EQ(reprOf(adopted), reprOf(pythonSamples<TypeParam>()));
  EXPECT_EQ(reprOf(evaluate("a.size", {{"a", adopted}})), "(2, 3)");
}

TYPED_CASE(Adoption, TakesOneReferenceAndGivesOne) {
  const PyRef arrayClass = classObject<TypeParam>();
  const Py_ssize_t classReferences = Py_REFCNT(arrayClass.get());
  const Array array = sampleArray<TypeParam>({2, 3});
  ArrayImpl* const impl = addReference(array.impl());
  EXPECT_EQ(referenceCount(array), 2U);
  PyObject* const object = capsuleTable().MDAImplToMCPyArray(impl);
  ASSERT_NE(object, nullptr);
  EXPECT_EQ(referenceCount(array), 2U) << "the object owns the reference that was passed";
  EXPECT_EQ(Py_REFCNT(object), 1);
  EXPECT_EQ(Py_REFCNT(arrayClass.get()), classReferences + 1);
  PyRef::steal(object);
  EXPECT_EQ(referenceCount(array), 1U);
  // Deliberate: an array does not release its reference on its class.
  EXPECT_EQ(Py_REFCNT(arrayClass.get()), classReferences + 1);
}

TYPED_CASE(Adoption, KeepsContentsWithoutOtherOwners) {
  Array array = sampleArray<TypeParam>({2, 3});
  const PyRef adopted = adopt(array);
  const ArrayImpl* const impl = array.impl();
  array = Array();
  EXPECT_EQ(impl->m_referenceCount.load(), 1U);
  EXPECT_EQ(reprOf(adopted), textOfRows(samples<TypeParam>(6)));
}

TYPED_CASE(Adoption, OffersTheElementsAsMemory) {
  const TypedArray<TypeParam> array = sampleArray<TypeParam>({2, 3});
  const PyRef adopted = adopt(array);
  Py_buffer buffer = {};
  ASSERT_EQ(PyObject_GetBuffer(adopted.get(), &buffer, PyBUF_ANY_CONTIGUOUS | PyBUF_FORMAT), 0);
  constexpr Py_ssize_t size = sizeof(TypeParam);
  EXPECT_EQ(buffer.len, 6 * size);
  EXPECT_EQ(buffer.itemsize, size);
  EXPECT_EQ(buffer.format, formatOf<TypeParam>());
  EXPECT_EQ(Sizes(buffer.shape, buffer.shape + buffer.ndim), (Sizes{2, 3}));
  EXPECT_EQ(Sizes(buffer.strides, buffer.strides + buffer.ndim), (Sizes{size, 2 * size}));
  EXPECT_EQ(buffer.readonly, 1);
  EXPECT_EQ(std::memcmp(buffer.buf, addressOf(array), 6 * sizeof(TypeParam)), 0);
  EXPECT_NE(buffer.buf, addressOf(array));
  PyBuffer_Release(&buffer);
}

TYPED_CASE(Adoption, WritesFromPythonDoNotReachTheClient) {
  const TypedArray<TypeParam> array = sampleArray<TypeParam>({2, 3});
  const PyRef adopted = adopt(array);
  setFromPython(adopted, 1, 2, otherThanSample<TypeParam>(5));
  EXPECT_EQ(elementsOf(array), samples<TypeParam>(6));
  EXPECT_EQ(referenceCount(array), 1U) << "the object now has its own contents";
  std::vector<TypeParam> written = samples<TypeParam>(6);
  written[5] = otherThanSample<TypeParam>(5);
  EXPECT_EQ(reprOf(adopted), textOfRows(written));
  EXPECT_EQ(elementsOf(TypedArray<TypeParam>(handOut(adopted))), written);
}

TYPED_CASE(Adoption, WritesOfTheClientDoNotReachPython) {
  TypedArray<TypeParam> array = sampleArray<TypeParam>({2, 3});
  const PyRef adopted = adopt(array);
  *array.begin() = otherThanSample<TypeParam>(0);
  EXPECT_EQ(reprOf(adopted), textOfRows(samples<TypeParam>(6)));
  EXPECT_EQ(elementsOf(TypedArray<TypeParam>(handOut(adopted))), samples<TypeParam>(6));
  EXPECT_EQ(referenceCount(array), 1U);
}

// An old iterator writes to shared contents. The elements that Python reads were copied in the
// call.
TYPED_CASE(Adoption, ReadsSeeTheElementsOfTheTimeOfTheCall) {
  TypedArray<TypeParam> array = sampleArray<TypeParam>({2, 3});
  const auto first = array.begin();
  const PyRef adopted = adopt(array);
  *first = otherThanSample<TypeParam>(0);
  EXPECT_EQ(reprOf(adopted), textOfRows(samples<TypeParam>(6)));
}

TYPED_CASE(Adoption, OneArrayManyTimes) {
  const Array array = sampleArray<TypeParam>({2, 3});
  const PyRef first = adopt(array);
  const PyRef second = adopt(array);
  ASSERT_TRUE(first && second);
  EXPECT_NE(first.get(), second.get());
  EXPECT_EQ(referenceCount(array), 3U);
  setFromPython(first, 0, 0, otherThanSample<TypeParam>(0));
  EXPECT_EQ(reprOf(second), textOfRows(samples<TypeParam>(6)));
  EXPECT_EQ(referenceCount(array), 2U);
}

// --- Dimensions

TEST(AdoptionOf, AnyDimensions) {
  struct Row {
    Dimensions dimensions;
    const char* size;
    const char* text;
  };
  const Row rows[] = {
      {{1, 1}, "(1, 1)", "velmar.double([[1.0]])"},
      {{3, 1}, "(3, 1)", "velmar.double([[1.0],[2.0],[3.0]])"},
      {{1, 3}, "(1, 3)", "velmar.double([[1.0,2.0,3.0]])"},
      {{2, 1, 2}, "(2, 1, 2)", "velmar.double([[[1.0,3.0]],[[2.0,4.0]]])"},
      {{0, 0}, "(0, 0)", nullptr},
      {{0, 3}, "(0, 3)", nullptr},
      {{2, 0, 4}, "(2, 0, 4)", nullptr},
      {{3}, "(3,)", nullptr},
      {{}, "()", nullptr},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.size);
    const Array array = sampleArray<double>(row.dimensions);
    const PyRef adopted = adopt(array);
    ASSERT_TRUE(adopted);
    EXPECT_EQ(reprOf(evaluate("a.size", {{"a", adopted}})), row.size);
    if (row.text != nullptr) {
      EXPECT_EQ(reprOf(adopted), row.text);
    }
    EXPECT_EQ(referenceCount(array), 2U);
  }
  EXPECT_TRUE(raisedNothing());
}

TEST(AdoptionOf, ExtremeElements) {
  using Complex = std::complex<std::int64_t>;
  constexpr std::int64_t lowest = std::numeric_limits<std::int64_t>::min();
  TypedArray<std::int64_t> whole(sampleArray<std::int64_t>({1, 2}));
  *whole.begin() = lowest;
  EXPECT_EQ(reprOf(adopt(whole)), "velmar.int64([[-9223372036854775808,2]])");
  TypedArray<double> real(sampleArray<double>({1, 2}));
  *real.begin() = -std::numeric_limits<double>::infinity();
  const PyRef adopted = adopt(real);
  EXPECT_EQ(reprOf(evaluate("a[0][0]", {{"a", adopted}})), "-inf");
  TypedArray<Complex> complex(sampleArray<Complex>({1, 2}));
  *complex.begin() = Complex(lowest + 1, 0);
  const TypedArray<Complex> back(handOut(adopt(complex)));
  EXPECT_EQ(back.begin()->real(), lowest + 1) << "elements are not converted to Python numbers";
}

// --- Failures

TEST(AdoptionFailure, NullIsReported) {
  EXPECT_EQ(capsuleTable().MDAImplToMCPyArray(nullptr), nullptr);
  EXPECT_TRUE(raised(PyExc_RuntimeError, "null data pointer."));
}

TEST(AdoptionFailure, TypesWithoutAClassAreReportedAndTheReferenceIsReleased) {
  std::vector<Array> arrays;
  arrays.push_back(sampleArray<char16_t>({1, 3}));
  arrays.push_back(sampleArray<char16_t>({0, 0}));
  for (const std::uint32_t number : {0U, 3U, 24U, 1000U, ~0U}) {
    arrays.push_back(ArrayFactory().createArray(static_cast<ArrayType>(number), {0, 3}));
  }
  for (const Array& array : arrays) {
    SCOPED_TRACE(static_cast<std::uint32_t>(array.getType()));
    EXPECT_FALSE(adopt(array));
    EXPECT_TRUE(raised(PyExc_RuntimeError, "invalid type."));
    EXPECT_EQ(referenceCount(array), 1U);
  }
  EXPECT_TRUE(adopt(sampleArray<double>({2, 3}))) << "a later call succeeds";
}

TEST(AdoptionFailure, ShortMemoryIsReportedAndTheReferenceIsReleased) {
  const Array array = ArrayFactory().createArray(ArrayType::INT8, {256UL << 20, 1});
  PyRef adopted;
  bool isLimited = false;
  {
    const MemoryLimit limit;
    isLimited = limit.isSet();
    if (isLimited) adopted = adopt(array);
  }
  if (!isLimited) GTEST_SKIP() << "an emulator ignores the limit on memory";
  EXPECT_FALSE(adopted);
  EXPECT_TRUE(raised(PyExc_MemoryError,
                     "unable to allocate memory for array with number of elements = 268435456; "
                     "type = int8"));
  EXPECT_EQ(referenceCount(array), 1U);
}

// --- Leaks

constexpr unsigned long manyElements = 1UL << 21;
constexpr std::size_t oneArray = manyElements * sizeof(double);

TEST(AdoptionMemory, OfDeletedObjectsIsFreed) {
  const std::size_t before = heapInUse();
  for (int i = 0; i < 8; ++i) {
    const PyRef adopted = adopt(ArrayFactory().createArray(ArrayType::DOUBLE, {manyElements, 1}));
    ASSERT_TRUE(adopted);
  }
  EXPECT_LT(heapInUse(), before + oneArray);
}

TEST(AdoptionMemory, OfArraysThatAreRefusedIsFreed) {
  const std::size_t before = heapInUse();
  for (int i = 0; i < 8; ++i) {
    EXPECT_FALSE(adopt(ArrayFactory().createArray(ArrayType::CHAR, {4 * manyElements, 1})));
    EXPECT_TRUE(raised(PyExc_RuntimeError, "invalid type."));
  }
  EXPECT_LT(heapInUse(), before + oneArray);
}

TEST(AdoptionMemory, NoBlockOfTheInterpreterIsKept) {
  const Array array = sampleArray<double>({2, 3});
  const Array text = sampleArray<char16_t>({2, 3});
  const std::optional<double> kept = blocksPerCall([&] {
    adopt(array);
    adopt(text);
    PyErr_Clear();
  });
  if (!kept) GTEST_SKIP() << "PYTHONMALLOC=malloc counts no blocks, so no leak can be seen";
  EXPECT_LT(*kept, 0.5);
}

}  // namespace
