// Construction that runs out of memory or of recursion levels, and null arguments.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "construct/constructor_entry.hpp"
#include "construct/element_store.hpp"
#include "construct/final_constructor_parser.hpp"
#include "construct/layout_conversion.hpp"
#include "exporter_testing.hpp"
#include "memory_limit.hpp"
#include "module/element_types.hpp"
#include "module/type_objects.hpp"
#include "python_testing.hpp"
#include "recursion_limit.hpp"

namespace {

using namespace python_testing;
using foundation::velmardata::Array;

// --- The store of elements

TEST(ElementStoreTest, ReservedBlockIsTakenForItsOwnNumberOnly) {
  for (const std::uint64_t count : {4U, 5U, 6U}) {
    SCOPED_TRACE(count);
    ElementStore<std::int32_t> store;
    ASSERT_TRUE(store.tryReserve(5));
    const std::int32_t* const reserved = store.data();
    const ElementBuffer<std::int32_t> block = store.tryTakeReserved(count);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(block.get() == reserved, count == 5);
    EXPECT_EQ(store.capacity(), count == 5 ? 0U : 5U);
    std::fill_n(block.get(), count, 7);
  }
}

TEST(ElementStoreTest, NoMemoryForABlockOfExactlyTheElements) {
  constexpr std::uint64_t count = 4'000'000;
  ElementStore<std::int64_t> store;
  ASSERT_TRUE(store.tryReserve(count + 1));
  std::fill_n(store.replace(count), count, 1);
  bool isLimited = false;
  bool isNull = false;
  {
    const MemoryLimit limit;
    isLimited = limit.isSet();
    if (isLimited) isNull = store.tryTake() == nullptr;
  }
  if (!isLimited) GTEST_SKIP() << "an emulator ignores the limit on memory";
  EXPECT_TRUE(isNull);
  EXPECT_EQ(store.size(), count);
  EXPECT_EQ(store.capacity(), 0U) << "the reserved block was freed";
}

// --- Flattening

TEST(FlatteningGuards, NoMemoryForMoreThanWasReserved) {
  const PyRef list = evaluate("[1.0] * 1500000");
  FinalConstructorParser<double> parser;
  ASSERT_TRUE(parser.flattenWithUnspecifiedDimensions(list.get(), true));
  bool isLimited = false;
  bool isFlattened = true;
  {
    const MemoryLimit limit;
    isLimited = limit.isSet();
    if (isLimited) isFlattened = parser.flattenWithUnspecifiedDimensions(list.get(), true);
  }
  if (!isLimited) GTEST_SKIP() << "an emulator ignores the limit on memory";
  EXPECT_FALSE(isFlattened);
  EXPECT_TRUE(raised(PyExc_MemoryError,
                     "unable to allocate memory for array with number of elements = 3000001; "
                     "type = double"));
  EXPECT_EQ(parser.getNumberOfFlattenedElements(), 1500000);
}

// --- The constructor

TEST(ConstructorGuards, NullInPlaceOfTheArguments) {
  PyTypeObject* const type = typeObjectOf(SupportedArrayEnum::Double);
  EXPECT_EQ(MCPyArray_New<double>(type, nullptr, nullptr), nullptr);
  EXPECT_TRUE(raisedOwn(PyExc_SystemError));
}

// --- Reordering

TEST(Reordering, NeedsNoLevelsForAListOfElements) {
  const std::vector<std::int16_t> source(1024, 3);
  for (const Numbers& dimensions : {Numbers(10, 2), Numbers{64, 2, 2, 2, 2}}) {
    SCOPED_TRACE(testing::PrintToString(dimensions));
    std::optional<Array> array;
    {
      const RecursionLimit limit(0);
      if (!limit.isSet()) GTEST_SKIP() << "this interpreter lets a million levels through";
      array = convertRowMajorBufferToColumnMajor(factsOf<std::int16_t>, source.data(), dimensions,
                                                 1024);
    }
    EXPECT_TRUE(array.has_value());
    EXPECT_TRUE(raisedNothing());
  }
}

TEST(Reordering, NeedsNoLevelsForABuffer) {
  const SampleExporter<std::int16_t> exporter(Sizes(10, 2), 'C');
  ConstructorArguments arguments;
  arguments.initializer = PyRef::borrow(exporter.object.get());
  FinalConstructorParser<std::int16_t> parser;
  {
    const RecursionLimit limit(0);
    if (!limit.isSet()) GTEST_SKIP() << "this interpreter lets a million levels through";
    EXPECT_NE(parser.processConstructorArgsAndKwargs(arguments), nullptr);
  }
  EXPECT_TRUE(raisedNothing());
  EXPECT_EQ(exporter.exports.released, exporter.exports.obtained);
}

}  // namespace
