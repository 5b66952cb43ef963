// Bodies of the arithmetic on dimensions.
#include "module/dimensions.hpp"

#include <algorithm>

std::optional<std::uint64_t> exactProduct(std::span<const std::int64_t> dimensions) {
  // The other lengths may overflow before a zero is met.
  if (std::find(dimensions.begin(), dimensions.end(), 0) != dimensions.end()) return 0;
  std::uint64_t product = 1;
  for (const std::int64_t dimension : dimensions) {
    if (__builtin_mul_overflow(product, static_cast<std::uint64_t>(dimension), &product)) {
      return std::nullopt;
    }
  }
  return product;
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
