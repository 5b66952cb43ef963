// Blocks of elements from the data library, and the arrays that take them over.
#include "storage/element_buffer.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <type_traits>
#include <utility>

#include "python_testing.hpp"

namespace {

using namespace python_testing;
using namespace foundation::velmardata;
using velmardata_testing::addressOf;
using velmardata_testing::elementsOf;
using velmardata_testing::samples;

TYPED_SUITE(Buffers, AllTypes, TypeWords);

TYPED_CASE(Buffers, BecomeArraysInPlace) {
  const std::pair<Numbers, std::size_t> rows[] = {
      {{2, 3}, 6}, {{6}, 6}, {{2, 1, 3}, 6}, {{0, 3}, 0}, {{}, 1}};
  for (const auto& [dimensions, count] : rows) {
    SCOPED_TRACE(testing::PrintToString(dimensions));
    ElementBuffer<TypeParam> buffer = tryCreateElementBuffer<TypeParam>(count);
    ASSERT_NE(buffer, nullptr);
    for (std::size_t i = 0; i < count; ++i) buffer[i] = sample<TypeParam>(i);
    const void* const block = buffer.get();
    const Array array = makeArrayFromBuffer(std::move(buffer), dimensions);
    EXPECT_EQ(buffer, nullptr);  // the function takes it
    EXPECT_EQ(array.getType(), arrayTypeOf<TypeParam>);
    EXPECT_EQ(array.getDimensions(), Dimensions(dimensions.begin(), dimensions.end()));
    const TypedArray<TypeParam> typed(array);
    EXPECT_EQ(elementsOf(typed), samples<TypeParam>(count));
    if (count > 0) {
      EXPECT_EQ(addressOf(typed), block);
    }
  }
}

TYPED_CASE(Buffers, AreNullWithoutAnErrorWhenMemoryIsShort) {
  constexpr std::uint64_t most = std::numeric_limits<std::uint64_t>::max();
  for (const std::uint64_t count : {most, most / sizeof(TypeParam)}) {
    EXPECT_EQ(tryCreateElementBuffer<TypeParam>(count), nullptr);
  }
  EXPECT_TRUE(raisedNothing());
}

TYPED_CASE(Buffers, OfNoElementsAreNotNull) {
  EXPECT_NE(tryCreateElementBuffer<TypeParam>(0), nullptr);
}

TYPED_CASE(Buffers, CanBeMadeByTheNumberOfTheType) {
  UntypedBuffer buffer = tryCreateBuffer(arrayTypeOf<TypeParam>, 6);
  ASSERT_NE(buffer, nullptr);
  auto* const elements = static_cast<TypeParam*>(buffer.get());
  for (std::size_t i = 0; i < 6; ++i) elements[i] = sample<TypeParam>(i);
  const Array array = makeArrayFromBuffer(arrayTypeOf<TypeParam>, std::move(buffer), Numbers{3, 2});
  EXPECT_EQ(array.getDimensions(), (Dimensions{3, 2}));
  EXPECT_EQ(elementsOf(TypedArray<TypeParam>(array)), samples<TypeParam>(6));
}

// --- Zeros

TYPED_CASE(Buffers, OfZerosAreZeroOfAnySize) {
  if constexpr (!std::is_same_v<TypeParam, char16_t>) {
    const std::uint64_t large = largeZeros / sizeof(TypeParam);
    for (const std::uint64_t count : {std::uint64_t{0}, std::uint64_t{6}, large - 1, large}) {
      SCOPED_TRACE(count);
      {
        const ElementBuffer<TypeParam> dirty = tryCreateElementBuffer<TypeParam>(count);
        ASSERT_NE(dirty, nullptr);
        std::memset(static_cast<void*>(dirty.get()), 0x5a, count * sizeof(TypeParam));
      }
      const ElementBuffer<TypeParam> zeros = tryCreateZeros<TypeParam>(count);
      ASSERT_NE(zeros, nullptr);
      const auto* const first = reinterpret_cast<const unsigned char*>(zeros.get());
      EXPECT_EQ(std::count(first, first + count * sizeof(TypeParam), 0),
                static_cast<std::ptrdiff_t>(count * sizeof(TypeParam)));
    }
  }
}

TYPED_CASE(Buffers, OfZerosAreNullWithoutAnErrorWhenMemoryIsShort) {
  if constexpr (!std::is_same_v<TypeParam, char16_t>) {
    constexpr std::uint64_t most = std::numeric_limits<std::uint64_t>::max();
    // The size in bytes of the last one wraps around to a small number.
    for (const std::uint64_t count :
         {most, most / sizeof(TypeParam), most / sizeof(TypeParam) + 1}) {
      if (count != 0) {
        EXPECT_EQ(tryCreateZeros<TypeParam>(count), nullptr) << count;
      }
    }
    EXPECT_TRUE(raisedNothing());
  }
}

TYPED_CASE(Buffers, OfZerosBecomeArraysInPlace) {
  if constexpr (!std::is_same_v<TypeParam, char16_t>) {
    const std::uint64_t count = largeZeros / sizeof(TypeParam);
    ElementBuffer<TypeParam> zeros = tryCreateZeros<TypeParam>(count);
    ASSERT_NE(zeros, nullptr);
    zeros[count - 1] = sample<TypeParam>(0);
    const void* const block = zeros.get();
    const TypedArray<TypeParam> array(
        makeArrayFromBuffer(std::move(zeros), Numbers{1, static_cast<std::int64_t>(count)}));
    EXPECT_EQ(addressOf(array), block);
    EXPECT_EQ(array.begin()[static_cast<std::ptrdiff_t>(count) - 1], sample<TypeParam>(0));
  }
}

TEST(NoBuffer, IsNull) {
  EXPECT_EQ(noElementBuffer<double>(), nullptr);
}

}  // namespace
