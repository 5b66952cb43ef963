// The dispatch on the array type: which handle the visitor gets, and whether contents are shared.
#include "module/apply_visitor.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <type_traits>
#include <utility>

#include "python_testing.hpp"

namespace {

using namespace python_testing;
using namespace foundation::velmardata;
using velmardata_testing::elementsOf;
using velmardata_testing::referenceCount;
using velmardata_testing::samples;

TYPED_SUITE(Dispatch, AllTypes, TypeWords);

// Whether the handle is exactly that of element type T.
template <class T>
struct IsHandleOf {
  template <class Handle>
  bool operator()(Handle&&) const {
    using Expected = std::conditional_t<std::is_same_v<T, char16_t>, CharArray, TypedArray<T>>;
    return std::is_same_v<std::remove_cvref_t<Handle>, Expected>;
  }
};

struct ReferenceCount {
  template <class T>
  std::uint64_t operator()(const TypedArray<T>& array) const {
    return referenceCount(array);
  }
};

TYPED_CASE(Dispatch, VisitorGetsTheTypedHandle) {
  const Array array = sampleArray<TypeParam>({2, 3});
  EXPECT_TRUE(applyVisitor(array, IsHandleOf<TypeParam>{}));
  const Array empty = ArrayFactory().createArray(arrayTypeOf<TypeParam>, {0, 3});
  EXPECT_TRUE(applyVisitor(empty, IsHandleOf<TypeParam>{}));
}

TYPED_CASE(Dispatch, LvalueIsCopiedAndReleased) {
  Array array = sampleArray<TypeParam>({2, 3});
  const auto* const impl = array.impl();
  EXPECT_EQ(applyVisitor(std::as_const(array), ReferenceCount{}), 2U);
  EXPECT_EQ(applyVisitor(array, ReferenceCount{}), 2U);
  EXPECT_EQ(array.impl(), impl);
  EXPECT_EQ(referenceCount(array), 1U);
  EXPECT_EQ(elementsOf(TypedArray<TypeParam>(array)), samples<TypeParam>(6));
}

TYPED_CASE(Dispatch, RvalueIsMovedSoThatTheContentsAreUnshared) {
  Array array = sampleArray<TypeParam>({2, 3});
  EXPECT_EQ(applyVisitor(std::move(array), ReferenceCount{}), 1U);
}

struct HandBack {
  template <class T>
  Array operator()(TypedArray<T>&& array) const {
    return std::move(array);
  }
};

TYPED_CASE(Dispatch, MovedContentsComeBackUnchanged) {
  Array array = sampleArray<TypeParam>({2, 3});
  const auto* const impl = array.impl();
  array = applyVisitor(std::move(array), HandBack{});
  EXPECT_EQ(array.impl(), impl);
  EXPECT_EQ(referenceCount(array), 1U);
}

TYPED_SUITE(DispatchedWrite, WritableTypes, TypeWords);

// Makes the first element a copy of the second.
struct WriteFirst {
  template <class T>
  Array operator()(TypedArray<T>&& array) const {
    if constexpr (!std::is_same_v<T, char16_t>) {
      const auto first = array.begin();
      first[0] = first[1];
    }
    return std::move(array);
  }
};

TYPED_CASE(DispatchedWrite, WriteThroughAMovedHandleStaysInPlace) {
  Array array = sampleArray<TypeParam>({2, 3});
  const void* const block = velmardata_testing::addressOf(TypedArray<TypeParam>(array));
  array = applyVisitor(std::move(array), WriteFirst{});
  const TypedArray<TypeParam> written(array);
  EXPECT_EQ(velmardata_testing::addressOf(written), block);
  EXPECT_EQ(*written.begin(), sample<TypeParam>(1));
}

TYPED_CASE(DispatchedWrite, WriteThroughACopiedHandleDoesNotReachTheArray) {
  const Array array = sampleArray<TypeParam>({2, 3});
  const TypedArray<TypeParam> written(applyVisitor(array, WriteFirst{}));
  EXPECT_EQ(*written.begin(), sample<TypeParam>(1));
  EXPECT_EQ(elementsOf(TypedArray<TypeParam>(array)), samples<TypeParam>(6));
}

struct ReturnMember {
  int member = 0;

  template <class T>
  int& operator()(const TypedArray<T>&) {
    return member;
  }
};

TEST(DispatchResult, CanBeAReference) {
  const Array array = sampleArray<double>({1, 1});
  ReturnMember visitor;
  static_assert(std::is_same_v<decltype(applyVisitor(array, visitor)), int&>);
  applyVisitor(array, visitor) = 5;
  EXPECT_EQ(visitor.member, 5);
}

TEST(DispatchResult, UnknownTypesThrow) {
  for (const std::uint32_t number : {0U, 3U, 24U, 1000U, 0xFFFFFFFFU}) {
    SCOPED_TRACE(number);
    // An array without elements may have any type number.
    const Array array = ArrayFactory().createArray(static_cast<ArrayType>(number), {0, 0});
    try {
      applyVisitor(array, ReferenceCount{});
      ADD_FAILURE() << "was dispatched";
    } catch (const EArrayUnknownDataType& error) {
      EXPECT_STREQ(error.what(), "Unknown DataType field in velmar::data::Array.");
      EXPECT_EQ(error.getExceptionID(), 8);
    }
    EXPECT_EQ(referenceCount(array), 1U);
  }
  EXPECT_THROW(applyVisitor(Array(), ReferenceCount{}), EArrayUnknownDataType);
}

}  // namespace
