// Untyped handles: dimensions, reference counts, adoption, empty handles; characters; exceptions.
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "velmardata_testing.hpp"

namespace {

using namespace velmardata_testing;
using velmar::data::impl::addReference;
using velmar::data::impl::ArrayImpl;
using velmar::data::impl::releaseReference;

TEST(ArrayProperties, AreThoseOfCreation) {
  const struct {
    Dimensions dimensions;
    std::uint64_t elements;
  } rows[] = {
      {{1, 1}, 1}, {{2, 3}, 6},    {{2, 3, 4}, 24},   {{4, 1, 1}, 4}, {{0, 3}, 0}, {{3, 0}, 0},
      {{0, 0}, 0}, {{2, 0, 5}, 0}, {{1, 1, 1, 1}, 1}, {{7}, 7},       {{0}, 0},    {{}, 1},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(::testing::PrintToString(row.dimensions));
    const Array array = ArrayFactory().createArray(ArrayType::INT16, row.dimensions);
    EXPECT_EQ(array.getType(), ArrayType::INT16);
    EXPECT_EQ(array.getDimensions(), row.dimensions);
    EXPECT_EQ(array.getNumberOfElements(), row.elements);
  }
}

// With a 0 among the dimensions there are no elements, also if the product of the others wraps
// around.
TEST(ArrayProperties, ZeroAmongHugeDimensions) {
  const unsigned long huge = std::uint64_t{1} << 63;
  for (const Dimensions& dimensions :
       {Dimensions{0, huge, 4}, Dimensions{huge, 4, 0}, Dimensions{huge, 0, huge}}) {
    SCOPED_TRACE(::testing::PrintToString(dimensions));
    const Array array = ArrayFactory().createArray(ArrayType::COMPLEX_DOUBLE, dimensions);
    EXPECT_EQ(array.getDimensions(), dimensions);
    EXPECT_EQ(array.getNumberOfElements(), 0U);
  }
}

// --- Reference counts

TEST(ReferenceCount, FollowsTheHandles) {
  Array first = ArrayFactory().createArray(ArrayType::DOUBLE, {2, 2});
  EXPECT_EQ(referenceCount(first), 1U);
  {
    const Array second = copyOf(first);
    EXPECT_EQ(second.impl(), first.impl());
    EXPECT_EQ(referenceCount(first), 2U);
    Array third;
    third = second;
    EXPECT_EQ(referenceCount(first), 3U);
    const TypedArray<double> typed(third);
    EXPECT_EQ(referenceCount(first), 4U);
  }
  EXPECT_EQ(referenceCount(first), 1U);
}

TEST(ReferenceCount, IsTakenOverByMoves) {
  Array first = ArrayFactory().createArray(ArrayType::DOUBLE, {2, 2});
  ArrayImpl* const impl = first.impl();
  Array second = std::move(first);
  EXPECT_EQ(second.impl(), impl);
  TypedArray<double> typed(std::move(second));
  EXPECT_EQ(typed.impl(), impl);
  TypedArray<double> other(std::move(typed));
  Array last;
  last = std::move(other);
  EXPECT_EQ(last.impl(), impl);
  EXPECT_EQ(referenceCount(last), 1U);
}

TEST(ReferenceCount, SurvivesAssignmentToItself) {
  Array array = ArrayFactory().createArray(ArrayType::DOUBLE, {2, 2});
  ArrayImpl* const impl = array.impl();
  Array& alias = array;
  array = alias;
  EXPECT_EQ(array.impl(), impl);
  EXPECT_EQ(referenceCount(array), 1U);
}

TEST(ReferenceCount, OfTheOldContentsDropsOnAssignment) {
  Array kept = ArrayFactory().createArray(ArrayType::DOUBLE, {2, 2});
  Array copied = kept;
  Array moved = kept;
  EXPECT_EQ(referenceCount(kept), 3U);
  copied = ArrayFactory().createArray(ArrayType::INT8, {1, 1});
  EXPECT_EQ(referenceCount(kept), 2U);
  const Array other = ArrayFactory().createArray(ArrayType::INT8, {1, 1});
  moved = other;
  EXPECT_EQ(referenceCount(kept), 1U);
  EXPECT_EQ(referenceCount(other), 2U);
}

// --- Raw pointers to the contents

TEST(ArrayImplPointer, IsAdoptedWithItsReference) {
  const TypedArray<double> array = sampleArray<double>({2, 3});
  ArrayImpl* const impl = addReference(array.impl());
  EXPECT_EQ(impl, array.impl());
  EXPECT_EQ(referenceCount(array), 2U);
  {
    const Array adopted(impl);
    EXPECT_EQ(adopted.impl(), impl);
    EXPECT_EQ(referenceCount(array), 2U) << "adopting adds no reference";
  }
  EXPECT_EQ(referenceCount(array), 1U) << "the handle releases the adopted reference";
}

TEST(ArrayImplPointer, KeepsTheContentsAlive) {
  ArrayImpl* impl = nullptr;
  {
    const TypedArray<double> array = sampleArray<double>({2, 3});
    impl = addReference(array.impl());
  }
  EXPECT_EQ(impl->m_referenceCount.load(), 1U);
  const TypedArray<double> array{Array(impl)};
  EXPECT_EQ(elementsOf(array), samples<double>(6));
}

// A program without these headers needs to know only the place of the count.
TEST(ArrayImplPointer, CountCanBeRaisedInPlace) {
  TypedArray<double> array = sampleArray<double>({2, 3});
  ArrayImpl* const impl = array.impl();
  reinterpret_cast<std::atomic<std::uint64_t>*>(impl)->fetch_add(1);
  *array.begin() = -1.0;
  EXPECT_NE(array.impl(), impl) << "a reference without a handle shares the contents too";
  const TypedArray<double> old{Array(impl)};
  EXPECT_EQ(elementsOf(old), samples<double>(6));
}

TEST(ArrayImplPointer, ReleasesGiveUpOneReferenceEach) {
  const Array array = ArrayFactory().createArray(ArrayType::DOUBLE, {2, 2});
  addReference(addReference(array.impl()));
  EXPECT_EQ(referenceCount(array), 3U);
  releaseReference(array.impl());
  EXPECT_EQ(referenceCount(array), 2U);
  releaseReference(array.impl());
  EXPECT_EQ(referenceCount(array), 1U);
}

TEST(ArrayImplPointer, MayBeNull) {
  EXPECT_EQ(addReference(nullptr), nullptr);
  releaseReference(nullptr);
  EXPECT_EQ(Array(nullptr).impl(), nullptr);
}

TEST(ArrayImplPointer, LastReleaseFreesTheContents) {
  const auto cycle = [] {
    Array array = ArrayFactory().createArray(ArrayType::DOUBLE, {10, 10});
    ArrayImpl* const impl = addReference(array.impl());
    array = Array();
    releaseReference(impl);
  };
  cycle();
  const std::size_t before = heapInUse();
  for (int i = 0; i < 100; ++i) cycle();
  EXPECT_EQ(heapInUse(), before);
}

// --- Empty handles

template <class Handle>
void expectEmpty(const Handle& array) {
  EXPECT_EQ(array.impl(), nullptr);
  EXPECT_EQ(static_cast<std::uint32_t>(array.getType()), 0U);
  EXPECT_EQ(array.getDimensions(), Dimensions{});
  EXPECT_EQ(array.getNumberOfElements(), 0U);
}

TEST(EmptyHandle, HasNoContents) {
  expectEmpty(Array());
  Array copied = Array();
  const Array copy = copied;
  expectEmpty(copy);
  copied = ArrayFactory().createArray(ArrayType::DOUBLE, {1, 1});
  EXPECT_EQ(copied.getType(), ArrayType::DOUBLE);
  copied = Array();
  expectEmpty(copied);
}

TEST(EmptyHandle, IsTheStateAfterAMove) {
  Array source = ArrayFactory().createArray(ArrayType::DOUBLE, {2, 2});
  Array target(std::move(source));
  expectEmpty(source);  // the test is about the moved-from handle
  source = std::move(target);
  EXPECT_EQ(source.getNumberOfElements(), 4U);
  expectEmpty(target);  // moved from, too
}

TEST(EmptyHandle, HasNoElementsAsTypedArray) {
  TypedArray<double> array = sampleArray<double>({2, 2});
  const TypedArray<double> taken(std::move(array));
  expectEmpty(array);  // an empty handle is well defined
  EXPECT_TRUE(std::as_const(array).begin() == array.end());
  EXPECT_TRUE(array.begin() == array.end());
  EXPECT_EQ(array.release(), nullptr);
  EXPECT_THROW(array[0], std::out_of_range);
}

// --- Typed handles from untyped ones

template <class Handle, class Source>
void expectRefusal(Source&& source) {
  try {
    const Handle handle(std::forward<Source>(source));
    ADD_FAILURE();
  } catch (const std::invalid_argument& error) {
    EXPECT_STREQ(error.what(), "array is empty or of another element type.");
  }
}

TEST(TypedHandle, RefusesAnotherElementType) {
  Array array = ArrayFactory().createArray(ArrayType::INT32, {2, 2});
  expectRefusal<TypedArray<std::uint32_t>>(array);
  expectRefusal<TypedArray<float>>(array);
  expectRefusal<CharArray>(array);
  expectRefusal<TypedArray<std::int32_t>>(Array());
  EXPECT_EQ(referenceCount(array), 1U);
  expectRefusal<TypedArray<std::uint32_t>>(std::move(array));
  // A refused handle is not moved from.
  EXPECT_EQ(array.getNumberOfElements(), 4U);
}

// --- Characters

Array charArray(const std::u16string& text) {
  UntypedBuffer buffer = newBuffer(ArrayType::CHAR, text.size());
  text.copy(static_cast<char16_t*>(buffer.get()), text.size());
  return ArrayFactory().createArrayFromBuffer({1, text.size()}, ArrayType::CHAR, std::move(buffer),
                                              storageLayout);
}

TEST(CharArrays, GiveAsciiText) {
  EXPECT_EQ(CharArray(charArray(u"plain text")).toAscii(), "plain text");
  EXPECT_EQ(CharArray(charArray(u"")).toAscii(), "");
  EXPECT_EQ(CharArray(charArray({u'\0', u'a', u'\x7f'})).toAscii(), std::string("\0a\x7f", 3));
}

TEST(CharArrays, RefuseWhatIsNotAscii) {
  for (const char16_t unit : {u'\x80', u'\xe9', u'\u0141', u'\xffff'}) {
    const CharArray array(charArray({u'a', unit, u'b'}));
    try {
      array.toAscii();
      ADD_FAILURE() << static_cast<int>(unit);
    } catch (const ENonAsciiCharacter& error) {
      EXPECT_STREQ(error.what(), "Non-ASCII character in velmar::data::Array.");
      EXPECT_EQ(error.getExceptionID(), 9);
    }
    EXPECT_THROW(array.toAscii(), std::exception);
  }
}

TEST(CharArrays, ShareContentsLikeOtherArrays) {
  Array source = charArray(u"abc");
  const CharArray first(source);
  const CharArray second(copyOf(first));
  EXPECT_EQ(referenceCount(source), 3U);
  CharArray third(std::move(source));
  EXPECT_EQ(referenceCount(first), 3U);
  EXPECT_EQ(elementsOf<char16_t>(third), (std::vector<char16_t>{u'a', u'b', u'c'}));
  const auto block = third.release();
  EXPECT_EQ(elementsOf(block, 3), (std::vector<char16_t>{u'a', u'b', u'c'}));
  EXPECT_EQ(second.toAscii(), "abc");
}

// --- Exceptions

TEST(Exceptions, UnknownDataTypeHasOneText) {
  for (const char* detail : {"", "anything"}) {
    const EArrayUnknownDataType error{std::string(detail)};
    EXPECT_STREQ(error.what(), "Unknown DataType field in velmar::data::Array.");
    EXPECT_EQ(error.getExceptionID(), 8);
    const EArrayUnknownDataType copy = copyOf(error);
    EXPECT_STREQ(copy.what(), error.what());
  }
}

TEST(Exceptions, AreCaughtByTheirBases) {
  try {
    throw EArrayUnknownDataType("");
  } catch (const Exception& error) {
    EXPECT_EQ(error.getExceptionID(), 8);
  }
  EXPECT_THROW(throw EArrayUnknownDataType(""), std::exception);
}

TEST(Exceptions, BaseHasADefaultText) {
  struct Other final : Exception {
    int getExceptionID() const noexcept override { return 99; }
  };
  EXPECT_STREQ(Other().what(), "Error in velmar::data::Array.");
}

}  // namespace
