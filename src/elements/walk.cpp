// The order of a walk.
#include "elements/walk.hpp"

#include <algorithm>
#include <cassert>
#include <cstdlib>

WalkPlan planWalk(const Lanes& a, const Lanes& b) {
  assert(a.size() == b.size());
  WalkPlan plan;
  auto& pairs = plan.pairs;
  for (std::size_t k = 0; k < a.size(); ++k) {
    assert(a[k].count == b[k].count);
    if (a[k].count != 1) pairs.push_back({a[k].count, a[k].stride, b[k].stride});
  }
  std::sort(pairs.begin(), pairs.end(),
            [](const auto& x, const auto& y) { return std::abs(x.strideB) < std::abs(y.strideB); });
  std::size_t last = 0;
  for (std::size_t k = 1; k < pairs.size(); ++k) {
    auto& inner = pairs[last];
    if (pairs[k].strideA == inner.strideA * inner.count &&
        pairs[k].strideB == inner.strideB * inner.count) {
      inner.count *= pairs[k].count;
    } else {
      pairs[++last] = pairs[k];
    }
  }
  if (!pairs.empty()) pairs.resize(last + 1);
  while (pairs.size() < 2) pairs.push_back({1, 0, 0});
  return plan;
}
