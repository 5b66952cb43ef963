// The element writer: array and mirror together, unsharing, places outside, reports.
#include "storage/element_writer.hpp"

#include <gtest/gtest.h>

#include <complex>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <new>
#include <optional>
#include <utility>
#include <vector>

#include "python_testing.hpp"
#include "storage_testing.hpp"

namespace {

using namespace python_testing;
using namespace foundation::velmardata;
using velmardata_testing::copyOf;
using velmardata_testing::elementsOf;
using velmardata_testing::referenceCount;

// --- All types

TYPED_SUITE(ElementWriterOf, WritableTypes, TypeWords);

TYPED_CASE(ElementWriterOf, StoresInTheArrayAndInTheMirror) {
  for (const bool isMirrorFilled : {false, true}) {
    SCOPED_TRACE(isMirrorFilled);
    MDArrayWrapper wrapper(sampleArray<TypeParam>({2, 3}), 'F', Contents::Client);
    if (isMirrorFilled) wrapper.buf();
    std::vector<TypeParam> expected = samples<TypeParam>(6);
    for (const std::size_t place : {0U, 5U, 2U, 1U, 4U, 3U}) {
      SCOPED_TRACE(place);
      expected[place] = otherThanSample<TypeParam>(place);
      EXPECT_EQ(ElementWriter<TypeParam>(wrapper).write(static_cast<std::int64_t>(place),
                                                        otherThanSample<TypeParam>(place)),
                WriteStatus::Stored);
      EXPECT_EQ(arrayElements<TypeParam>(wrapper), expected);
      if (isMirrorFilled) {
        EXPECT_EQ(mirrorElements<TypeParam>(wrapper), expected);
      }
    }
    EXPECT_EQ(mirrorElements<TypeParam>(wrapper), expected);
  }
  EXPECT_TRUE(raisedNothing());
}

// Without memory for the walk along one of the two memories, both keep what they had.
TYPED_CASE(ElementWriterOf, StoresNothingIfAStoreThrows) {
  for (const bool isMirrorFilled : {false, true}) {
    for (const int successes : {0, 1}) {
      SCOPED_TRACE(testing::Message() << isMirrorFilled << successes);
      MDArrayWrapper wrapper(sampleArray<TypeParam>({2, 3}), 'F', Contents::Client);
      if (isMirrorFilled) wrapper.buf();
      int left = successes;
      const auto store = [&left](std::byte* memory) {
        if (left-- == 0) throw std::bad_alloc();
        *reinterpret_cast<TypeParam*>(memory) = otherThanSample<TypeParam>(0);
      };
      const bool isStored = !isMirrorFilled && successes == 1;  // there is one memory
      if (isStored) {
        EXPECT_EQ(ElementWriter<TypeParam>(wrapper).writeWith(store), WriteStatus::Stored);
      } else {
        EXPECT_THROW(ElementWriter<TypeParam>(wrapper).writeWith(store), std::bad_alloc);
      }
      std::vector<TypeParam> expected = samples<TypeParam>(6);
      if (isStored) expected[0] = otherThanSample<TypeParam>(0);
      EXPECT_EQ(arrayElements<TypeParam>(wrapper), expected);
      EXPECT_EQ(mirrorElements<TypeParam>(wrapper), expected);
    }
  }
}

TYPED_CASE(ElementWriterOf, ServesManyElements) {
  for (const bool isMirrorFilled : {false, true}) {
    SCOPED_TRACE(isMirrorFilled);
    MDArrayWrapper wrapper(sampleArray<TypeParam>({50, 40}), 'F', Contents::Client);
    if (isMirrorFilled) wrapper.buf();
    {
      ElementWriter<TypeParam> writer(wrapper);
      for (std::int64_t place = 0; place < 2000; ++place) {
        ASSERT_EQ(writer.write(place, sample<TypeParam>(static_cast<std::size_t>(place) + 7)),
                  WriteStatus::Stored);
      }
    }
    EXPECT_EQ(arrayElements<TypeParam>(wrapper), samples<TypeParam>(2000, 7));
    EXPECT_EQ(mirrorElements<TypeParam>(wrapper), samples<TypeParam>(2000, 7));
  }
}

TYPED_CASE(ElementWriterOf, StoresNothingOutside) {
  for (const bool isMirrorFilled : {false, true}) {
    SCOPED_TRACE(isMirrorFilled);
    MDArrayWrapper wrapper(sampleArray<TypeParam>({2, 3}), 'F', Contents::Client);
    if (isMirrorFilled) wrapper.buf();
    for (const std::int64_t place :
         {std::int64_t{-1}, std::int64_t{6}, std::int64_t{7},
          std::numeric_limits<std::int64_t>::max(), std::numeric_limits<std::int64_t>::min()}) {
      SCOPED_TRACE(place);
      EXPECT_EQ(ElementWriter<TypeParam>(wrapper).write(place, otherThanSample<TypeParam>(0)),
                WriteStatus::OutsideStorage);
      EXPECT_EQ(arrayElements<TypeParam>(wrapper), samples<TypeParam>(6));
      if (isMirrorFilled) {
        EXPECT_EQ(mirrorElements<TypeParam>(wrapper), samples<TypeParam>(6));
      }
    }
    EXPECT_EQ(mirrorElements<TypeParam>(wrapper), samples<TypeParam>(6));
  }
  MDArrayWrapper empty(sampleArray<TypeParam>({0, 3}), 'F', Contents::Client);
  EXPECT_EQ(ElementWriter<TypeParam>(empty).write(0, otherThanSample<TypeParam>(0)),
            WriteStatus::OutsideStorage);
  EXPECT_TRUE(raisedNothing()) << "the caller reports";
}

TYPED_CASE(ElementWriterOf, WritesAfterAPlaceOutside) {
  MDArrayWrapper wrapper(sampleArray<TypeParam>({2, 3}), 'F', Contents::Client);
  {
    ElementWriter<TypeParam> writer(wrapper);
    EXPECT_EQ(writer.write(6, otherThanSample<TypeParam>(5)), WriteStatus::OutsideStorage);
    EXPECT_EQ(writer.write(5, otherThanSample<TypeParam>(5)), WriteStatus::Stored);
  }
  std::vector<TypeParam> expected = samples<TypeParam>(6);
  expected[5] = otherThanSample<TypeParam>(5);
  EXPECT_EQ(arrayElements<TypeParam>(wrapper), expected);
}

TYPED_CASE(ElementWriterOf, UnsharesTheContentsOnce) {
  const TypedArray<TypeParam> kept = sampleArray<TypeParam>({2, 3});
  MDArrayWrapper wrapper(copyOf(kept), 'F', Contents::Client);
  MDArrayWrapper other(copyOf(kept), 'F', Contents::Client);
  ASSERT_EQ(referenceCount(kept), 3U);
  ElementWriter<TypeParam>(wrapper).write(0, otherThanSample<TypeParam>(0));
  EXPECT_EQ(referenceCount(kept), 2U);
  EXPECT_NE(wrapper.array().impl(), kept.impl());
  EXPECT_EQ(referenceCount(wrapper.array()), 1U);

  const void* const address = addressOfElements<TypeParam>(wrapper);
  ElementWriter<TypeParam>(wrapper).write(5, otherThanSample<TypeParam>(5));
  EXPECT_EQ(addressOfElements<TypeParam>(wrapper), address);

  EXPECT_EQ(elementsOf(kept), samples<TypeParam>(6));
  EXPECT_EQ(arrayElements<TypeParam>(other), samples<TypeParam>(6));
  EXPECT_EQ(mirrorElements<TypeParam>(other), samples<TypeParam>(6));
  std::vector<TypeParam> expected = samples<TypeParam>(6);
  expected[0] = otherThanSample<TypeParam>(0);
  expected[5] = otherThanSample<TypeParam>(5);
  EXPECT_EQ(arrayElements<TypeParam>(wrapper), expected);
  EXPECT_EQ(mirrorElements<TypeParam>(wrapper), expected);
}

TYPED_CASE(ElementWriterOf, WritesUnsharedContentsInPlace) {
  MDArrayWrapper wrapper(sampleArray<TypeParam>({2, 3}), 'F', Contents::Client);
  const void* const address = addressOfElements<TypeParam>(wrapper);
  const auto* const impl = wrapper.array().impl();
  ElementWriter<TypeParam>(wrapper).write(3, otherThanSample<TypeParam>(3));
  EXPECT_EQ(addressOfElements<TypeParam>(wrapper), address);
  EXPECT_EQ(wrapper.array().impl(), impl);
  EXPECT_EQ(referenceCount(wrapper.array()), 1U);
}

// Contents that an earlier write unshared can be shared again.
TYPED_CASE(ElementWriterOf, UnsharesContentsAgainThatWereSharedMeanwhile) {
  MDArrayWrapper wrapper(sampleArray<TypeParam>({2, 3}), 'F', Contents::Client);
  ElementWriter<TypeParam>(wrapper).write(0, otherThanSample<TypeParam>(0));
  std::vector<TypeParam> expected = samples<TypeParam>(6);
  expected[0] = otherThanSample<TypeParam>(0);
  {
    const TypedArray<TypeParam> kept(wrapper.array());
    ElementWriter<TypeParam>(wrapper).write(1, otherThanSample<TypeParam>(1));
    EXPECT_EQ(elementsOf(kept), expected);
    EXPECT_NE(wrapper.array().impl(), kept.impl());
  }
  expected[1] = otherThanSample<TypeParam>(1);
  ElementWriter<TypeParam>(wrapper).write(2, otherThanSample<TypeParam>(2));
  expected[2] = otherThanSample<TypeParam>(2);
  EXPECT_EQ(arrayElements<TypeParam>(wrapper), expected);
  EXPECT_EQ(mirrorElements<TypeParam>(wrapper), expected);
}

TYPED_CASE(ElementWriterOf, FindsTheElementsAfterAReshape) {
  MDArrayWrapper wrapper(sampleArray<TypeParam>({2, 3}), 'F', Contents::Client);
  std::vector<TypeParam> expected = samples<TypeParam>(6);
  for (std::size_t k = 0; k < expected.size(); ++k) {
    ASSERT_TRUE(wrapper.reshape(k % 2 == 0 ? Numbers{2, 3} : Numbers{3, 2}, 'F'));
    expected[k] = otherThanSample<TypeParam>(k);
    ElementWriter<TypeParam>(wrapper).write(static_cast<std::int64_t>(k), expected[k]);
    EXPECT_EQ(arrayElements<TypeParam>(wrapper), expected);
  }
}

TYPED_CASE(ElementWriterOf, PutsTheArrayBack) {
  MDArrayWrapper wrapper(sampleArray<TypeParam>({2, 3}), 'F', Contents::Client);
  {
    const ElementWriter<TypeParam> writer(wrapper);
  }
  EXPECT_EQ(wrapper.array().getType(), arrayTypeOf<TypeParam>);
  EXPECT_EQ(wrapper.array().getDimensions(), (Dimensions{2, 3}));
  EXPECT_EQ(arrayElements<TypeParam>(wrapper), samples<TypeParam>(6));
}

// --- Reports

TEST(WriteReport, NamesTheFailure) {
  setErrorOfWrite(WriteStatus::OutsideStorage, 6, "int8");
  EXPECT_TRUE(raised(PyExc_RuntimeError, "unable to set value."));
  setErrorOfWrite(WriteStatus::OutOfMemory, 6, "int8");
  EXPECT_TRUE(
      raised(PyExc_MemoryError,
             "unable to allocate memory for array with number of elements = 6; type = int8"));
}

TEST(ElementWriter, StoresNothingWithoutMemoryForACopy) {
  constexpr unsigned long bytes = 256UL << 20;
  const Array kept = ArrayFactory().createArray(ArrayType::INT8, {bytes, 1});
  MCppPyArray view(copyOf(kept), SupportedArrayEnum::Int8, false, true, Contents::Client);
  const WrapperAccess storage = view.wrapper();
  std::vector<WriteStatus> statuses;
  bool isLimited = false;
  {
    const MemoryLimit limit;
    isLimited = limit.isSet();
    if (isLimited) {
      ElementWriter<std::int8_t> writer(*storage);
      statuses = {writer.write(0, 1), writer.write(1, 1)};
    }
  }
  if (!isLimited) GTEST_SKIP() << "an emulator ignores the limit on memory";
  EXPECT_EQ(statuses, (std::vector{WriteStatus::OutOfMemory, WriteStatus::OutOfMemory}));
  EXPECT_EQ(storage->array().impl(), kept.impl());
  EXPECT_EQ(referenceCount(kept), 2U);
  const TypedArray<std::int8_t> elements(kept);
  EXPECT_EQ(*elements.begin(), 0);
}

}  // namespace
