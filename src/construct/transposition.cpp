// The plan of a transposition.
#include "construct/transposition.hpp"

#include <algorithm>
#include <cassert>
#include <iterator>

#include "module/dimensions.hpp"

void computeRowMajorStrides(std::span<const std::int64_t> dimensions,
                            std::span<std::int64_t> strides) {
  assert(strides.size() == dimensions.size());
  std::int64_t stride = 1;
  for (std::size_t i = dimensions.size(); i-- > 0;) {
    strides[i] = stride;
    stride *= dimensions[i];
  }
}

HybridTraversal::HybridTraversal(std::span<const std::int64_t> extents,
                                 std::span<const std::int64_t> strides, bool fromLastDimension)
    : m_isEmpty(extents.empty() || std::find(extents.begin(), extents.end(), 0) != extents.end()) {
  assert(strides.size() == extents.size());
  m_dimensions.reserve(extents.size());
  for (std::size_t i = 0; i < extents.size(); ++i) {
    m_dimensions.push_back({extents[i], strides[i], 0});
  }
  if (!fromLastDimension) std::reverse(m_dimensions.begin(), m_dimensions.end());
}

// False after the last position, and back at the first.
bool HybridTraversal::moveOn() {
  for (Dimension& dimension : m_dimensions) {
    m_sum += dimension.stride;
    if (++dimension.index < dimension.extent) return true;
    m_sum -= dimension.stride * dimension.extent;
    dimension.index = 0;
  }
  return false;
}

std::size_t HybridTraversal::generateIndices(std::span<std::int64_t> sums) {
  if (m_isEmpty) return 0;
  std::size_t count = 0;
  while (count < sums.size()) {
    sums[count++] = m_sum;
    if (!moveOn()) break;
  }
  return count;
}

namespace transposition {

namespace {

constexpr std::int64_t longestList = 4096;

}  // namespace

Offsets::Offsets(std::span<const std::int64_t> extents, std::span<const std::int64_t> strides,
                 bool fromLastDimension)
    : m_count(static_cast<std::int64_t>(wrappedProduct(extents))),
      m_stride(strides.front()),
      m_traversal(extents, strides, fromLastDimension) {
  // A list for one dimension would have the same offsets, so no test detects a change of the
  // condition to `true`.
  if (extents.size() > 1) m_list.resize(static_cast<std::size_t>(std::min(m_count, longestList)));
}

bool Offsets::findPiece() {
  m_first += m_size;
  if (m_first == m_count) {
    m_first = 0;
    m_size = 0;
    return false;
  }
  m_size =
      m_list.empty() ? m_count : static_cast<std::int64_t>(m_traversal.generateIndices(m_list));
  return true;
}

Transposition makeTransposition(std::span<const std::int64_t> dimensions) {
  Lengths extents;  // without the dimensions of length 1
  std::copy_if(dimensions.begin(), dimensions.end(), std::back_inserter(extents),
               [](std::int64_t dimension) { return dimension != 1; });
  // Two need no more, so no test detects a change of `extents.size() < 2` to `extents.size() <= 2`.
  if (extents.size() < 2) extents.insert(extents.begin(), 2 - extents.size(), 1);
  Lengths sourceStrides(extents.size());
  computeRowMajorStrides(spanOf(extents), {sourceStrides.data(), sourceStrides.size()});
  Lengths targetStrides(extents.size(), 1);
  for (std::size_t i = 1; i < extents.size(); ++i) {
    targetStrides[i] = targetStrides[i - 1] * extents[i - 1];
  }

  // About as many rows as columns keep both sides short.
  const auto total = static_cast<std::int64_t>(wrappedProduct(spanOf(extents)));
  std::size_t leading = 1;
  // The number of rows affects only the speed, so no test detects a change of `1` to `2`, of
  // `targetStrides[leading] * targetStrides[leading] < total` or of the condition.
  while (leading + 1 < extents.size() && targetStrides[leading] * targetStrides[leading] < total) {
    ++leading;
  }
  const auto rows = [&](const Lengths& numbers) { return spanOf(numbers).first(leading); };
  const auto columns = [&](const Lengths& numbers) { return spanOf(numbers).subspan(leading); };
  return {Offsets(rows(extents), rows(sourceStrides), true),
          Offsets(columns(extents), columns(targetStrides), false)};
}

}  // namespace transposition
