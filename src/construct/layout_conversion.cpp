// The plan of a reorder, and the instances of the layout conversion.
#include "construct/layout_conversion_impl.hpp"

std::optional<std::uint64_t> exactNumberOfElements(const std::vector<std::int64_t>& dimensions) {
  // A zero anywhere makes the product 0, whatever the others would have overflowed to.
  if (std::find(dimensions.begin(), dimensions.end(), 0) != dimensions.end()) return 0;
  std::uint64_t product = 1;
  for (std::int64_t dimension : dimensions) {
    if (__builtin_mul_overflow(product, static_cast<std::uint64_t>(dimension), &product)) {
      return std::nullopt;
    }
  }
  return product;
}

void computeRowMajorStrides(const std::vector<std::int64_t>& dimensions,
                            std::vector<std::int64_t>& strides) {
  std::int64_t stride = 1;
  for (std::size_t i = dimensions.size(); i-- > 0;) {
    strides[i] = stride;
    stride *= dimensions[i];
  }
}

namespace layout_conversion {

namespace {

std::int64_t product(const std::vector<std::int64_t>& dimensions) {
  std::int64_t result = 1;
  for (std::int64_t dimension : dimensions) result *= dimension;
  return result;
}

bool makeOffsets(const std::vector<std::int64_t>& extents, const std::vector<std::int64_t>& strides,
                 bool fromLastDimension, Offsets& offsets) {
  offsets.count = product(extents);
  if (extents.size() == 1) {
    offsets.stride = strides.front();
    return true;
  }
  std::vector<std::int64_t> counters(extents.size(), 0);
  offsets.list.reserve(static_cast<std::size_t>(offsets.count));
  return HybridTraversal::generateIndices<std::int64_t, decltype(nullptr)>(
      extents, strides, offsets.list, counters, fromLastDimension);
}

}  // namespace

bool isSameInBothOrders(const std::vector<std::int64_t>& dimensions) {
  return std::count_if(dimensions.begin(), dimensions.end(),
                       [](std::int64_t dimension) { return dimension != 1; }) < 2;
}

bool makeTransposition(const std::vector<std::int64_t>& dimensions, Transposition& result) {
  std::vector<std::int64_t> extents;  // without the dimensions of length 1
  std::copy_if(dimensions.begin(), dimensions.end(), std::back_inserter(extents),
               [](std::int64_t dimension) { return dimension != 1; });
  if (extents.size() < 2) extents.insert(extents.begin(), 2 - extents.size(), 1);
  std::vector<std::int64_t> sourceStrides(extents.size());
  computeRowMajorStrides(extents, sourceStrides);
  std::vector<std::int64_t> targetStrides(extents.size(), 1);
  for (std::size_t i = 1; i < extents.size(); ++i) {
    targetStrides[i] = targetStrides[i - 1] * extents[i - 1];
  }

  // Rows and columns of about the same number keep both lists short.
  const std::int64_t total = product(extents);
  std::size_t leading = 1;
  while (leading + 1 < extents.size() && targetStrides[leading] * targetStrides[leading] < total) {
    ++leading;
  }
  const auto split = static_cast<std::ptrdiff_t>(leading);
  const std::vector<std::int64_t> rowExtents(extents.begin(), extents.begin() + split);
  const std::vector<std::int64_t> rowStrides(sourceStrides.begin(), sourceStrides.begin() + split);
  const std::vector<std::int64_t> columnExtents(extents.begin() + split, extents.end());
  const std::vector<std::int64_t> columnStrides(targetStrides.begin() + split, targetStrides.end());
  return makeOffsets(rowExtents, rowStrides, true, result.rows) &&
         makeOffsets(columnExtents, columnStrides, false, result.columns);
}

}  // namespace layout_conversion

#define X(name, number, type)                                                                     \
  template std::optional<foundation::velmardata::Array> makeTypedArrayFromBuf<type>(              \
      ElementBuffer<type>&&, bool, foundation::velmardata::standalone::ClientArrayFactory&,       \
      const std::vector<std::int64_t>&, const std::vector<std::int64_t>&, std::int64_t);          \
  template std::optional<foundation::velmardata::Array> convertRowMajorBufferToColumnMajor<type>( \
      foundation::velmardata::standalone::ClientArrayFactory&, const type*,                       \
      const std::vector<std::int64_t>&, const std::vector<std::int64_t>&, std::int64_t);
VELMARDATA_FOR_EACH_ARRAY_TYPE(X)
#undef X
