// Chains and items that no subscript makes: each is refused, or has no positions.
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <optional>
#include <vector>

#include "indexing/element_read.hpp"
#include "indexing/element_write_impl.hpp"
#include "indexing/run_writer_impl.hpp"
#include "indexing/traversal.hpp"
#include "python_testing.hpp"
#include "storage_testing.hpp"

namespace {

using namespace python_testing;

constexpr const char* notInSlice = "unable to index into slice.";

TEST(ReadGuards, SliceBeforeTheFinalOneHasItsSay) {
  const PyRef array = makeRecord(makeArray<double>({4, 5}));
  viewOf(array).getIndicesRef().emplace_back(slice(0, 1, 1, 1));
  viewOf(array).getIndicesRef().emplace_back(slice(0, 3, 1, 3));
  EXPECT_TRUE(PyRef::steal(MCPyArray_GetItem<double>(array.get(), 0)));
  EXPECT_TRUE(raisedNothing());
  EXPECT_FALSE(PyRef::steal(MCPyArray_GetItem<double>(array.get(), 2)));
  EXPECT_TRUE(raised(PyExc_RuntimeError, notInSlice));
}

// Deliberate: no error is set for a slice that does not know its length.
TEST(WriteGuards, RowsOfASliceWithoutALength) {
  const ViewPointer view = makeArray<double>({4, 5});
  view->getIndicesRef().emplace_back(SliceIndexItem{0, 3, 1, std::nullopt, true});
  SliceIndexItem item = slice(0, 1, 1, 1);
  const PyRef value = evaluate("[70.0] * 5");
  EXPECT_EQ(view->setMultipleElementsFromNonFinalSliceIndex<double>(item, value.get(), 4), -1);
  EXPECT_TRUE(raisedNothing());
  EXPECT_EQ(storedElements<double>(*view), samples<double>(20));
}

TEST(WriteGuards, ElementsOfASliceThatIsNotNormalised) {
  const ViewPointer view = makeArray<double>({1, 5});
  SliceIndexItem item{0, 2, 1, 2, false};
  const PyRef value = evaluate("[70.0, 80.0]");
  EXPECT_EQ(element_write::setViaSlice<double>(*view, item, value.get(), 5, true), -1);
  EXPECT_TRUE(raised(PyExc_RuntimeError, "unable to normalize index."));
  EXPECT_EQ(storedElements<double>(*view), samples<double>(5));
}

TEST(WriteGuards, RunWithoutAPosition) {
  MDArrayWrapper wrapper(velmardata_testing::sampleArray<double>({2, 3}), 'F');
  const double element = 70;
  const RunResult result = storeAlong(wrapper, IndexChain(), Position(), &element, 1);
  EXPECT_EQ(result.status, WriteStatus::OutsideStorage);
  EXPECT_EQ(result.stored, 0);
  EXPECT_EQ(arrayElements<double>(wrapper), samples<double>(6));
}

TEST(ItemGuards, StepOfZeroHasNoValues) {
  const SliceIndexItem down = {5, 2, 0, std::nullopt, true};
  EXPECT_EQ(down.numberOfValues(), 0);
  const SliceIndexItem up = {2, 5, 0, std::nullopt, true};
  EXPECT_EQ(up.numberOfValues(), 0);
}

TEST(TraversalGuards, DimensionBehindTheShapeEndsAtZero) {
  EXPECT_EQ(getStopFromShapeDimsAndRestrictingIndices(1, {4, 5}, IndexChain()), 5);
  EXPECT_EQ(getStopFromShapeDimsAndRestrictingIndices(2, {4, 5}, IndexChain()), 0);
}

TEST(CompositionGuards, SumStopsAtTheLowerEnd) {
  constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();
  const ViewPointer view = makeArray<double>({10, 1});
  view->getIndicesRef().emplace_back(slice(-10, -20, -largest, 1));
  SliceIndexItem item = slice(0, 1, 1, 1);
  EXPECT_TRUE(view->getReplacementIndexForSliceAndSlice(item, 10));
  EXPECT_EQ(describe(item), "-10:-9223372036854775807:-9223372036854775807/1");
}

TEST(CompositionGuards, IntegerBelowZero) {
  const ViewPointer view = makeArray<double>({10, 1});
  view->getIndicesRef().emplace_back(slice(0, 3, 1, 3));
  IntegerIndexItem item{-1, false};
  EXPECT_FALSE(view->getReplacementIndexForSliceAndInt(item, 10));
  EXPECT_TRUE(raised(PyExc_RuntimeError, notInSlice));
}

// The count goes up before the item is looked at, and stays when it is refused.
TEST(CompositionGuards, MoreIntegersCountedThanThereAre) {
  const ViewPointer view = makeArray<double>({10, 1});
  view->getIndicesRef().emplace_back(slice(0, 1, 1, 1));
  IntegerIndexItem item{5, false};
  EXPECT_FALSE(view->appendIndexItem(item));
  EXPECT_TRUE(raised(PyExc_RuntimeError, notInSlice));
  view->getIndicesRef().clear();
  bool success = true;
  EXPECT_TRUE(view->getIntegerIndicesSoFar(success).empty());
  EXPECT_FALSE(success);
  EXPECT_TRUE(raised(PyExc_RuntimeError, "slice index unexpectedly found."));
}

}  // namespace
