// Elements of all types: sharing, copy on write, release, iterators, element references.
#include <gtest/gtest.h>

#include <algorithm>
#include <complex>
#include <cstdint>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include "velmardata_testing.hpp"

namespace {

using namespace velmardata_testing;

// --- Reading and releasing: all 22 types

TYPED_SUITE(ReadArray, AllTypes, TypeNames);

TYPED_CASE(ReadArray, ElementsLieInOneBlockInStorageOrder) {
  const TypedArray<TypeParam> array = sampleArray<TypeParam>({2, 3});
  EXPECT_EQ(array.end() - array.begin(), 6);
  const TypeParam* const first = &*array.begin();
  for (std::size_t i = 0; i < 6; ++i) EXPECT_EQ(first[i], sample<TypeParam>(i)) << i;
}

TYPED_CASE(ReadArray, ReadingSharedContentsCopiesNothing) {
  const TypedArray<TypeParam> first = sampleArray<TypeParam>({2, 3});
  const TypedArray<TypeParam> second = copyOf(first);
  EXPECT_EQ(addressOf(first), addressOf(second));
  EXPECT_EQ(first.impl(), second.impl());
}

TYPED_CASE(ReadArray, SoleOwnerReleasesItsOwnBlock) {
  TypedArray<TypeParam> array = sampleArray<TypeParam>({2, 3});
  const void* const address = addressOf(array);
  const auto block = array.release();
  EXPECT_EQ(block.get(), address);
  EXPECT_EQ(elementsOf(block, 6), samples<TypeParam>(6));
  EXPECT_EQ(array.impl(), nullptr);
  EXPECT_EQ(array.getNumberOfElements(), 0U);
}

TYPED_CASE(ReadArray, SharedContentsAreReleasedAsACopy) {
  const TypedArray<TypeParam> kept = sampleArray<TypeParam>({2, 3});
  TypedArray<TypeParam> released = kept;
  const auto block = released.release();
  EXPECT_NE(block.get(), addressOf(kept));
  EXPECT_EQ(elementsOf(block, 6), samples<TypeParam>(6));
  EXPECT_EQ(elementsOf(kept), samples<TypeParam>(6));
  EXPECT_EQ(kept.getDimensions(), (Dimensions{2, 3}));
  EXPECT_EQ(referenceCount(kept), 1U);
  EXPECT_EQ(released.impl(), nullptr);
}

TYPED_CASE(ReadArray, ReleasedBlocksAreAdoptedAgainInPlace) {
  TypedArray<TypeParam> array = sampleArray<TypeParam>({2, 3});
  auto block = array.release();
  void (*const deleter)(void*) = block.get_deleter();
  const void* const address = block.get();
  const Array again = ArrayFactory().createArrayFromBuffer(
      {3, 2}, arrayTypeOf<TypeParam>, UntypedBuffer(block.release(), deleter), storageLayout);
  EXPECT_EQ(addressOf(TypedArray<TypeParam>(again)), address);
  EXPECT_EQ(elementsOf(TypedArray<TypeParam>(again)), samples<TypeParam>(6));
}

// --- Writing: 21 types

TYPED_SUITE(WriteArray, WritableTypes, TypeNames);

// A value other than sample number 0.
template <class T>
T otherValue() {
  return sample<T>(1);
}

TYPED_CASE(WriteArray, SoleOwnerWritesInPlace) {
  TypedArray<TypeParam> array = sampleArray<TypeParam>({2, 3});
  const void* const address = addressOf(array);
  const auto* const impl = array.impl();
  *array.begin() = otherValue<TypeParam>();
  EXPECT_EQ(addressOf(array), address);
  EXPECT_EQ(array.impl(), impl);
  EXPECT_EQ(*std::as_const(array).begin(), otherValue<TypeParam>());
}

TYPED_CASE(WriteArray, WriteToSharedContentsUnsharesThem) {
  const TypedArray<TypeParam> kept = sampleArray<TypeParam>({2, 3});
  const void* const address = addressOf(kept);
  TypedArray<TypeParam> written = kept;
  *written.begin() = otherValue<TypeParam>();
  EXPECT_EQ(elementsOf(kept), samples<TypeParam>(6));
  EXPECT_EQ(addressOf(kept), address);
  std::vector<TypeParam> expected = samples<TypeParam>(6);
  expected[0] = otherValue<TypeParam>();
  EXPECT_EQ(elementsOf(written), expected);
  EXPECT_EQ(written.getType(), arrayTypeOf<TypeParam>);
  EXPECT_EQ(written.getDimensions(), (Dimensions{2, 3}));
  EXPECT_EQ(referenceCount(kept), 1U);
  EXPECT_EQ(referenceCount(written), 1U);
}

TYPED_CASE(WriteArray, ReferenceAssignsOneElement) {
  TypedArray<TypeParam> array = sampleArray<TypeParam>({2, 3});
  array[3] = otherValue<TypeParam>();
  detail::setElement<TypeParam>(array[5].impl(), otherValue<TypeParam>());
  std::vector<TypeParam> expected = samples<TypeParam>(6);
  expected[3] = expected[5] = otherValue<TypeParam>();
  EXPECT_EQ(elementsOf(array), expected);
}

TYPED_CASE(WriteArray, ReferenceToSharedContentsUnsharesThem) {
  const TypedArray<TypeParam> kept = sampleArray<TypeParam>({2, 3});
  TypedArray<TypeParam> written = kept;
  written[0] = otherValue<TypeParam>();
  EXPECT_EQ(elementsOf(kept), samples<TypeParam>(6));
  EXPECT_EQ(*std::as_const(written).begin(), otherValue<TypeParam>());
}

TYPED_CASE(WriteArray, MovedHandleWritesInPlace) {
  Array array = sampleArray<TypeParam>({2, 3});
  const auto* const impl = array.impl();
  TypedArray<TypeParam> typed(std::move(array));
  *typed.begin() = otherValue<TypeParam>();
  array = std::move(typed);
  EXPECT_EQ(array.impl(), impl);
  EXPECT_EQ(*TypedArray<TypeParam>(array).begin(), otherValue<TypeParam>());
}

// --- Sharing in more detail

TEST(CopyOnWrite, EachOfManyHandlesGetsItsOwn) {
  TypedArray<double> first = sampleArray<double>({2, 2});
  TypedArray<double> second = first;
  TypedArray<double> third = second;
  *second.begin() = 20.0;
  *third.begin() = 30.0;
  const void* const address = addressOf(first);
  *first.begin() = 10.0;
  EXPECT_EQ(addressOf(first), address) << "the last handle on the old contents keeps them";
  EXPECT_EQ(*std::as_const(first).begin(), 10.0);
  EXPECT_EQ(*std::as_const(second).begin(), 20.0);
  EXPECT_EQ(*std::as_const(third).begin(), 30.0);
}

TEST(CopyOnWrite, ConstBeginNeverUnshares) {
  TypedArray<double> first = sampleArray<double>({2, 2});
  const TypedArray<double> second = first;
  EXPECT_EQ(*std::as_const(first).begin(), 1.0);
  EXPECT_EQ(first.impl(), second.impl());
  EXPECT_EQ(*first.begin(), 1.0);
  EXPECT_NE(first.impl(), second.impl());
}

TEST(CopyOnWrite, IteratorsDoNotShare) {
  TypedArray<double> array = sampleArray<double>({2, 2});
  const auto* const impl = array.impl();
  const TypedIterator<double> first = array.begin();
  const TypedIterator<const double> reader = std::as_const(array).begin();
  const auto reference = array[1];
  const TypedIterator<double> second = array.begin();
  EXPECT_TRUE(first == second);
  EXPECT_EQ(array.impl(), impl);
  EXPECT_EQ(referenceCount(array), 1U);
  *first = 5.0;
  EXPECT_EQ(*second, 5.0);
  EXPECT_EQ(*reader, 5.0);
}

TEST(CopyOnWrite, OldIteratorsStayOnTheOldBlock) {
  TypedArray<double> array = sampleArray<double>({2, 2});
  const TypedArray<double> other = array;
  const TypedIterator<const double> reader = std::as_const(array).begin();
  *array.begin() = 9.0;
  EXPECT_EQ(*reader, 1.0);
  EXPECT_EQ(std::to_address(reader), addressOf(other));
}

TEST(CopyOnWrite, NoElements) {
  TypedArray<double> first = sampleArray<double>({0, 3});
  const TypedArray<double> second = first;
  EXPECT_TRUE(first.begin() == first.end());
  EXPECT_NE(first.impl(), second.impl());
  EXPECT_EQ(first.getDimensions(), (Dimensions{0, 3}));
}

TEST(CopyOnWrite, LargeContents) {
  const TypedArray<double> kept = sampleArray<double>({1000, 700});
  TypedArray<double> written = kept;
  std::fill_n(written.begin(), 700000, -1.0);
  EXPECT_EQ(elementsOf(kept), samples<double>(700000));
  EXPECT_EQ(elementsOf(written), std::vector<double>(700000, -1.0));
}

TEST(CopyOnWrite, HandlesInSeveralThreads) {
  const TypedArray<double> kept = sampleArray<double>({10, 10});
  const auto work = [&kept](double value) {
    for (int i = 0; i < 500; ++i) {
      TypedArray<double> own = kept;
      const TypedArray<double> second = own;
      *own.begin() = value;
      EXPECT_EQ(*std::as_const(own).begin(), value);
      EXPECT_EQ(*second.begin(), 1.0);
    }
  };
  std::thread threads[] = {std::thread(work, 100.0), std::thread(work, 200.0)};
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(referenceCount(kept), 1U);
  EXPECT_EQ(elementsOf(kept), samples<double>(100));
}

// --- Element references

TEST(ElementReferences, RefuseAnIndexOutOfRange) {
  TypedArray<double> array = sampleArray<double>({2, 3});
  const TypedArray<double> other = array;
  for (const unsigned long index : {6UL, 7UL, ~0UL}) {
    try {
      array[index];
      ADD_FAILURE() << index;
    } catch (const std::out_of_range& error) {
      EXPECT_STREQ(error.what(), "array has no such element.");
    }
  }
  EXPECT_EQ(array.impl(), other.impl()) << "a refusal unshares nothing";
}

TEST(ElementReferences, RefuseAnotherType) {
  TypedArray<double> array = sampleArray<double>({2, 3});
  const char* const text = "element reference is null or of another element type.";
  try {
    detail::setElement<std::int64_t>(array[0].impl(), 1);
    ADD_FAILURE();
  } catch (const std::invalid_argument& error) {
    EXPECT_STREQ(error.what(), text);
  }
  try {
    detail::setElement<double>(nullptr, 1.0);
    ADD_FAILURE();
  } catch (const std::invalid_argument& error) {
    EXPECT_STREQ(error.what(), text);
  }
  EXPECT_EQ(elementsOf(array), samples<double>(6));
}

TEST(ElementReferences, CopiesReferToTheSameElement) {
  TypedArray<double> array = sampleArray<double>({1, 2});
  auto reference = array[0];
  auto copy = reference;
  reference = 7.0;
  EXPECT_EQ(*std::as_const(array).begin(), 7.0);
  copy = 8.0;
  EXPECT_EQ(*std::as_const(array).begin(), 8.0);
  EXPECT_EQ(reference.impl(), copy.impl());
}

// --- Complex elements

TEST(ComplexElements, ArePairsOfAdjacentParts) {
  TypedArray<std::complex<std::int8_t>> array = sampleArray<std::complex<std::int8_t>>({1, 2});
  const auto* const parts = reinterpret_cast<const std::int8_t*>(&*array.begin());
  EXPECT_EQ(std::vector<std::int8_t>(parts, parts + 4), (std::vector<std::int8_t>{1, 61, 2, 62}));
}

// --- Iterators

TEST(Iterators, MoveLikePointers) {
  TypedArray<std::int32_t> array = sampleArray<std::int32_t>({1, 10});
  TypedIterator<std::int32_t> it = array.begin();
  EXPECT_EQ(*it, 1);
  EXPECT_EQ(*++it, 2);
  EXPECT_EQ(*it++, 2);
  EXPECT_EQ(*it, 3);
  EXPECT_EQ(*--it, 2);
  EXPECT_EQ(*it--, 2);
  EXPECT_EQ(*it, 1);
  it += 4;
  EXPECT_EQ(*it, 5);
  it -= 2;
  EXPECT_EQ(*it, 3);
  EXPECT_EQ(it[5], 8);
  EXPECT_EQ(it[-2], 1);
  EXPECT_EQ(*(it + 3), 6);
  EXPECT_EQ(*(3 + it), 6);
  EXPECT_EQ(*(it - 1), 2);
  it[1] = 44;
  EXPECT_EQ(*(it + 1), 44);
}

TEST(Iterators, CompareByPosition) {
  TypedArray<std::int32_t> array = sampleArray<std::int32_t>({1, 10});
  const TypedIterator<std::int32_t> first = array.begin();
  const TypedIterator<const std::int32_t> reader = first;
  const TypedIterator<const std::int32_t> last = array.end();
  EXPECT_EQ(last - first, 10);
  EXPECT_EQ(first - last, -10);
  EXPECT_TRUE(first == reader);
  EXPECT_TRUE(reader == first);
  EXPECT_TRUE(first != last);
  EXPECT_TRUE(first < last && last > first && first <= reader && reader >= first);
  EXPECT_TRUE(first + 10 == last);
  EXPECT_FALSE(first + 9 == last);
}

TEST(Iterators, ReachMembers) {
  const TypedArray<std::complex<double>> array = sampleArray<std::complex<double>>({1, 2});
  EXPECT_EQ(array.begin()->imag(), 61.0);
}

TEST(Iterators, ServeAlgorithms) {
  TypedArray<double> array = sampleArray<double>({1, 20});
  std::reverse(array.begin(), array.begin() + 20);
  std::sort(array.begin(), array.begin() + 20);
  EXPECT_EQ(elementsOf(array), samples<double>(20));
  for (double& element : array) element = 1.5;
  EXPECT_EQ(std::count(std::as_const(array).begin(), array.end(), 1.5), 20);
}

TEST(Iterators, WithoutABlockCanBeCopied) {
  const TypedIterator<double> it;
  const TypedIterator<double> copy = it;
  EXPECT_EQ(it, copy);
}

TEST(Iterators, WithoutABlockAreEqual) {
  EXPECT_TRUE(TypedIterator<double>() == TypedIterator<const double>());
  TypedIterator<double> it;
  it = TypedIterator<double>();
  EXPECT_EQ(std::to_address(it), nullptr);
}

}  // namespace
