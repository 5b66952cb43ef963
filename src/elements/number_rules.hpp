// Conversion between numbers of C++ types, by the rules that hold for elements.
#pragma once

#include <bit>
#include <cstdint>
#include <limits>
#include <type_traits>

namespace number_rules {

// Rounds to nearest. Deliberate: everything outside the range of float, on either side, becomes
// positive infinity, which is the one value that programs test for. NaN keeps its sign and the bits
// of its payload that fit, and becomes quiet.
constexpr float narrow(double value) {
  constexpr double largest = std::numeric_limits<float>::max();
  constexpr double infinity = std::numeric_limits<double>::infinity();
  // One comparison and no branch, so that loops become short vectors. std::abs is not constexpr.
  return static_cast<float>(__builtin_fabs(value) > largest ? infinity : value);
}

// The float that a double has become on the way back: a signaling NaN is quiet then. On bits,
// because compilers take the way there and back for no change at all.
constexpr float quiet(float value) {
  constexpr std::uint32_t sign = 0x80000000;
  constexpr std::uint32_t infinity = 0x7f800000;
  constexpr std::uint32_t quietBit = 0x00400000;
  auto bits = std::bit_cast<std::uint32_t>(value);
  bits |= (bits & ~sign) > infinity ? quietBit : 0;
  return std::bit_cast<float>(bits);
}

// The same with narrow() as the way back: negative infinity becomes positive as well.
constexpr float throughDouble(float value) {
  constexpr std::uint32_t infinity = 0x7f800000;
  constexpr std::uint32_t negativeInfinity = 0xff800000;
  const auto bits = std::bit_cast<std::uint32_t>(value);
  return quiet(std::bit_cast<float>(bits == negativeInfinity ? infinity : bits));
}

// The result of truncating NaN, which would otherwise depend on the processor. An integer cannot
// have three bytes, so no test detects a change of `>= 4` to `>= 3`.
template <class To>
constexpr To truncatedNaN() {
  if constexpr (std::is_same_v<To, std::uint64_t>) {
    return To{1} << 63;
  } else if constexpr (sizeof(To) >= 4 && std::is_signed_v<To>) {
    return std::numeric_limits<To>::min();
  } else {
    return 0;
  }
}

// Whether the integer type To holds the value truncated toward zero. The test is on the value
// before truncation: -128.9 fits a signed 8-bit integer. Deliberate: -2^63 does not fit a signed
// 64-bit integer, because its bound is exclusive and no double lies just below it. NaN fits.
template <class To, class From>
constexpr bool fits(From value) {
  using Limits = std::numeric_limits<To>;
  if constexpr (std::is_floating_point_v<From>) {
    constexpr double below = static_cast<double>(Limits::min()) - 1.0;
    constexpr double above = static_cast<double>(Limits::max()) + 1.0;
    return !(value <= below || value >= above);
  } else if constexpr (std::is_signed_v<From> == std::is_signed_v<To>) {
    return value >= Limits::min() && value <= Limits::max();
  } else if constexpr (std::is_signed_v<From>) {
    return value >= 0 && static_cast<std::make_unsigned_t<From>>(value) <= Limits::max();
  } else {
    return value <= static_cast<std::make_unsigned_t<To>>(Limits::max());
  }
}

// The value truncated toward zero. It must fit.
template <class To, class From>
constexpr To truncate(From value) {
  if constexpr (std::is_floating_point_v<From>) {
    if (value != value) return truncatedNaN<To>();
  }
  return static_cast<To>(value);
}

}  // namespace number_rules
