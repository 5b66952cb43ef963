// Arguments that no subscript makes: each is refused or has no positions.
#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <span>

#include "elements/traversal.hpp"
#include "indexing/run_writer.hpp"
#include "indexing/view_composition.hpp"
#include "python_testing.hpp"
#include "storage_testing.hpp"

namespace {

using namespace python_testing;

TEST(WriteGuards, RunWithoutAPosition) {
  MDArrayWrapper wrapper(velmardata_testing::sampleArray<double>({2, 3}), 'F', Contents::Client);
  const double element = 70;
  const RunResult result =
      storeAlong(wrapper, IndexChain(), Position(), std::span<const double>(&element, 1));
  EXPECT_EQ(result.status, WriteStatus::OutsideStorage);
  EXPECT_EQ(result.stored, 0);
  EXPECT_EQ(arrayElements<double>(wrapper), samples<double>(6));
}

// Contents that are shared stay shared when there is nothing to write.
TEST(WriteGuards, WritesOfNothing) {
  const auto array = velmardata_testing::sampleArray<double>({2, 3});
  MDArrayWrapper wrapper(velmardata_testing::copyOf(array), 'F', Contents::Client);
  const std::span<const double> nothing;
  const RunResult result = storeAlong(wrapper, IndexChain(), Position{0, 0}, nothing);
  EXPECT_EQ(result.status, WriteStatus::Stored);
  EXPECT_EQ(result.stored, 0);
  EXPECT_EQ(storeEach(wrapper, Position{0}, slice(0, 0, 1, 0), nothing), WriteStatus::Stored);
  EXPECT_EQ(wrapper.array().impl(), array.impl());
  EXPECT_EQ(arrayElements<double>(wrapper), samples<double>(6));
}

TEST(ItemGuards, StepOfZeroHasNoValues) {
  const SliceIndexItem down = {5, 2, 0, std::nullopt, true};
  EXPECT_EQ(down.numberOfValues(), 0);
  const SliceIndexItem up = {2, 5, 0, std::nullopt, true};
  EXPECT_EQ(up.numberOfValues(), 0);
}

TEST(TraversalGuards, DimensionBehindTheShapeEndsAtZero) {
  constexpr std::int64_t shape[] = {4, 5};
  EXPECT_EQ(getStopFromShapeDimsAndRestrictingIndices(1, shape, IndexChain()), 5);
  EXPECT_EQ(getStopFromShapeDimsAndRestrictingIndices(2, shape, IndexChain()), 0);
}

TEST(CompositionGuards, SumStopsAtTheLowerEnd) {
  SliceIndexItem item = slice(0, 1, 1, 1);
  getReplacementIndexForSliceAndSlice(slice(-10, -20, -largest, 1), item);
  EXPECT_EQ(describe(item), "-10:-9223372036854775807:-9223372036854775807/1");
}

TEST(CompositionGuards, IntegerBelowZero) {
  IntegerIndexItem item{-1, false};
  EXPECT_FALSE(getReplacementIndexForSliceAndInt(slice(0, 3, 1, 3), item));
  EXPECT_TRUE(raised(PyExc_RuntimeError, "unable to index into slice."));
  EXPECT_EQ(describe(item), "-1?");
}

}  // namespace
