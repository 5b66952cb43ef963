// Blocks of elements: size, alignment, failed allocations, lifetime.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <limits>
#include <memory>
#include <new>
#include <utility>
#include <vector>

#include "velmardata_testing.hpp"

namespace {

using namespace velmardata_testing;

constexpr std::uint64_t mostCounts = std::numeric_limits<std::uint64_t>::max();

bool isAligned(const void* address, std::uintptr_t alignment) {
  return reinterpret_cast<std::uintptr_t>(address) % alignment == 0;
}

TYPED_SUITE(BlockOfType, AllTypes, TypeNames);

TYPED_CASE(BlockOfType, HasRoomForItsElements) {
  for (const unsigned long count : {1UL, 2UL, 3UL, 100UL, 5000UL}) {
    const UntypedBuffer block = sampleBuffer<TypeParam>(count);
    ASSERT_NE(block, nullptr);
    std::memset(block.get(), 1,
                count * sizeof(TypeParam));  // a sanitizer reports a block that is too short
    const std::uintptr_t alignment = count * sizeof(TypeParam) < 4096 ? 16 : 64;
    EXPECT_TRUE(isAligned(block.get(), alignment));
  }
}

// The size in bytes must not wrap around to a small one.
TYPED_CASE(BlockOfType, IsNullForImpossibleSizes) {
  const std::uint64_t size = sizeof(TypeParam);
  for (const std::uint64_t count :
       {mostCounts, mostCounts / 2 + 2, mostCounts / size, mostCounts / size - 1,
        (std::uint64_t{1} << 63) / size, (std::uint64_t{1} << 63) / size - 1}) {
    SCOPED_TRACE(count);
    const UntypedBuffer block = newBuffer(arrayTypeOf<TypeParam>, count);
    EXPECT_EQ(block, nullptr);
    ASSERT_NE(block.get_deleter(), nullptr);
  }
}

TYPED_CASE(BlockOfType, IsNotNullForNoElements) {
  const UntypedBuffer first = newBuffer(arrayTypeOf<TypeParam>, 0);
  const UntypedBuffer second = newBuffer(arrayTypeOf<TypeParam>, 0);
  EXPECT_NE(first, nullptr);
  EXPECT_NE(second, nullptr);
  EXPECT_TRUE(isAligned(first.get(), 16));
}

TYPED_SUITE(TypedBlock, WritableTypes, TypeNames);

TYPED_CASE(TypedBlock, IsOwnedAndWritable) {
  auto block = ArrayFactory().createBuffer<TypeParam>(3);
  ASSERT_NE(block, nullptr);
  for (std::size_t i = 0; i < 3; ++i) block[i] = sample<TypeParam>(i);
  EXPECT_EQ(elementsOf(block, 3), samples<TypeParam>(3));
  EXPECT_NE(ArrayFactory().createBuffer<TypeParam>(0), nullptr);
  EXPECT_EQ(ArrayFactory().createBuffer<TypeParam>(mostCounts), nullptr);
}

// Sizes that can be computed but that the system cannot provide.
TEST(Block, IsNullWhenMemoryIsShort) {
#ifdef __SANITIZE_ADDRESS__
  const char* const options = std::getenv("ASAN_OPTIONS");
  if (options == nullptr || std::strstr(options, "allocator_may_return_null=1") == nullptr) {
    GTEST_SKIP() << "the sanitizer ends the process instead";
  }
#endif
  for (const unsigned long count : {1UL << 47, 1UL << 55, (1UL << 60) - 64}) {
    SCOPED_TRACE(count);
    EXPECT_EQ(newBuffer(ArrayType::UINT8, 8 * count - 64), nullptr);
    EXPECT_EQ(ArrayFactory().createBuffer<double>(count), nullptr);
    EXPECT_THROW(ArrayFactory().createArray(ArrayType::DOUBLE, {1, count}), std::bad_alloc);
  }
}

TEST(Block, OfUnknownTypeIsNull) {
  for (const int type : {0, 3, 24, -1, std::numeric_limits<int>::max()}) {
    SCOPED_TRACE(type);
    EXPECT_EQ(newBuffer(static_cast<ArrayType>(type), 1), nullptr);
    EXPECT_NE(newBuffer(static_cast<ArrayType>(type), 0), nullptr);
  }
}

TEST(Block, AlignmentStartsAtOnePage) {
  for (const unsigned long bytes : {4096UL, 4097UL, 10000UL, 1UL << 20, (4UL << 20) - 1, 4UL << 20,
                                    (4UL << 20) + 1, (9UL << 20) + 777}) {
    SCOPED_TRACE(bytes);
    // Several at once: a single block may be aligned by chance, at the start of a new page.
    std::vector<UntypedBuffer> blocks;
    for (int i = 0; i < 3; ++i) {
      blocks.push_back(newBuffer(ArrayType::UINT8, bytes));
      ASSERT_NE(blocks.back(), nullptr);
      EXPECT_TRUE(isAligned(blocks.back().get(), 64));
      auto* const first = static_cast<unsigned char*>(blocks.back().get());
      std::memset(first, 0x5a, bytes);
      EXPECT_EQ(first[0] + first[bytes - 1], 2 * 0x5a);
    }
  }
}

// 16 bytes in front of the elements, and what malloc adds: 8 bytes, rounded up to 16.
TEST(Block, SmallOnesHaveLittleOverhead) {
  const std::size_t before = heapInUse();
  std::vector<UntypedBuffer> blocks;
  blocks.reserve(100);
  const std::size_t reserved = heapInUse();
  if (reserved == before) GTEST_SKIP() << "another allocator is in use";
  for (int i = 0; i < 100; ++i) blocks.push_back(newBuffer(ArrayType::DOUBLE, 1));
  EXPECT_LE(heapInUse() - reserved, 100U * 48U);
}

TEST(Block, DeleterTakesNull) {
  void* block = nullptr;
  void (*deleter)(void*) = nullptr;
  ArrayFactory().createBuffer(&block, &deleter, 4, mostCounts);
  ASSERT_NE(deleter, nullptr);
  deleter(block);
  deleter(nullptr);
}

TEST(Block, OutputsOfEarlierCallsAreOverwritten) {
  int before = 0;
  void* block = &before;
  void (*deleter)(void*) = nullptr;
  ArrayFactory().createBuffer(&block, &deleter, 4, mostCounts);
  EXPECT_EQ(block, nullptr);
}

// Fails if every cycle keeps a chunk. A few chunks may stay: those that the allocator keeps for
// reuse count as in use, and their number depends on earlier tests.
template <class Cycle>
void expectNothingKept(const Cycle& cycle) {
  constexpr std::size_t cycles = 1000;
  constexpr std::size_t lessThanAnyChunk = 16;
  cycle();
  const std::size_t before = heapInUse();
  for (std::size_t i = 0; i < cycles; ++i) cycle();
  EXPECT_LT(heapInUse(), before + cycles * lessThanAnyChunk);
}

TEST(Block, DeletingFreesTheMemory) {
  for (const unsigned long bytes : {0UL, 1UL, 4095UL, 4096UL, 100000UL, 5UL << 20}) {
    SCOPED_TRACE(bytes);
    expectNothingKept([bytes] { newBuffer(ArrayType::UINT8, bytes); });
  }
}

TEST(Block, LargestOnesGoBackToTheSystem) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "the sanitizer keeps freed memory for a while";
#endif
  constexpr std::size_t megabyte = std::size_t{1} << 20;
  for (const std::size_t bytes : {5 * megabyte, 9 * megabyte + 1, 40 * megabyte}) {
    const std::size_t before = addressSpaceInUse();
    for (int i = 0; i < 50; ++i) {
      const UntypedBuffer block = newBuffer(ArrayType::UINT8, bytes);
      const UntypedBuffer other = newBuffer(ArrayType::UINT8, bytes + 3 * megabyte);
      ASSERT_NE(block, nullptr);
      ASSERT_NE(other, nullptr);
    }
    EXPECT_LT(addressSpaceInUse(), before + 64 * megabyte) << bytes;
  }
}

TEST(Block, LargeOnesDoNotOverlap) {
  constexpr std::size_t bytes = std::size_t{5} << 20;
  newBuffer(ArrayType::UINT8, bytes);  // freed at once, so that the next blocks may reuse it
  std::vector<UntypedBuffer> blocks;
  blocks.reserve(3);
  for (int i = 0; i < 3; ++i) {
    blocks.push_back(newBuffer(ArrayType::UINT8, bytes));
    std::memset(blocks.back().get(), i + 1, bytes);
  }
  for (int i = 0; i < 3; ++i) {
    const auto* const first = static_cast<const unsigned char*>(blocks[std::size_t(i)].get());
    EXPECT_EQ(std::count(first, first + bytes, i + 1), std::ptrdiff_t{bytes}) << i;
  }
}

// --- Iterators and element references keep blocks

// Allocates memory of that size and overwrites it, so that a freed block does not keep its values.
void overwriteFreedMemory(std::size_t bytes) {
  std::vector<std::unique_ptr<unsigned char[]>> noise;
  for (int i = 0; i < 8; ++i) {
    noise.push_back(std::make_unique<unsigned char[]>(bytes));
    std::memset(noise.back().get(), 0xee, bytes);
  }
}

constexpr unsigned long smallCount = 6;
constexpr unsigned long largeCount = 3000;

TEST(BlockHolders, IteratorOutlivesTheArray) {
  for (const unsigned long count : {smallCount, largeCount}) {
    TypedIterator<const double> first;
    {
      const TypedArray<double> array = sampleArray<double>({1, count});
      first = array.begin();
    }
    overwriteFreedMemory(count * sizeof(double) + 16);
    const auto last = first + static_cast<std::ptrdiff_t>(count);
    EXPECT_EQ(std::vector<double>(first, last), samples<double>(count));
  }
}

TEST(BlockHolders, IteratorOutlivesTheReleasedBlock) {
  for (const unsigned long count : {smallCount, largeCount}) {
    TypedArray<double> array = sampleArray<double>({1, count});
    const TypedIterator<double> first = array.begin();
    {
      const auto block = array.release();
      EXPECT_EQ(block.get(), std::to_address(first)) << "an iterator does not share the contents";
    }
    overwriteFreedMemory(count * sizeof(double) + 16);
    const auto last = first + static_cast<std::ptrdiff_t>(count);
    EXPECT_EQ(std::vector<double>(first, last), samples<double>(count));
    *first = 99.0;
    EXPECT_EQ(*first, 99.0);
  }
}

TEST(BlockHolders, IteratorStaysOnTheBlockThatAnotherArrayAdopts) {
  TypedArray<double> array = sampleArray<double>({2, 3});
  const TypedIterator<double> first = array.begin();
  const TypedArray<double> reshaped =
      ArrayFactory().createArrayFromBuffer<double>({3, 2}, array.release(), storageLayout);
  EXPECT_EQ(addressOf(reshaped), std::to_address(first));
  *first = 42.0;
  EXPECT_EQ(*reshaped.begin(), 42.0);
}

// Without its hold on the block, the reference would write into one of the later blocks.
TEST(BlockHolders, ElementReferenceOutlivesTheArray) {
  for (const unsigned long count : {smallCount, largeCount}) {
    std::shared_ptr<velmar::data::detail::ReferenceImpl> reference;
    {
      TypedArray<double> array = sampleArray<double>({1, count});
      reference = array[count - 1].impl();
    }
    std::vector<TypedArray<double>> later;
    later.reserve(4);
    for (int i = 0; i < 4; ++i) later.push_back(sampleArray<double>({1, count}));
    detail::setElement<double>(reference, -7.0);
    for (const TypedArray<double>& array : later) {
      EXPECT_EQ(elementsOf(array), samples<double>(count));
    }
  }
}

TEST(BlockHolders, IteratorWithoutABlockAllocatesNothing) {
  expectNothingKept([] {
    const TypedIterator<double> nowhere;
    const TypedIterator<double> copy = nowhere;
    EXPECT_EQ(copy, nowhere);
    EXPECT_EQ(copy.operator->(), nullptr);
  });
}

TEST(BlockHolders, LastOneFreesTheBlock) {
  expectNothingKept([] {
    TypedArray<double> array = sampleArray<double>({10, 100});
    TypedIterator<double> first = array.begin();
    TypedIterator<const double> copy = first;
    auto other = first;
    other = std::as_const(first);
    auto reference = array[5];
    auto block = array.release();
    first = TypedIterator<double>();
    block.reset();
    copy = std::move(copy) + 1;
  });
}

}  // namespace
