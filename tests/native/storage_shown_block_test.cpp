// Arrays whose memory is the library's block itself: reads, writes, handing out, clones, snapshots.
#include <gtest/gtest.h>

#include <array>
#include <complex>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "operations/handlers.hpp"
#include "operations/materialisation.hpp"
#include "python_testing.hpp"
#include "storage/md_array_wrapper.hpp"
#include "storage_testing.hpp"

namespace {

using namespace python_testing;
using namespace foundation::velmardata;
using velmardata_testing::addressOf;
using velmardata_testing::elementsOf;
using velmardata_testing::referenceCount;

// The contents as a native client gets them. The handle owns the reference.
Array handOut(MDArrayWrapper& wrapper) {
  return Array(wrapper.tryHandOut());
}

// One type of each size: nothing here depends on what an element means.
using TypesOfEachSize =
    typed_testing::TypeList<bool, std::int16_t, float, double, std::complex<double>>;
TYPED_SUITE(ShownBlock, TypesOfEachSize, TypeWords);

// --- One memory

TYPED_CASE(ShownBlock, IsTheMemoryOfReads) {
  for (const Contents contents : {Contents::Own, Contents::Frozen}) {
    const MDArrayWrapper wrapper(sampleArray<TypeParam>({2, 3}), 'F', contents);
    EXPECT_TRUE(wrapper.hasMirror());
    EXPECT_EQ(static_cast<const void*>(wrapper.buf()), addressOfElements<TypeParam>(wrapper));
    EXPECT_EQ(mirrorElements<TypeParam>(wrapper), samples<TypeParam>(6));
    EXPECT_EQ(referenceCount(wrapper.array()), 1U);
  }
  const MDArrayWrapper shared(sampleArray<TypeParam>({2, 3}), 'F', Contents::Client);
  EXPECT_NE(static_cast<const void*>(shared.buf()), addressOfElements<TypeParam>(shared));
}

TYPED_CASE(ShownBlock, IsWrittenInPlace) {
  for (const bool isLookedAt : {false, true}) {
    MDArrayWrapper wrapper(sampleArray<TypeParam>({2, 3}), 'F', Contents::Own);
    const void* const address = addressOfElements<TypeParam>(wrapper);
    if (isLookedAt) wrapper.buf();
    std::vector<TypeParam> expected = samples<TypeParam>(6);
    for (const std::size_t place : {0U, 5U, 3U}) {
      expected[place] = otherThanSample<TypeParam>(place);
      EXPECT_EQ(ElementWriter<TypeParam>(wrapper).write(static_cast<std::int64_t>(place),
                                                        expected[place]),
                WriteStatus::Stored);
      EXPECT_EQ(storedElements<TypeParam>(wrapper), expected);
      EXPECT_EQ(static_cast<const void*>(wrapper.buf()), address);
      EXPECT_EQ(addressOfElements<TypeParam>(wrapper), address);
    }
    EXPECT_EQ(ElementWriter<TypeParam>(wrapper).write(6, expected[0]), WriteStatus::OutsideStorage);
    EXPECT_EQ(ElementWriter<TypeParam>(wrapper).write(-1, expected[0]),
              WriteStatus::OutsideStorage);
    EXPECT_EQ(storedElements<TypeParam>(wrapper), expected);
  }
}

TYPED_CASE(ShownBlock, IsOneMemoryForWholeStores) {
  int stores = 0;
  const auto count = [&stores](std::byte*) { ++stores; };
  MDArrayWrapper own(sampleArray<TypeParam>({2, 3}), 'F', Contents::Own);
  EXPECT_EQ(ElementWriter<TypeParam>(own).writeWith(count), WriteStatus::Stored);
  EXPECT_EQ(std::exchange(stores, 0), 1);
  MDArrayWrapper shared(sampleArray<TypeParam>({2, 3}), 'F', Contents::Client);
  EXPECT_EQ(ElementWriter<TypeParam>(shared).writeWith(count), WriteStatus::Stored);
  EXPECT_EQ(std::exchange(stores, 0), 1) << "there is no mirror before the first look";
  shared.buf();
  EXPECT_EQ(ElementWriter<TypeParam>(shared).writeWith(count), WriteStatus::Stored);
  EXPECT_EQ(std::exchange(stores, 0), 2);
  handOut(own);
  EXPECT_EQ(ElementWriter<TypeParam>(own).writeWith(count), WriteStatus::Stored);
  EXPECT_EQ(stores, 2);
}

TYPED_CASE(ShownBlock, OfArraysWithoutElementsHasAnAddressOfItsOwn) {
  for (const Contents contents :
       {Contents::Own, Contents::Client, Contents::Copied, Contents::Frozen}) {
    std::array<std::unique_ptr<MDArrayWrapper>, 3> wrappers;
    for (auto& wrapper : wrappers) {
      wrapper = std::make_unique<MDArrayWrapper>(sampleArray<TypeParam>({0, 3}), 'F', contents);
      EXPECT_TRUE(wrapper->hasMirror());
      EXPECT_NE(wrapper->buf(), nullptr);
    }
    EXPECT_NE(wrappers[0]->buf(), wrappers[1]->buf());
    EXPECT_NE(wrappers[1]->buf(), wrappers[2]->buf());
    EXPECT_NE(wrappers[0]->buf(), wrappers[2]->buf());
    const std::byte* const address = wrappers[0]->buf();
    const Array handed = handOut(*wrappers[0]);
    EXPECT_EQ(handed.getDimensions(), (Dimensions{0, 3}));
    EXPECT_EQ(wrappers[0]->buf(), address);
  }
}

// --- Handing out

TYPED_CASE(ShownBlock, GoesOutBeforeALookAndAMirrorIsLookedAt) {
  MDArrayWrapper wrapper(sampleArray<TypeParam>({2, 3}), 'F', Contents::Own);
  const void* const address = addressOfElements<TypeParam>(wrapper);
  const auto* const impl = wrapper.array().impl();
  const TypedArray<TypeParam> client(handOut(wrapper));
  EXPECT_EQ(client.impl(), impl);
  EXPECT_EQ(addressOf(client), address);
  EXPECT_NE(static_cast<const void*>(wrapper.buf()), address);
  EXPECT_EQ(mirrorElements<TypeParam>(wrapper), samples<TypeParam>(6));
}

TYPED_CASE(ShownBlock, StaysAfterALookAndACopyGoesOut) {
  MDArrayWrapper wrapper(sampleArray<TypeParam>({2, 3}), 'F', Contents::Own);
  const std::byte* const address = wrapper.buf();
  const TypedArray<TypeParam> client(handOut(wrapper));
  EXPECT_NE(addressOf(client), static_cast<const void*>(address));
  EXPECT_EQ(client.impl(), wrapper.array().impl());
  EXPECT_EQ(elementsOf(client), samples<TypeParam>(6));
  EXPECT_EQ(client.getDimensions(), (Dimensions{2, 3}));
  EXPECT_EQ(wrapper.buf(), address);
  EXPECT_EQ(handOut(wrapper).impl(), client.impl()) << "the second time the same goes out";
  EXPECT_EQ(wrapper.buf(), address);
}

// All orders of looks, writes, hand-outs, reshapes and writes of clients, up to four of them.
TYPED_CASE(ShownBlock, KeepsItsElementsInEveryOrder) {
  enum Step { Look, Write, HandOut, Reshape, ClientWrite, Steps };
  constexpr int length = 4;
  int sequences = 1;
  for (int k = 0; k < length; ++k) sequences *= Steps;
  for (const Contents contents : {Contents::Own, Contents::Client}) {
    for (int sequence = 0; sequence < sequences; ++sequence) {
      MDArrayWrapper wrapper(sampleArray<TypeParam>({2, 3}), 'F', contents);
      std::vector<TypeParam> expected = samples<TypeParam>(6);
      const std::byte* address = nullptr;
      std::vector<std::pair<TypedArray<TypeParam>, std::vector<TypeParam>>> clients;
      std::string steps;
      bool isSquare = false;
      for (int k = 0, rest = sequence; k < length; ++k, rest /= Steps) {
        const auto place = static_cast<std::size_t>(k);
        switch (rest % Steps) {
          case Look:
            steps += "look ";
            if (address == nullptr) address = wrapper.buf();
            break;
          case Write:
            steps += "write ";
            expected[place] = otherThanSample<TypeParam>(place);
            ElementWriter<TypeParam>(wrapper).write(k, expected[place]);
            break;
          case HandOut:
            steps += "hand out ";
            clients.emplace_back(handOut(wrapper), expected);
            break;
          case Reshape:
            steps += "reshape ";
            isSquare = !isSquare;
            ASSERT_TRUE(wrapper.reshape(isSquare ? Numbers{3, 2} : Numbers{2, 3}, 'F'));
            break;
          default:
            steps += "client writes ";
            for (auto& [client, values] : clients) {
              values[5] = otherThanSample<TypeParam>(5);
              *(client.begin() + 5) = values[5];
            }
            break;
        }
        if (address != nullptr) {
          ASSERT_EQ(wrapper.buf(), address) << steps;
        }
        ASSERT_EQ(arrayElements<TypeParam>(wrapper), expected) << steps;
        for (const auto& [client, values] : clients) ASSERT_EQ(elementsOf(client), values) << steps;
      }
      ASSERT_EQ(mirrorElements<TypeParam>(wrapper), expected) << steps;
    }
  }
}

// A handle that the module itself holds for a moment, while Python code runs.
TYPED_CASE(ShownBlock, IsAMirrorAfterAReshapeWhoseContentsHadToBeCopied) {
  MDArrayWrapper wrapper(sampleArray<TypeParam>({2, 3}), 'F', Contents::Own);
  const std::byte* const address = wrapper.buf();
  {
    const Array held = wrapper.array();
    ASSERT_TRUE(wrapper.reshape(Numbers{3, 2}, 'F'));
  }
  std::vector<TypeParam> expected = samples<TypeParam>(6);
  expected[4] = otherThanSample<TypeParam>(4);
  ElementWriter<TypeParam>(wrapper).write(4, expected[4]);
  EXPECT_EQ(wrapper.buf(), address);
  EXPECT_EQ(storedElements<TypeParam>(wrapper), expected);
  const TypedArray<TypeParam> client(handOut(wrapper));
  EXPECT_EQ(elementsOf(client), expected);
  expected[1] = otherThanSample<TypeParam>(1);
  ElementWriter<TypeParam>(wrapper).write(1, expected[1]);
  EXPECT_EQ(storedElements<TypeParam>(wrapper), expected);
}

TEST(ShownBlockReshape, KeepsExportedDescriptions) {
  MDArrayWrapper wrapper(sampleArray<double>({2, 6}), 'F', Contents::Own);
  const std::byte* const address = wrapper.buf();
  const ArrayDescription& first = wrapper.exportedDescription();
  ASSERT_TRUE(wrapper.reshape(Numbers{3, 2, 2}, 'F'));
  const ArrayDescription& second = wrapper.exportedDescription();
  const Array client = handOut(wrapper);
  ASSERT_TRUE(wrapper.reshape(Numbers{12}, 'C'));
  EXPECT_EQ(numbersOf(first.shape()), (Numbers{2, 6}));
  EXPECT_EQ(numbersOf(first.strides()), (Numbers{8, 16}));
  EXPECT_EQ(numbersOf(second.shape()), (Numbers{3, 2, 2}));
  EXPECT_EQ(numbersOf(second.strides()), (Numbers{8, 24, 48}));
  EXPECT_EQ(numbersOf(wrapper.shape()), (Numbers{12}));
  EXPECT_EQ(client.getDimensions(), (Dimensions{3, 2, 2}));
  EXPECT_EQ(wrapper.buf(), address);
  EXPECT_EQ(storedElements<double>(wrapper), samples<double>(12));
}

// --- Short memory

TEST(ShownBlockMemory, WithoutMemoryToHandOutNothingChanges) {
  constexpr unsigned long bytes = 256UL << 20;
  for (const bool isLookedAt : {false, true}) {
    SCOPED_TRACE(isLookedAt);
    MDArrayWrapper wrapper(ArrayFactory().createArray(ArrayType::INT8, {bytes, 1}), 'F',
                           Contents::Own);
    const auto* const impl = wrapper.array().impl();
    const void* const address = addressOfElements<std::int8_t>(wrapper);
    if (isLookedAt) wrapper.buf();
    bool isLimited = false;
    bool isQuiet = false;
    velmar::data::impl::ArrayImpl* handedOut = nullptr;
    {
      const MemoryLimit limit;
      isLimited = limit.isSet();
      if (isLimited) handedOut = wrapper.tryHandOut();
      isQuiet = PyErr_Occurred() == nullptr;
    }
    if (!isLimited) GTEST_SKIP() << "an emulator ignores the limit on memory";
    EXPECT_EQ(handedOut, nullptr);
    EXPECT_TRUE(isQuiet) << "the caller reports";
    EXPECT_TRUE(wrapper.hasMirror());
    EXPECT_EQ(wrapper.array().impl(), impl);
    EXPECT_EQ(referenceCount(wrapper.array()), 1U);
    EXPECT_EQ(static_cast<const void*>(wrapper.buf()), address) << "it is still the block";
    EXPECT_EQ(ElementWriter<std::int8_t>(wrapper).write(1, 80), WriteStatus::Stored);
    const TypedArray<std::int8_t> client(handOut(wrapper));  // there is memory again
    EXPECT_EQ(client.begin()[1], 80);
    EXPECT_EQ(static_cast<const void*>(wrapper.buf()), address);
  }
}

// --- Clones and snapshots

TYPED_CASE(ShownBlock, OfACloneIsItsOwn) {
  for (const bool isSourceAlive : {true, false}) {
    SCOPED_TRACE(isSourceAlive);
    ViewPointer source = makeArray<TypeParam>({2, 3});
    const ViewPointer clone = cloneAsMCppPyArrayUniquePtr(*source, Contents::Copied);
    ASSERT_NE(clone, nullptr);
    const Array snapshot = *source->caches().indexedArrayAsMDA();
    if (!isSourceAlive) source.reset();
    std::vector<TypeParam> expected = samples<TypeParam>(6);
    expected[2] = otherThanSample<TypeParam>(2);
    ASSERT_TRUE(setElement<TypeParam>(*clone, {0, 1}, expected[2]));
    EXPECT_EQ(storedElements<TypeParam>(*clone), expected);
    EXPECT_EQ(elementsOf(TypedArray<TypeParam>(snapshot)), samples<TypeParam>(6));
    if (isSourceAlive) {
      EXPECT_EQ(storedElements<TypeParam>(*source), samples<TypeParam>(6));
      const ViewPointer second = cloneAsMCppPyArrayUniquePtr(*source, Contents::Copied);
      EXPECT_EQ(storedElements<TypeParam>(*second), samples<TypeParam>(6));
      EXPECT_NE(second->borrowWrapper()->buf(), clone->borrowWrapper()->buf());
    }
  }
}

TYPED_CASE(ShownBlock, OfAnExportIsThatOfTheSnapshot) {
  const PyRef array = makeRecord(makeArray<TypeParam>({2, 3}));
  const PyRef row = evaluate("a[1]", {{"a", array}});
  MCppPyArray& view = viewOf(row);
  updateIndexRestrictedMCppPyArrayIfNecessary(view);
  const MCppPyArray* const exported = view.caches().indexRestrictedMCppPyArray();
  ASSERT_NE(exported, nullptr);
  const MDArrayWrapper& storage = *exported->borrowWrapper();
  const TypedArray<TypeParam> snapshot(*view.caches().indexedArrayAsMDA());
  EXPECT_EQ(static_cast<const void*>(storage.buf()), addressOf(snapshot));

  // Neither a write to a clone nor one through a handle of a client reaches what was exported.
  const std::vector<TypeParam> expected = {sample<TypeParam>(1), sample<TypeParam>(3),
                                           sample<TypeParam>(5)};
  const ViewPointer clone = cloneAsMCppPyArrayUniquePtr(view, Contents::Copied);
  ASSERT_TRUE(setElement<TypeParam>(*clone, {0, 0}, otherThanSample<TypeParam>(1)));
  TypedArray<TypeParam> client(snapshot);
  *client.begin() = otherThanSample<TypeParam>(1);
  ASSERT_TRUE(setElement<TypeParam>(viewOf(array), {1, 0}, otherThanSample<TypeParam>(1)));
  EXPECT_EQ(mirrorElements<TypeParam>(storage), expected);
  EXPECT_EQ(arrayElements<TypeParam>(storage), expected);
}

}  // namespace
