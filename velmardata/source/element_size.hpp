// Element sizes, and products of dimensions and sizes that report overflow.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "velmardata/element_types.hpp"

namespace velmar::data::impl {

using foundation::velmardata::ArrayType;

// The size of one element in bytes; 0 for an unsupported type.
constexpr std::uint64_t elementSize(ArrayType type) noexcept {
  switch (type) {
#define X(name, number, type) \
  case ArrayType::name:       \
    return sizeof(type);
    VELMARDATA_FOR_EACH_ARRAY_TYPE(X)
#undef X
  }
  return 0;
}

// a * b; empty if the product does not fit 64 bits.
constexpr std::optional<std::uint64_t> multiply(std::uint64_t a, std::uint64_t b) noexcept {
  std::uint64_t product = 0;
  if (__builtin_mul_overflow(a, b, &product)) return std::nullopt;
  return product;
}

// The product of the dimensions; 1 without dimensions; empty if the product does not fit 64 bits.
// Looks for zeros first: a 0 makes the product 0 even if the other dimensions overflow.
constexpr std::optional<std::uint64_t> productOf(const std::vector<unsigned long>& dimensions) {
  for (const unsigned long dimension : dimensions) {
    if (dimension == 0) return 0;
  }
  std::optional<std::uint64_t> product = 1;
  for (const unsigned long dimension : dimensions) {
    product = multiply(*product, dimension);
    if (!product) return std::nullopt;
  }
  return product;
}

}  // namespace velmar::data::impl
