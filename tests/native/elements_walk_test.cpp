// Walks along two boxes: the plan, the planes, and the places that they reach.
#include "module/python.hpp"

#include "elements/walk.hpp"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <utility>

#include "python_testing.hpp"

namespace {

using namespace python_testing;

Lanes lanesOf(const Numbers& counts, const Numbers& strides) {
  Lanes lanes;
  for (std::size_t k = 0; k < counts.size(); ++k) lanes.push_back({counts[k], strides[k]});
  return lanes;
}

// "count:strideA/strideB" for each pair.
std::string describePlan(const WalkPlan& plan) {
  std::string text;
  for (const WalkPlan::Pair& pair : plan.pairs) {
    if (!text.empty()) text += ' ';
    text += std::to_string(pair.count) + ":" + std::to_string(pair.strideA) + "/" +
            std::to_string(pair.strideB);
  }
  return text;
}

struct PlanRow {
  const char* label;
  Numbers counts;
  Numbers a;
  Numbers b;
  const char* expected;
};
const PlanRow planRows[] = {
    {"no lanes", {}, {}, {}, "1:0/0 1:0/0"},
    {"one element", {1}, {8}, {4}, "1:0/0 1:0/0"},
    {"one lane", {5}, {8}, {4}, "5:8/4 1:0/0"},
    {"both dense", {2, 3, 4}, {8, 16, 48}, {4, 8, 24}, "24:8/4 1:0/0"},
    {"transposed", {2, 3}, {8, 16}, {12, 4}, "3:16/4 2:8/12"},
    {"lanes of one position are dropped",
     {1, 3, 1, 4},
     {7, 8, 9, 24},
     {1, 4, 2, 12},
     "12:8/4 1:0/0"},
    {"gap on side A", {2, 3}, {8, 24}, {4, 8}, "2:8/4 3:24/8"},
    {"gap on side B", {2, 3}, {8, 16}, {4, 12}, "2:8/4 3:16/12"},
    {"two of three are joined", {2, 3, 4}, {8, 16, 100}, {4, 8, 24}, "6:8/4 4:100/24"},
    {"the last two are joined", {2, 3, 4}, {8, 100, 300}, {4, 8, 24}, "2:8/4 12:100/8"},
    {"backwards on both sides", {3, 4}, {-8, -24}, {-4, -12}, "12:-8/-4 1:0/0"},
    {"backwards on one side", {3, 4}, {-8, 24}, {4, 12}, "3:-8/4 4:24/12"},
    {"densest of side B first, whatever its sign", {2, 3}, {1, 2}, {-100, 10}, "3:2/10 2:1/-100"},
    {"same strides keep their order", {2, 3}, {1, 4}, {0, 0}, "2:1/0 3:4/0"},
    {"joined by 0", {2, 3}, {0, 0}, {0, 0}, "6:0/0 1:0/0"},
};

TEST(WalkPlan, DropsSortsAndJoins) {
  for (const PlanRow& row : planRows) {
    SCOPED_TRACE(row.label);
    const WalkPlan plan = planWalk(lanesOf(row.counts, row.a), lanesOf(row.counts, row.b));
    EXPECT_EQ(describePlan(plan), row.expected);
  }
}

// The pairs of offsets that the walk reaches; each must come once.
using Places = std::multiset<std::pair<std::int64_t, std::int64_t>>;

Places walked(const Lanes& a, const Lanes& b) {
  Places places;
  // Offsets are counted from the middle of memory that is not touched.
  static std::byte middleA[200000];
  static std::byte middleB[200000];
  std::byte* const firstA = middleA + 100000;
  std::byte* const firstB = middleB + 100000;
  EXPECT_TRUE(walkPlanes(
      planWalk(a, b), firstA, firstB,
      [&](std::byte* placeA, std::byte* placeB, const Plane& plane) {
        for (std::int64_t j = 0; j < plane.outerCount; ++j) {
          for (std::int64_t i = 0; i < plane.innerCount; ++i) {
            places.emplace(placeA - firstA + i * plane.innerStrideA + j * plane.outerStrideA,
                           placeB - firstB + i * plane.innerStrideB + j * plane.outerStrideB);
          }
        }
        return true;
      }));
  return places;
}

// The same by counting through the positions.
Places counted(const Lanes& a, const Lanes& b) {
  Places places;
  Numbers position(a.size(), 0);
  for (;;) {
    std::int64_t offsetA = 0;
    std::int64_t offsetB = 0;
    for (std::size_t k = 0; k < a.size(); ++k) {
      offsetA += position[k] * a[k].stride;
      offsetB += position[k] * b[k].stride;
    }
    places.emplace(offsetA, offsetB);
    std::size_t k = 0;
    for (; k < a.size(); ++k) {
      if (++position[k] < a[k].count) break;
      position[k] = 0;
    }
    if (k == a.size()) return places;
  }
}

TEST(Planes, ReachEveryPlaceOnce) {
  for (const PlanRow& row : planRows) {
    SCOPED_TRACE(row.label);
    const Lanes a = lanesOf(row.counts, row.a);
    const Lanes b = lanesOf(row.counts, row.b);
    EXPECT_EQ(walked(a, b), counted(a, b));
  }
}

// Dense on side A; on side B every order, direction and gap, for up to six dimensions.
TEST(Planes, ReachEveryPlaceOnceInUpToSixDimensions) {
  const Numbers shapes[] = {
      {3},          {2, 3},          {3, 1, 2},       {2, 3, 2},          {2, 2, 3},
      {2, 3, 2, 2}, {2, 1, 3, 2, 2}, {2, 2, 2, 2, 2}, {2, 3, 2, 1, 2, 2}, {2, 2, 3, 2, 2, 2}};
  for (const Numbers& shape : shapes) {
    SCOPED_TRACE(testing::PrintToString(shape));
    for (int variant = 0; variant < 64; ++variant) {
      Numbers strides(shape.size());
      Numbers others(shape.size());
      std::int64_t stride = 1;
      std::int64_t other = 1;
      for (std::size_t k = 0; k < shape.size(); ++k) {
        const std::size_t place = (variant & 1) != 0 ? shape.size() - 1 - k : k;
        const bool isBackwards = (variant & 2) != 0 && k % 2 == static_cast<unsigned>(variant >> 5);
        strides[place] = isBackwards ? -stride : stride;
        stride *= shape[place] + ((variant & 4) != 0 && k == 1 ? 1 : 0);
        others[k] = (variant & 8) != 0 ? -other : other;
        other *= shape[k] + ((variant & 16) != 0 && k == 0 ? 2 : 0);
      }
      const Lanes a = lanesOf(shape, others);
      const Lanes b = lanesOf(shape, strides);
      ASSERT_EQ(walked(a, b), counted(a, b)) << "variant " << variant;
    }
  }
}

TEST(Planes, EndWithTheFirstThatIsRefused) {
  const Lanes a = lanesOf({2, 2, 2, 2}, {1, 20, 300, 4000});
  const Lanes b = lanesOf({2, 2, 2, 2}, {1, 30, 400, 5000});
  static std::byte memory[20000];
  for (int allowed = 0; allowed < 4; ++allowed) {
    int calls = 0;
    EXPECT_FALSE(
        walkPlanes(planWalk(a, b), memory, memory,
                   [&](std::byte*, std::byte*, const Plane&) { return calls++ < allowed; }));
    EXPECT_EQ(calls, allowed + 1);
  }
}

}  // namespace
