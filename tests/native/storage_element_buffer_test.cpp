// Blocks of elements from the data library, and the arrays that take them over.
#include "storage/element_buffer.hpp"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "python_testing.hpp"

namespace {

using namespace python_testing;
using namespace foundation::velmardata;
using velmardata_testing::addressOf;
using velmardata_testing::elementsOf;
using velmardata_testing::samples;

using Numbers = std::vector<std::int64_t>;

template <class T>
class Buffers : public ::testing::Test {};
TYPED_TEST_SUITE(Buffers, AllTypes, TypeWords);

TYPED_TEST(Buffers, BecomeArraysInPlace) {
  const std::pair<Numbers, std::size_t> rows[] = {
      {{2, 3}, 6}, {{6}, 6}, {{2, 1, 3}, 6}, {{0, 3}, 0}, {{}, 1}};
  for (const auto& [dimensions, count] : rows) {
    SCOPED_TRACE(testing::PrintToString(dimensions));
    ElementBuffer<TypeParam> buffer = tryCreateElementBuffer<TypeParam>(count);
    ASSERT_NE(buffer, nullptr);
    for (std::size_t i = 0; i < count; ++i) buffer[i] = sample<TypeParam>(i);
    const void* const block = buffer.get();
    const Array array = makeArrayFromBuffer(std::move(buffer), dimensions);
    EXPECT_EQ(buffer, nullptr);  // NOLINT: the test is about the moved-from buffer
    EXPECT_EQ(array.getType(), arrayTypeOf<TypeParam>);
    EXPECT_EQ(array.getDimensions(), Dimensions(dimensions.begin(), dimensions.end()));
    const TypedArray<TypeParam> typed(array);
    EXPECT_EQ(elementsOf(typed), samples<TypeParam>(count));
    if (count > 0) {
      EXPECT_EQ(addressOf(typed), block);
    }
  }
}

TYPED_TEST(Buffers, AreNullWithoutAnErrorWhenMemoryIsShort) {
  constexpr std::uint64_t most = std::numeric_limits<std::uint64_t>::max();
  for (const std::uint64_t count : {most, most / sizeof(TypeParam)}) {
    EXPECT_EQ(tryCreateElementBuffer<TypeParam>(count), nullptr);
  }
  EXPECT_TRUE(raisedNothing());
}

TYPED_TEST(Buffers, OfNoElementsAreNotNull) {
  EXPECT_NE(tryCreateElementBuffer<TypeParam>(0), nullptr);
}

TYPED_TEST(Buffers, CanBeMadeByTheNumberOfTheType) {
  UntypedBuffer buffer = tryCreateBuffer(arrayTypeOf<TypeParam>, 6);
  ASSERT_NE(buffer, nullptr);
  auto* const elements = static_cast<TypeParam*>(buffer.get());
  for (std::size_t i = 0; i < 6; ++i) elements[i] = sample<TypeParam>(i);
  const Array array = makeArrayFromBuffer(arrayTypeOf<TypeParam>, std::move(buffer), Numbers{3, 2});
  EXPECT_EQ(array.getDimensions(), (Dimensions{3, 2}));
  EXPECT_EQ(elementsOf(TypedArray<TypeParam>(array)), samples<TypeParam>(6));
}

TEST(NoBuffer, IsNull) {
  EXPECT_EQ(noElementBuffer<double>(), nullptr);
}

}  // namespace
