// The shared storage: description in the form of the buffer protocol, mirror, offsets of elements.
#include "storage/md_array_wrapper.hpp"

#include <gtest/gtest.h>

#include <complex>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>

#include "module/element_types.hpp"
#include "python_testing.hpp"
#include "storage_testing.hpp"

namespace {

using namespace python_testing;
using namespace foundation::velmardata;
using velmardata_testing::addressOf;
using velmardata_testing::copyOf;
using velmardata_testing::referenceCount;

// --- The description, for all types

TYPED_SUITE(Wrapper, AllTypes, TypeWords);

TYPED_CASE(Wrapper, DescribesItsArray) {
  constexpr auto size = static_cast<std::int64_t>(sizeof(TypeParam));
  MDArrayWrapper wrapper(sampleArray<TypeParam>({2, 3}), 'F', Contents::Client);
  EXPECT_EQ(wrapper.getElementSizeInBytes(), size);
  EXPECT_EQ(wrapper.getNumberOfDimensions(), 2);
  EXPECT_EQ(numbersOf(wrapper.shape()), (Numbers{2, 3}));
  EXPECT_EQ(stridesOf(wrapper), (Numbers{size, 2 * size}));
  EXPECT_EQ(wrapper.getNumberOfElements(), 6);
  EXPECT_EQ(wrapper.getBufferSizeInBytes(), 6 * size);
  EXPECT_EQ(wrapper.getOrder(), 'F');
  EXPECT_EQ(wrapper.isReadOnly(), 1);
  EXPECT_TRUE(wrapper.hasMirror());
  EXPECT_EQ(wrapper.array().getType(), arrayTypeOf<TypeParam>);
}

TYPED_CASE(Wrapper, MirrorsTheElementsInABlockOfItsOwn) {
  const TypedArray<TypeParam> array = sampleArray<TypeParam>({2, 3});
  const MDArrayWrapper wrapper(copyOf(array), 'F', Contents::Client);
  ASSERT_NE(wrapper.buf(), nullptr);
  EXPECT_EQ(std::memcmp(wrapper.buf(), addressOf(array), 6 * sizeof(TypeParam)), 0);
  EXPECT_NE(static_cast<const void*>(wrapper.buf()), addressOf(array));
  EXPECT_EQ(addressOf(TypedArray<TypeParam>(wrapper.array())), addressOf(array));
}

TYPED_CASE(Wrapper, HoldsOneReferenceToTheContents) {
  const Array kept = sampleArray<TypeParam>({2, 3});
  {
    Array moved = kept;
    const MDArrayWrapper wrapper(std::move(moved), 'F', Contents::Client);
    EXPECT_EQ(referenceCount(kept), 2U);
    EXPECT_EQ(wrapper.array().impl(), kept.impl());
  }
  EXPECT_EQ(referenceCount(kept), 1U);
}

// --- Strides and sizes

struct StrideRow {
  const char* label;
  Dimensions dimensions;
  char order;
  Numbers doubleStrides;
  Numbers complexInt8Strides;
};
const StrideRow strideRows[] = {
    {"2 by 3", {2, 3}, 'F', {8, 16}, {2, 4}},
    {"2 by 3, rows first", {2, 3}, 'C', {24, 8}, {6, 2}},
    {"1 by 1", {1, 1}, 'F', {8, 8}, {2, 2}},
    {"2 by 3 by 4", {2, 3, 4}, 'F', {8, 16, 48}, {2, 4, 12}},
    {"2 by 3 by 4, rows first", {2, 3, 4}, 'C', {96, 32, 8}, {24, 8, 2}},
    {"0 by 3", {0, 3}, 'F', {8, 0}, {2, 0}},
    {"3 by 0", {3, 0}, 'F', {8, 24}, {2, 6}},
    {"2 by 0 by 4", {2, 0, 4}, 'F', {8, 16, 0}, {2, 4, 0}},
    {"2 by 0 by 4, rows first", {2, 0, 4}, 'C', {0, 32, 8}, {0, 8, 2}},
    {"one dimension", {5}, 'F', {8}, {2}},
    {"no dimensions", {}, 'F', {}, {}},
};

TEST(WrapperStrides, FollowShapeSizeAndOrder) {
  for (const StrideRow& row : strideRows) {
    SCOPED_TRACE(row.label);
    MDArrayWrapper doubles(sampleArray<double>(row.dimensions), row.order, Contents::Client);
    EXPECT_EQ(stridesOf(doubles), row.doubleStrides);
    EXPECT_EQ(doubles.getOrder(), row.order);
    MDArrayWrapper complexes(sampleArray<std::complex<std::int8_t>>(row.dimensions), row.order,
                             Contents::Client);
    EXPECT_EQ(stridesOf(complexes), row.complexInt8Strides);
  }
}

TEST(WrapperStrides, NoElementsMeanNoBytes) {
  const MDArrayWrapper wrapper(sampleArray<double>({0, 3}), 'F', Contents::Client);
  EXPECT_EQ(wrapper.getNumberOfElements(), 0);
  EXPECT_EQ(wrapper.getBufferSizeInBytes(), 0);
  EXPECT_EQ(wrapper.getElementSizeInBytes(), 8);
  EXPECT_TRUE(wrapper.hasMirror());
  const Position first(2, 0);
  EXPECT_EQ(findElement(wrapper, first), nullptr);
}

TEST(WrapperConstruction, UnknownTypesThrow) {
  for (const std::uint32_t number : {0U, 3U, 24U}) {
    SCOPED_TRACE(number);
    const Array array = ArrayFactory().createArray(static_cast<ArrayType>(number), {0, 0});
    EXPECT_THROW(MDArrayWrapper(copyOf(array), 'F', Contents::Client), EArrayUnknownDataType);
    EXPECT_EQ(referenceCount(array), 1U);
  }
}

// --- Places of elements

struct OffsetRow {
  Position indices;
  std::int64_t expected;
};

TEST(WrapperOffsets, CountElements) {
  const OffsetRow rows[] = {
      {{}, 0},
      {{0}, 0},
      {{1}, 1},
      {{0, 0}, 0},
      {{1, 0}, 1},
      {{0, 1}, 2},
      {{1, 2}, 5},
      {{0, 0, 0}, -1},
      {{0, 0, 0, 0}, -1},
      // Indices are not tested against the shape.
      {{5, 5}, 15},
      {{-1, 0}, -1},
      {{0, -2}, -4},
  };
  const MDArrayWrapper wrappers[] = {
      MDArrayWrapper(sampleArray<double>({2, 3}), 'F', Contents::Client),
      MDArrayWrapper(sampleArray<bool>({2, 3}), 'F', Contents::Client),
      MDArrayWrapper(sampleArray<std::complex<double>>({2, 3}), 'F', Contents::Client),
      MDArrayWrapper(sampleArray<std::complex<std::int16_t>>({2, 3}), 'F', Contents::Client),
  };
  for (const MDArrayWrapper& wrapper : wrappers) {
    for (const OffsetRow& row : rows) {
      SCOPED_TRACE(testing::PrintToString(entriesOf(row.indices)));
      EXPECT_EQ(wrapper.getElementOffsetFromIndices(row.indices), row.expected);
    }
  }
  EXPECT_TRUE(raisedNothing());
}

TEST(WrapperOffsets, FollowTheOrder) {
  const MDArrayWrapper wrapper(sampleArray<double>({2, 3}), 'C', Contents::Client);
  EXPECT_EQ(wrapper.getElementOffsetFromIndices({1, 2}), 5);
  EXPECT_EQ(wrapper.getElementOffsetFromIndices({1, 0}), 3);
  EXPECT_EQ(wrapper.getElementOffsetFromIndices({0, 1}), 1);
}

TEST(WrapperNormalizedIndex, CountsFromTheEndOrMarksTheOutside) {
  const MDArrayWrapper wrapper(sampleArray<double>({3, 5}), 'F', Contents::Client);
  struct Row {
    std::int64_t index;
    std::int64_t dimension;
    std::int64_t expected;
  };
  const Row rows[] = {{0, 0, 0},    {2, 0, 2},  {3, 0, -999},    {4, 0, -999},
                      {-1, 0, 2},   {-3, 0, 0}, {-4, 0, -1},     {4, 1, 4},
                      {5, 1, -999}, {-5, 1, 0}, {-1002, 0, -999}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.index);
    EXPECT_EQ(wrapper.normalizedIndex(row.index, row.dimension), row.expected);
  }
  const MDArrayWrapper empty(sampleArray<double>({0, 5}), 'F', Contents::Client);
  EXPECT_EQ(empty.normalizedIndex(0, 0), -999);
  EXPECT_EQ(empty.normalizedIndex(-1, 0), -1);
}

constexpr std::int64_t outside = -1;

TEST(WrapperAddresses, LieInTheMirrorOrAreNull) {
  const MDArrayWrapper wrapper(sampleArray<double>({2, 3}), 'F', Contents::Client);
  const OffsetRow rows[] = {
      {{}, 0},
      {{1}, 8},
      {{1, 2}, 40},
      {{5, 0}, 40},  // past the end of its column, but inside the block
      {{-1, 1}, 8},
      {{0, 3}, outside},
      {{6, 0}, outside},
      {{-1, 0}, outside},
      {{0, -1}, outside},
      {{0, 0, 0}, outside},
      {{largest, 0}, outside},
      {{-largest, -largest}, outside},
      {{0, largest}, outside},
      {{largest / 8, largest / 16}, outside},
      {{largest / 4, -largest / 8}, outside},
  };
  for (const OffsetRow& row : rows) {
    SCOPED_TRACE(testing::PrintToString(entriesOf(row.indices)));
    const std::byte* const expected = row.expected < 0 ? nullptr : wrapper.buf() + row.expected;
    EXPECT_EQ(findElement(wrapper, row.indices), expected);
  }
  EXPECT_TRUE(raisedNothing()) << "the caller reports";
}

// --- The mirror

TEST(WrapperMirror, IsOneBlockOfAnySize) {
  for (const unsigned long columns : {1UL, 500UL, 1000003UL}) {  // the last one uses huge pages
    SCOPED_TRACE(columns);
    const TypedArray<double> array = sampleArray<double>({7, columns});
    const MDArrayWrapper wrapper(copyOf(array), 'F', Contents::Client);
    ASSERT_TRUE(wrapper.hasMirror());
    EXPECT_EQ(std::memcmp(wrapper.buf(), addressOf(array), 56 * columns), 0);
  }
}

TEST(WrapperMirror, IsIndependentOfWritesToOtherHandles) {
  TypedArray<double> array = sampleArray<double>({2, 3});
  const MDArrayWrapper wrapper(copyOf(array), 'F', Contents::Client);
  *array.begin() = 99.0;
  double first = 0;
  std::memcpy(&first, wrapper.buf(), sizeof(first));
  EXPECT_EQ(first, 1.0);
  EXPECT_EQ(*TypedArray<double>(wrapper.array()).begin(), 1.0);
}

TEST(WrapperMirror, CanBeMissingWhenMemoryIsShort) {
  constexpr unsigned long bytes = 256UL << 20;
  const Array array = ArrayFactory().createArray(ArrayType::INT8, {bytes, 1});
  const auto view = [&array] {
    const MemoryLimit limit;
    if (!limit.isSet()) return ViewPointer();
    return std::make_unique<MCppPyArray>(copyOf(array), SupportedArrayEnum::Int8, false, true,
                                         Contents::Client);
  }();
  if (view == nullptr) GTEST_SKIP() << "an emulator ignores the limit on memory";

  const WrapperAccess storage = view->wrapper();
  EXPECT_FALSE(storage->hasMirror());
  EXPECT_EQ(storage->getBufferSizeInBytes(), static_cast<std::int64_t>(bytes));
  EXPECT_EQ(numbersOf(storage->shape()), (Numbers{static_cast<std::int64_t>(bytes), 1}));
}

}  // namespace
