// Making arrays: zero-filled, from blocks of the library and of other allocators, scalars;
// refusals.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "velmardata_testing.hpp"

namespace {

using namespace velmardata_testing;

TYPED_SUITE(FactoryOfType, AllTypes, TypeNames);

TYPED_CASE(FactoryOfType, NewArraysAreZero) {
  // Frees used memory that the new array may get.
  for (int i = 0; i < 8; ++i) sampleArray<TypeParam>({4, 5});
  const Array array = ArrayFactory().createArray(arrayTypeOf<TypeParam>, {4, 5});
  EXPECT_EQ(array.getType(), arrayTypeOf<TypeParam>);
  EXPECT_EQ(array.getDimensions(), (Dimensions{4, 5}));
  EXPECT_EQ(array.getNumberOfElements(), 20U);
  EXPECT_EQ(elementsOf(TypedArray<TypeParam>(array)), std::vector<TypeParam>(20, TypeParam()));
}

// Values in reused memory must not be visible, wherever the block comes from.
TEST(NewArrays, OfAnySizeAreZero) {
  for (const unsigned long count : {600UL, 100000UL, 700000UL, 700000UL}) {
    std::memset(newBuffer(ArrayType::DOUBLE, count).get(), 0x55, count * sizeof(double));
    const TypedArray<double> array(ArrayFactory().createArray(ArrayType::DOUBLE, {count, 1}));
    EXPECT_EQ(std::count(array.begin(), array.end(), 0.0), static_cast<std::ptrdiff_t>(count));
  }
}

TYPED_CASE(FactoryOfType, BlocksAreAdoptedInPlace) {
  UntypedBuffer block = sampleBuffer<TypeParam>(6);
  const void* const address = block.get();
  const Array array = ArrayFactory().createArrayFromBuffer({2, 3}, arrayTypeOf<TypeParam>,
                                                           std::move(block), storageLayout);
  EXPECT_EQ(array.getType(), arrayTypeOf<TypeParam>);
  EXPECT_EQ(array.getDimensions(), (Dimensions{2, 3}));
  const TypedArray<TypeParam> typed(array);
  EXPECT_EQ(addressOf(typed), address);
  EXPECT_EQ(elementsOf(typed), samples<TypeParam>(6));
}

TYPED_CASE(FactoryOfType, ShortMemoryIsBadAlloc) {
  const std::uint64_t tooMany = (std::uint64_t{1} << 63) / sizeof(TypeParam);
  for (const Dimensions& dimensions :
       {Dimensions{1, tooMany}, Dimensions{std::uint64_t{1} << 32, std::uint64_t{1} << 32},
        Dimensions{std::uint64_t{1} << 63, 3}}) {
    SCOPED_TRACE(::testing::PrintToString(dimensions));
    EXPECT_THROW(ArrayFactory().createArray(arrayTypeOf<TypeParam>, dimensions), std::bad_alloc);
  }
}

TYPED_CASE(FactoryOfType, NoElements) {
  const Array made = ArrayFactory().createArray(arrayTypeOf<TypeParam>, {0, 3});
  const Array adopted = ArrayFactory().createArrayFromBuffer(
      {0, 3}, arrayTypeOf<TypeParam>, sampleBuffer<TypeParam>(0), storageLayout);
  const Array ofNull = ArrayFactory().createArrayFromBuffer(
      {3, 0}, arrayTypeOf<TypeParam>, UntypedBuffer(nullptr, std::free), storageLayout);
  for (const Array& array : {made, adopted, ofNull}) {
    EXPECT_EQ(array.getNumberOfElements(), 0U);
    TypedArray<TypeParam> typed(array);
    EXPECT_TRUE(std::as_const(typed).begin() == typed.end());
    EXPECT_TRUE(typed.begin() == typed.end());
    EXPECT_NE(typed.release(), nullptr);
  }
  EXPECT_EQ(made.getDimensions(), (Dimensions{0, 3}));
  EXPECT_EQ(ofNull.getDimensions(), (Dimensions{3, 0}));
}

TYPED_SUITE(TypedFactory, RealNumericTypes, TypeNames);

TYPED_CASE(TypedFactory, TypedBlocksAreAdoptedInPlace) {
  auto block = ArrayFactory().createBuffer<TypeParam>(4);
  for (std::size_t i = 0; i < 4; ++i) block[i] = sample<TypeParam>(i);
  const void* const address = block.get();
  const TypedArray<TypeParam> array =
      ArrayFactory().createArrayFromBuffer<TypeParam>({2, 2}, std::move(block), storageLayout);
  EXPECT_EQ(array.getType(), arrayTypeOf<TypeParam>);
  EXPECT_EQ(array.getDimensions(), (Dimensions{2, 2}));
  EXPECT_EQ(addressOf(array), address);
  EXPECT_EQ(elementsOf(array), samples<TypeParam>(4));
}

TYPED_SUITE(ScalarFactory, WritableTypes, TypeNames);

TYPED_CASE(ScalarFactory, ScalarsAreOneByOne) {
  for (std::size_t i = 0; i < 3; ++i) {
    const standalone::ClientArrayFactory factory;
    const auto scalar = factory.createScalarInternal<TypeParam>(sample<TypeParam>(i));
    EXPECT_EQ(scalar.getType(), arrayTypeOf<TypeParam>);
    EXPECT_EQ(scalar.getDimensions(), (Dimensions{1, 1}));
    EXPECT_EQ(elementsOf(scalar), samples<TypeParam>(1, i));
    EXPECT_EQ(referenceCount(scalar), 1U);
  }
}

// --- Blocks and dimensions that do not fit each other

// The text of the std::invalid_argument that adopting a block of `count` doubles gives.
std::string refusal(const Dimensions& dimensions, UntypedBuffer buffer) {
  try {
    ArrayFactory().createArrayFromBuffer(dimensions, ArrayType::DOUBLE, std::move(buffer),
                                         storageLayout);
  } catch (const std::invalid_argument& error) {
    return error.what();
  }
  return "";
}

TEST(AdoptedBlock, MustHoldWhatTheDimensionsSay) {
  const std::string tooSmall = "buffer is too small for dimensions.";
  const unsigned long half = 1UL << 32;
  EXPECT_EQ(refusal({2, 3}, sampleBuffer<double>(6)), "");
  EXPECT_EQ(refusal({2, 2}, sampleBuffer<double>(6)), "") << "a larger block is accepted";
  EXPECT_EQ(refusal({}, sampleBuffer<double>(1)), "") << "the empty product is 1";
  EXPECT_EQ(refusal({}, sampleBuffer<double>(0)), tooSmall);
  EXPECT_EQ(refusal({2, 4}, sampleBuffer<double>(6)), tooSmall);
  EXPECT_EQ(refusal({1, 7}, sampleBuffer<double>(6)), tooSmall);
  EXPECT_EQ(refusal({1, 1}, sampleBuffer<double>(0)), tooSmall);
  EXPECT_EQ(refusal({half, half}, sampleBuffer<double>(0)), tooSmall) << "product wraps to 0";
  EXPECT_EQ(refusal({half, half, half}, sampleBuffer<double>(6)), tooSmall);
  EXPECT_EQ(refusal({1, (1UL << 61) + 1}, sampleBuffer<double>(6)), tooSmall)
      << "bytes wrap to those of 1 element";
  EXPECT_EQ(refusal({1, 1}, UntypedBuffer(nullptr, std::free)), "buffer is null.");
  EXPECT_EQ(refusal({1, 1}, newBuffer(ArrayType::DOUBLE, 1UL << 62)), "buffer is null.");
}

TEST(AdoptedBlock, MustBeInTheStorageLayout) {
  try {
    ArrayFactory().createArrayFromBuffer({1, 1}, ArrayType::DOUBLE, sampleBuffer<double>(1),
                                         velmar::data::MemoryLayout{1});
    ADD_FAILURE();
  } catch (const std::invalid_argument& error) {
    EXPECT_STREQ(error.what(), "buffer is not in the storage layout.");
  }
}

TEST(AdoptedBlock, IsFreedWhenRefused) {
  const auto cycle = [] { EXPECT_NE(refusal({1, 200}, sampleBuffer<double>(100)), ""); };
  cycle();
  const std::size_t before = heapInUse();
  for (int i = 0; i < 50; ++i) cycle();
  EXPECT_EQ(heapInUse(), before);
}

// --- Blocks that another allocator made

int s_foreignFrees = 0;

void freeForeign(void* block) {
  ++s_foreignFrees;
  std::free(block);
}

UntypedBuffer foreignBuffer(unsigned long count) {
  auto* const elements = static_cast<double*>(std::malloc(count * sizeof(double)));
  for (std::size_t i = 0; i < count; ++i) elements[i] = sample<double>(i);
  return UntypedBuffer(elements, freeForeign);
}

TEST(ForeignBlock, IsCopiedAndFreed) {
  s_foreignFrees = 0;
  UntypedBuffer block = foreignBuffer(6);
  const void* const address = block.get();
  TypedArray<double> array(ArrayFactory().createArrayFromBuffer({2, 3}, ArrayType::DOUBLE,
                                                                std::move(block), storageLayout));
  EXPECT_EQ(s_foreignFrees, 1);
  EXPECT_NE(addressOf(array), address);
  EXPECT_EQ(elementsOf(array), samples<double>(6));
  EXPECT_EQ(array.release().get_deleter(), newBuffer(ArrayType::DOUBLE, 1).get_deleter());
  EXPECT_EQ(s_foreignFrees, 1);
}

TEST(ForeignBlock, IsFreedWhenRefused) {
  s_foreignFrees = 0;
  EXPECT_NE(refusal({1UL << 32, 1UL << 32}, foreignBuffer(1)), "");
  EXPECT_EQ(s_foreignFrees, 1);
  EXPECT_EQ(refusal({0, 1}, foreignBuffer(1)), "");
  EXPECT_EQ(s_foreignFrees, 2);
}

TEST(ForeignBlock, IsFreedWithoutMemoryForTheCopy) {
  s_foreignFrees = 0;
  EXPECT_THROW(ArrayFactory().createArrayFromBuffer({1, 1UL << 60}, ArrayType::DOUBLE,
                                                    foreignBuffer(1), storageLayout),
               std::bad_alloc);
  EXPECT_EQ(s_foreignFrees, 1);
}

// --- Unknown types

TEST(UnknownType, HasNoElements) {
  for (const std::uint32_t number : {0U, 3U, 24U, 0xffffffffU}) {
    SCOPED_TRACE(number);
    const ArrayType type{number};
    EXPECT_THROW(ArrayFactory().createArray(type, {1, 1}), EArrayUnknownDataType);
    EXPECT_THROW(ArrayFactory().createArray(type, {1UL << 63, 2}), EArrayUnknownDataType);
    EXPECT_THROW(
        ArrayFactory().createArrayFromBuffer({1, 1}, type, sampleBuffer<double>(1), storageLayout),
        EArrayUnknownDataType);
    const Array array = ArrayFactory().createArray(type, {0, 2});
    EXPECT_EQ(array.getType(), type);
    EXPECT_EQ(array.getDimensions(), (Dimensions{0, 2}));
    EXPECT_EQ(array.getNumberOfElements(), 0U);
  }
}

TEST(Factories, HaveNoState) {
  Array array;
  {
    const standalone::ClientArrayFactory factory;
    array = factory.createArray(ArrayType::SINGLE, {2, 2});
  }
  EXPECT_EQ(elementsOf(TypedArray<float>(array)), std::vector<float>(4, 0.0F));
}

}  // namespace
