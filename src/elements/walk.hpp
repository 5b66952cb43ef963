// Walks along two boxes at once, plane by plane.
#pragma once

#include <cstddef>
#include <cstdint>

#include "elements/box.hpp"

// Two dimensions of both sides; strides in bytes. The inner one runs fastest. Counts are at
// least 1.
struct Plane {
  std::int64_t innerCount;
  std::int64_t outerCount;
  std::int64_t innerStrideA;
  std::int64_t innerStrideB;
  std::int64_t outerStrideA;
  std::int64_t outerStrideB;
};

// The lanes of both sides, brought into the order in which memory is walked best: lanes of one
// position are dropped, the densest of side B comes first, and lanes that are contiguous on both
// sides are joined, so that whole arrays end as one lane.
struct WalkPlan {
  struct Pair {
    std::int64_t count;
    std::int64_t strideA;
    std::int64_t strideB;
  };
  boost::container::small_vector<Pair, 4> pairs;  // at least two
};

// Both sides have the same counts.
WalkPlan planWalk(const Lanes& a, const Lanes& b);

// Calls kernel(a, b, plane) for each plane until one returns false, which is then the result.
// Allocates nothing for up to four lanes.
template <class A, class B, class Kernel>
bool walkPlanes(const WalkPlan& plan, A* a, B* b, Kernel kernel) {
  const auto& pairs = plan.pairs;
  const Plane plane = {pairs[0].count,   pairs[1].count,   pairs[0].strideA,
                       pairs[0].strideB, pairs[1].strideA, pairs[1].strideB};
  boost::container::small_vector<std::int64_t, 4> position(pairs.size(), 0);
  for (;;) {
    if (!kernel(a, b, plane)) return false;
    std::size_t k = 2;
    for (; k < pairs.size(); ++k) {
      a += pairs[k].strideA;
      b += pairs[k].strideB;
      if (++position[k] < pairs[k].count) break;
      a -= pairs[k].strideA * pairs[k].count;
      b -= pairs[k].strideB * pairs[k].count;
      position[k] = 0;
    }
    if (k >= pairs.size()) return true;
  }
}
