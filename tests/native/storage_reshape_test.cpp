// Another shape over the same storage: elements and mirror stay in place, shared contents are
// copied, and lengths and strides that went out in an export stay readable.
#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "module/type_objects.hpp"
#include "operations/handlers.hpp"
#include "python_testing.hpp"
#include "storage/md_array_wrapper.hpp"
#include "storage_testing.hpp"

namespace {

using namespace python_testing;
using namespace foundation::velmardata;
using velmardata_testing::addressOf;
using velmardata_testing::copyOf;
using velmardata_testing::elementsOf;
using velmardata_testing::heapInUse;
using velmardata_testing::referenceCount;

TYPED_SUITE(Reshape, AllTypes, TypeWords);

// --- Elements and description

struct ShapeRow {
  Dimensions before;
  Numbers after;
  Numbers strides;  // in elements
};
const ShapeRow shapeRows[] = {
    {{2, 3}, {3, 2}, {1, 3}}, {{2, 3}, {2, 3}, {1, 2}},       {{2, 3}, {6}, {1}},
    {{2, 3}, {1, 6}, {1, 1}}, {{2, 3}, {1, 2, 3}, {1, 1, 2}}, {{2, 3}, {3, 1, 2, 1}, {1, 3, 3, 6}},
    {{6}, {2, 3}, {1, 2}},    {{2, 2, 3}, {4, 3}, {1, 4}},    {{1, 1}, {1}, {1}},
    {{0, 3}, {0, 5}, {1, 0}}, {{0, 5}, {5, 0}, {1, 5}},       {{2, 0, 4}, {0}, {1}},
};

TYPED_CASE(Reshape, KeepsElementsAndTheirPlaces) {
  for (const ShapeRow& row : shapeRows) {
    for (const bool isMirrorFilled : {true, false}) {
      SCOPED_TRACE(testing::PrintToString(row.before) + testing::PrintToString(row.after));
      MDArrayWrapper wrapper(sampleArray<TypeParam>(row.before), 'F', Contents::Client);
      const std::vector<TypeParam> elements = arrayElements<TypeParam>(wrapper);
      const std::int64_t bytes = wrapper.getBufferSizeInBytes();
      const void* const place = addressOfElements<TypeParam>(wrapper);
      const std::byte* const mirror = isMirrorFilled ? wrapper.buf() : nullptr;

      ASSERT_TRUE(wrapper.reshape(row.after, 'F'));
      EXPECT_EQ(addressOfElements<TypeParam>(wrapper), place);
      EXPECT_EQ(arrayElements<TypeParam>(wrapper), elements);
      EXPECT_EQ(mirrorElements<TypeParam>(wrapper), elements);
      if (isMirrorFilled) {
        EXPECT_EQ(wrapper.buf(), mirror);
      }
      EXPECT_EQ(numbersOf(wrapper.shape()), row.after);
      EXPECT_EQ(wrapper.getNumberOfDimensions(), static_cast<int>(row.after.size()));
      Numbers strides = row.strides;
      for (std::int64_t& stride : strides) stride *= static_cast<std::int64_t>(sizeof(TypeParam));
      EXPECT_EQ(stridesOf(wrapper), strides);
      EXPECT_EQ(wrapper.getNumberOfElements(), static_cast<std::int64_t>(elements.size()));
      EXPECT_EQ(wrapper.getBufferSizeInBytes(), bytes);
      EXPECT_EQ(wrapper.getElementSizeInBytes(), static_cast<std::int64_t>(sizeof(TypeParam)));
      EXPECT_EQ(wrapper.isReadOnly(), 1);
      EXPECT_TRUE(wrapper.hasMirror());
      EXPECT_EQ(wrapper.array().getType(), arrayTypeOf<TypeParam>);
      EXPECT_EQ(wrapper.array().getDimensions(), Dimensions(row.after.begin(), row.after.end()));
      EXPECT_EQ(referenceCount(wrapper.array()), 1U);
    }
  }
  EXPECT_TRUE(raisedNothing());
}

TYPED_CASE(Reshape, OrderIsTheArgument) {
  constexpr auto size = static_cast<std::int64_t>(sizeof(TypeParam));
  MDArrayWrapper wrapper(sampleArray<TypeParam>({2, 3}), 'C', Contents::Client);
  EXPECT_EQ(stridesOf(wrapper), (Numbers{3 * size, size}));
  ASSERT_TRUE(wrapper.reshape(Numbers{2, 3}, 'F'));
  EXPECT_EQ(wrapper.getOrder(), 'F');
  EXPECT_EQ(stridesOf(wrapper), (Numbers{size, 2 * size}));
  ASSERT_TRUE(wrapper.reshape(Numbers{3, 2}, 'C'));
  EXPECT_EQ(wrapper.getOrder(), 'C');
  EXPECT_EQ(stridesOf(wrapper), (Numbers{2 * size, size}));
  EXPECT_EQ(mirrorElements<TypeParam>(wrapper), samples<TypeParam>(6));
}

TYPED_CASE(Reshape, ContentsOfOtherHandlesAreCopied) {
  for (const bool isMirrorFilled : {true, false}) {
    const TypedArray<TypeParam> kept = sampleArray<TypeParam>({2, 3});
    const void* const place = addressOf(kept);
    MDArrayWrapper wrapper(copyOf(kept), 'F', Contents::Client);
    const std::byte* const mirror = isMirrorFilled ? wrapper.buf() : nullptr;
    EXPECT_EQ(referenceCount(kept), 2U);
    ASSERT_TRUE(wrapper.reshape(Numbers{3, 2}, 'F'));

    EXPECT_EQ(referenceCount(kept), 1U);
    EXPECT_EQ(kept.getDimensions(), (Dimensions{2, 3}));
    EXPECT_EQ(addressOf(kept), place);
    EXPECT_EQ(elementsOf(kept), samples<TypeParam>(6));
    EXPECT_NE(wrapper.array().impl(), kept.impl());
    EXPECT_NE(addressOfElements<TypeParam>(wrapper), place);
    EXPECT_EQ(wrapper.array().getDimensions(), (Dimensions{3, 2}));
    EXPECT_EQ(arrayElements<TypeParam>(wrapper), samples<TypeParam>(6));
    EXPECT_EQ(mirrorElements<TypeParam>(wrapper), samples<TypeParam>(6));
    if (isMirrorFilled) {
      EXPECT_EQ(wrapper.buf(), mirror);
    }
  }
}

// --- Through views

TYPED_SUITE(ReshapeView, WritableTypes, TypeWords);

TYPED_CASE(ReshapeView, WritesReachArrayAndMirrorOfTheNewShape) {
  for (const bool isMirrorFilled : {true, false}) {
    const ViewPointer array = makeArray<TypeParam>({2, 3});
    const MCppPyArray weak(*array, true);
    if (isMirrorFilled) {
      ASSERT_NE(array->wrapper()->buf(), nullptr);
    }
    ASSERT_TRUE(weak.wrapper()->reshape(Numbers{3, 2}, 'F'));
    EXPECT_EQ(numbersOf(array->wrapper()->shape()), (Numbers{3, 2}));
    ASSERT_TRUE(setElement<TypeParam>(*array, {2, 1}, otherThanSample<TypeParam>(5)));
    ASSERT_TRUE(setElement<TypeParam>(weak, {0, 1}, otherThanSample<TypeParam>(3)));
    std::vector<TypeParam> expected = samples<TypeParam>(6);
    expected[5] = otherThanSample<TypeParam>(5);
    expected[3] = otherThanSample<TypeParam>(3);
    EXPECT_EQ(storedElements<TypeParam>(*array), expected);
  }
}

TEST(ReshapeHandler, ReportsMissingArguments) {
  const PyRef none;
  const PyRef record = PyRef::steal(allocMCPyArray(typeObjectOf(SupportedArrayEnum::Double)));
  const PyRef arguments = evaluate("(3, 2)");
  for (const PyRef* self : {&none, &record}) {
    EXPECT_EQ(MCPyArray_Reshape(self->get(), arguments.get(), nullptr), nullptr);
    EXPECT_TRUE(raised(PyExc_RuntimeError, "object not initialized."));
  }
  const PyRef array = makeRecord(makeArray<double>({2, 3}));
  for (PyObject* missing : {static_cast<PyObject*>(nullptr), Py_None}) {
    EXPECT_EQ(MCPyArray_Reshape(array.get(), missing, nullptr), nullptr);
    EXPECT_TRUE(raised(PyExc_ValueError,
                       "reshape() must be passed a nonempty sequence of nonnegative integers."));
  }
  EXPECT_EQ(numbersOf(viewOf(array).wrapper()->shape()), (Numbers{2, 3}));
}

// --- Memory

TEST(ReshapeMemory, WithoutMemoryForACopyNothingChanges) {
  constexpr unsigned long bytes = 256UL << 20;
  const Array kept = ArrayFactory().createArray(ArrayType::INT8, {bytes, 1});
  const PyRef array = makeRecord(std::make_unique<MCppPyArray>(
      copyOf(kept), SupportedArrayEnum::Int8, false, false, Contents::Client));
  const WrapperAccess storage = viewOf(array).wrapper();
  const Numbers strides = stridesOf(*storage);
  const PyRef arguments = evaluate("(2**14, 2**14)");
  bool isReshaped = true;
  bool isQuiet = false;
  PyObject* result = array.get();
  bool isLimited = false;
  {
    const MemoryLimit limit;
    isLimited = limit.isSet();
    if (isLimited) {
      isReshaped = storage->reshape(Numbers{static_cast<std::int64_t>(bytes) / 2, 2}, 'F');
      isQuiet = PyErr_Occurred() == nullptr;
      result = MCPyArray_Reshape(array.get(), arguments.get(), nullptr);
    }
  }
  if (!isLimited) GTEST_SKIP() << "an emulator ignores the limit on memory";
  EXPECT_FALSE(isReshaped);
  EXPECT_TRUE(isQuiet) << "the caller reports";
  EXPECT_EQ(result, nullptr);
  EXPECT_TRUE(raised(PyExc_MemoryError,
                     "unable to allocate memory for array with number of elements = 268435456; "
                     "type = int8"));
  EXPECT_EQ(storage->array().impl(), kept.impl());
  EXPECT_EQ(referenceCount(kept), 2U);
  EXPECT_EQ(kept.getDimensions(), (Dimensions{bytes, 1}));
  EXPECT_EQ(numbersOf(storage->shape()), (Numbers{static_cast<std::int64_t>(bytes), 1}));
  EXPECT_EQ(storage->getNumberOfDimensions(), 2);
  EXPECT_EQ(stridesOf(*storage), strides);
  EXPECT_EQ(storage->getOrder(), 'C');
  EXPECT_TRUE(storage->hasMirror());
}

// --- Lengths and strides that went out in exports

// The addresses of numbers that went out, and the numbers that must stay readable there.
class OutgoingDescriptions {
 public:
  void take(MDArrayWrapper& wrapper) {
    const ArrayDescription& description = wrapper.exportedDescription();
    m_numbers[description.shape().data()] = numbersOf(wrapper.shape());
    m_numbers[description.strides().data()] = stridesOf(wrapper);
  }
  std::size_t size() const { return m_numbers.size(); }
  void check() const {
    for (const auto& [address, numbers] : m_numbers) {
      EXPECT_EQ(Numbers(address, address + numbers.size()), numbers);
    }
  }

 private:
  std::map<const std::int64_t*, Numbers> m_numbers;
};

TEST(KeptDescriptions, StayReadableThroughReshapes) {
  MDArrayWrapper wrapper(sampleArray<double>({2, 3}), 'C', Contents::Client);
  OutgoingDescriptions outgoing;
  outgoing.take(wrapper);
  const Numbers shapes[] = {{2, 3}, {3, 2}, {6}, {1, 6}, {1, 2, 3}, {6, 1}};
  std::size_t expected = 2;
  for (const Numbers& shape : shapes) {  // only the strides of the first one differ
    ASSERT_TRUE(wrapper.reshape(shape, 'F'));
    outgoing.check();
    outgoing.take(wrapper);
    expected += 2;
    EXPECT_EQ(outgoing.size(), expected) << "every shape has its own addresses";
  }
  outgoing.check();
}

TEST(KeptDescriptions, AreOneForEachShape) {
  MDArrayWrapper wrapper(sampleArray<double>({2, 6}), 'F', Contents::Client);
  OutgoingDescriptions outgoing;
  for (int round = 0; round < 100; ++round) {
    for (const Numbers& shape : {Numbers{3, 4}, Numbers{12, 1}, Numbers{2, 2, 3}, Numbers{2, 6}}) {
      outgoing.take(wrapper);
      outgoing.take(wrapper);
      ASSERT_TRUE(wrapper.reshape(shape, 'F'));
      ASSERT_EQ(numbersOf(wrapper.shape()), shape);
    }
  }
  EXPECT_EQ(outgoing.size(), 8U);
  outgoing.check();
}

TEST(KeptDescriptions, OfTheSameShapeStayInPlace) {
  MDArrayWrapper wrapper(sampleArray<double>({2, 3}), 'F', Contents::Client);
  OutgoingDescriptions outgoing;
  outgoing.take(wrapper);
  const std::int64_t* const shape = wrapper.shape().data();
  const std::int64_t* const strides = wrapper.bytewiseStrides().data();
  for (int round = 0; round < 3; ++round) {
    ASSERT_TRUE(wrapper.reshape(Numbers{2, 3}, 'F'));
    EXPECT_EQ(wrapper.shape().data(), shape);
    EXPECT_EQ(wrapper.bytewiseStrides().data(), strides);
  }
  // They are still kept without another call of exportedDescription().
  ASSERT_TRUE(wrapper.reshape(Numbers{3, 2}, 'F'));
  outgoing.check();
  ASSERT_TRUE(wrapper.reshape(Numbers{2, 3}, 'F'));
  EXPECT_EQ(wrapper.shape().data(), shape);
}

TEST(KeptDescriptions, AreOnlyThoseThatWentOut) {
  MDArrayWrapper wrapper(sampleArray<double>({2, 3}), 'F', Contents::Client);
  OutgoingDescriptions outgoing;
  outgoing.take(wrapper);
  const auto reshapeOften = [&wrapper](int times) {
    for (int round = 0; round < times; ++round) {
      for (const Numbers& shape : {Numbers{3, 2}, Numbers{6}, Numbers{2, 3}}) {
        EXPECT_TRUE(wrapper.reshape(shape, 'F'));
      }
    }
  };
  reshapeOften(10);
  const std::size_t before = heapInUse();
  reshapeOften(1000);
  const std::size_t after = heapInUse();
  EXPECT_LT(after, before + 10000);
  outgoing.check();
}

TEST(KeptDescriptions, AreNoneWithoutExports) {
  MDArrayWrapper wrapper(ArrayFactory().createArray(ArrayType::DOUBLE, {0, 1}), 'F',
                         Contents::Client);
  const auto reshapeTo = [&wrapper](std::int64_t first, std::int64_t last) {
    for (std::int64_t rows = first; rows < last; ++rows)
      EXPECT_TRUE(wrapper.reshape(Numbers{rows, 0}, 'F'));
  };
  reshapeTo(1, 10);
  const std::size_t before = heapInUse();
  reshapeTo(10, 1000);
  const std::size_t after = heapInUse();
  EXPECT_LT(after, before + 10000);
}

}  // namespace
