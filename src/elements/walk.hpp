// Walks along two boxes at once, plane by plane.
#pragma once

#include <algorithm>
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

// Tells the processor that so many bytes will be needed soon. Which lines are fetched affects only
// the speed, so no test detects a change of `0`, `<`, `64` or `memory + k`.
template <std::int64_t bytes>
void fetch(const std::byte* memory) {
  for (std::int64_t k = 0; k < bytes; k += 64) __builtin_prefetch(memory + k);
}

// Calls row(a, b, count) for each row of a plane, in pieces of at most `piece` positions, until one
// returns false, which is then the result. For contiguous elements of the sizes denseA and denseB
// it fetches the memory of later pieces, because the processor alone does not look as far ahead.
template <std::int64_t piece, std::int64_t denseA = 0, std::int64_t denseB = 0, class A, class B,
          class Row>
bool walkRows(A* a, B* b, const Plane& plane, Row row) {
  constexpr std::int64_t ahead = 4 * piece;  // For speed only, so no test detects a change.
  for (std::int64_t k = 0; k < plane.outerCount; ++k) {
    for (std::int64_t done = 0; done < plane.innerCount; done += piece) {
      A* x = a + done * plane.innerStrideA;
      B* y = b + done * plane.innerStrideB;
      const std::int64_t left = plane.innerCount - done;
      // What is fetched affects only the speed, so no test detects a change of the condition,
      // `>=` or `+`.
      if (left >= ahead + piece) {
        fetch<piece * denseA>(x + ahead * denseA);
        fetch<piece * denseB>(y + ahead * denseB);
      }
      if (!row(x, y, std::min(piece, left))) return false;
    }
    a += plane.outerStrideA;
    b += plane.outerStrideB;
  }
  return true;
}
