// Arithmetic on the lengths of dimensions: products, and the form that every shape is brought into.
#pragma once

#include <boost/container/small_vector.hpp>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

// Lengths of dimensions. Up to four need no heap block.
using Lengths = boost::container::small_vector<std::int64_t, 4>;
inline std::span<const std::int64_t> spanOf(const Lengths& lengths) {
  return {lengths.data(), lengths.size()};
}

// No length is negative. An empty list has the product 1.

// The true product; empty when it does not fit 64 bits. Zero as soon as one length is zero.
std::optional<std::uint64_t> exactProduct(std::span<const std::int64_t> dimensions);

// The product modulo 2^64.
std::uint64_t wrappedProduct(std::span<const std::int64_t> dimensions);

// How many dimensions are left when trailing ones behind the second are dropped.
std::size_t countWithoutTrailingOnes(std::span<const std::int64_t> dimensions);

// Whether row-major and column-major order are the same: at most one length differs from 1.
bool isSameInBothOrders(std::span<const std::int64_t> dimensions);

// "2, 3" for 2 and 3.
std::string getDimensionsAsStdString(std::span<const std::int64_t> dimensions);

template <class Dimensions>
void dropTrailingOnes(Dimensions& dimensions) {
  dimensions.resize(countWithoutTrailingOnes({dimensions.data(), dimensions.size()}));
}

// A single length n becomes 1 and n.
template <class Dimensions>
void makeTwoDimensional(Dimensions& dimensions) {
  if (dimensions.size() == 1) dimensions.insert(dimensions.begin(), 1);
}
