// Bodies of the arithmetic on dimensions.
#include "module/dimensions.hpp"

#include <algorithm>

std::optional<std::uint64_t> exactProduct(std::span<const std::int64_t> dimensions) {
  std::uint64_t product = 1;
  bool fits = true;
  for (const std::int64_t dimension : dimensions) {
    if (dimension == 0) return 0;  // also behind lengths whose product does not fit
    if (__builtin_mul_overflow(product, static_cast<std::uint64_t>(dimension), &product)) {
      fits = false;
    }
  }
  return fits ? std::optional(product) : std::nullopt;
}

std::uint64_t wrappedProduct(std::span<const std::int64_t> dimensions) {
  std::uint64_t product = 1;
  for (const std::int64_t dimension : dimensions) product *= static_cast<std::uint64_t>(dimension);
  return product;
}

std::size_t countWithoutTrailingOnes(std::span<const std::int64_t> dimensions) {
  std::size_t count = dimensions.size();
  while (count > 2 && dimensions[count - 1] == 1) --count;
  return count;
}

bool isSameInBothOrders(std::span<const std::int64_t> dimensions) {
  return std::count_if(dimensions.begin(), dimensions.end(),
                       [](std::int64_t dimension) { return dimension != 1; }) < 2;
}

std::string getDimensionsAsStdString(std::span<const std::int64_t> dimensions) {
  std::string text;
  for (const std::int64_t dimension : dimensions) {
    if (!text.empty()) text += ", ";
    text += std::to_string(dimension);
  }
  return text;
}
