// How many bytes the elements of an array take.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "velmardata/element_types.hpp"

namespace velmar::data::impl {

using foundation::velmardata::ArrayType;

// The size of one element in bytes; 0 for a type that is not handled.
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

// a * b; nothing if that takes more than 64 bits.
constexpr std::optional<std::uint64_t> multiply(std::uint64_t a, std::uint64_t b) noexcept {
  std::uint64_t product = 0;
  if (__builtin_mul_overflow(a, b, &product)) return std::nullopt;
  return product;
}

// The product of the dimensions, 1 if there are none; nothing if it takes more than 64 bits. One 0
// makes it 0 however large the others are, so zeros are looked for first.
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
