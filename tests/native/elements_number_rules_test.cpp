// The rules by which one number becomes another: bounds, truncation, rounding to single, NaN.
#include "elements/number_rules.hpp"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>

namespace {

using number_rules::fits;
using number_rules::narrow;
using number_rules::truncate;

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr float floatInfinity = std::numeric_limits<float>::infinity();
constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();

// --- double to integers

// The first value that is refused on each side, and what NaN becomes.
template <class To>
struct Bounds {
  const char* type;
  double tooLow;
  double tooHigh;
  To ofNaN;
};

template <class To>
void expectBounds(const Bounds<To>& bounds) {
  SCOPED_TRACE(bounds.type);
  for (const double refused :
       {bounds.tooLow, bounds.tooHigh, infinity, -infinity, 1e300, -1e300,
        std::nextafter(bounds.tooLow, -infinity), std::nextafter(bounds.tooHigh, infinity)}) {
    EXPECT_FALSE(fits<To>(refused)) << refused;
  }
  const double lowest = std::nextafter(bounds.tooLow, 0.0);
  const double highest = std::nextafter(bounds.tooHigh, 0.0);
  for (const double accepted : {lowest, highest, 0.0, -0.0, 0.9, -0.9, 1.0, 100.7}) {
    EXPECT_TRUE(fits<To>(accepted)) << accepted;
    EXPECT_EQ(truncate<To>(accepted), static_cast<To>(std::trunc(accepted))) << accepted;
  }
  EXPECT_TRUE(fits<To>(notANumber));
  EXPECT_EQ(truncate<To>(notANumber), bounds.ofNaN);
  EXPECT_EQ(truncate<To>(-notANumber), bounds.ofNaN);
}

TEST(NumberRules, BoundsOfDoubles) {
  expectBounds<std::int8_t>({"int8", -129.0, 128.0, 0});
  expectBounds<std::uint8_t>({"uint8", -1.0, 256.0, 0});
  expectBounds<std::int16_t>({"int16", -32769.0, 32768.0, 0});
  expectBounds<std::uint16_t>({"uint16", -1.0, 65536.0, 0});
  expectBounds<std::int32_t>(
      {"int32", -2147483649.0, 2147483648.0, std::numeric_limits<std::int32_t>::min()});
  expectBounds<std::uint32_t>({"uint32", -1.0, 4294967296.0, 0});
  // Deliberate: the lowest value of this type is refused.
  expectBounds<std::int64_t>({"int64", -9223372036854775808.0, 9223372036854775808.0,
                              std::numeric_limits<std::int64_t>::min()});
  expectBounds<std::uint64_t>({"uint64", -1.0, 18446744073709551616.0, std::uint64_t{1} << 63});
}

TEST(NumberRules, TruncationIsTowardZero) {
  EXPECT_EQ(truncate<std::int8_t>(-128.9), -128);
  EXPECT_EQ(truncate<std::int8_t>(127.9), 127);
  EXPECT_EQ(truncate<std::uint8_t>(-0.5), 0);
  EXPECT_EQ(truncate<std::uint8_t>(255.99), 255);
  EXPECT_EQ(truncate<std::int64_t>(-0x1.fffffffffffffp62), -0x7ffffffffffffc00);
  EXPECT_EQ(truncate<std::uint64_t>(0x1.fffffffffffffp63), 0xfffffffffffff800U);
}

// --- Integers to integers

template <class From, class To>
struct IntegerBounds {
  const char* type;
  From lowest;  // the lowest and the highest that fit
  From highest;
};

template <class From, class To>
void expectIntegerBounds(const IntegerBounds<From, To>& bounds) {
  SCOPED_TRACE(bounds.type);
  for (const From accepted : {bounds.lowest, bounds.highest, From{0}, From{1}}) {
    EXPECT_TRUE(fits<To>(accepted)) << accepted;
    EXPECT_EQ(static_cast<From>(truncate<To>(accepted)), accepted);
  }
  if (bounds.lowest != std::numeric_limits<From>::min()) {
    EXPECT_FALSE(fits<To>(static_cast<From>(bounds.lowest - 1)));
    EXPECT_FALSE(fits<To>(std::numeric_limits<From>::min()));
  }
  if (bounds.highest != std::numeric_limits<From>::max()) {
    EXPECT_FALSE(fits<To>(static_cast<From>(bounds.highest + 1)));
    EXPECT_FALSE(fits<To>(std::numeric_limits<From>::max()));
  }
}

TEST(NumberRules, BoundsOfIntegers) {
  using Signed = long long;
  using Unsigned = unsigned long long;
  constexpr Signed least = std::numeric_limits<Signed>::min();
  constexpr Signed most = std::numeric_limits<Signed>::max();
  expectIntegerBounds<Signed, std::int8_t>({"int8", -128, 127});
  expectIntegerBounds<Unsigned, std::uint8_t>({"uint8", 0, 255});
  expectIntegerBounds<Signed, std::int16_t>({"int16", -32768, 32767});
  expectIntegerBounds<Unsigned, std::uint16_t>({"uint16", 0, 65535});
  expectIntegerBounds<Signed, std::int32_t>({"int32", -2147483648LL, 2147483647});
  expectIntegerBounds<Unsigned, std::uint32_t>({"uint32", 0, 4294967295});
  expectIntegerBounds<Unsigned, char16_t>({"char16_t", 0, 65535});
  expectIntegerBounds<Signed, std::int64_t>({"int64", least, most});
  expectIntegerBounds<Unsigned, std::uint64_t>({"uint64", 0, ~Unsigned{0}});
  // From a sign to none, and back.
  expectIntegerBounds<Signed, std::uint8_t>({"signed to uint8", 0, 255});
  expectIntegerBounds<Signed, std::uint32_t>({"signed to uint32", 0, 4294967295});
  expectIntegerBounds<Signed, std::uint64_t>({"signed to uint64", 0, most});
  expectIntegerBounds<Unsigned, std::int8_t>({"unsigned to int8", 0, 127});
  expectIntegerBounds<Unsigned, std::int32_t>({"unsigned to int32", 0, 2147483647});
  expectIntegerBounds<Unsigned, std::int64_t>({"unsigned to int64", 0, Unsigned{most}});
  expectIntegerBounds<std::int8_t, std::uint64_t>({"int8 to uint64", 0, 127});
  expectIntegerBounds<std::int8_t, std::uint8_t>({"int8 to uint8", 0, 127});
  expectIntegerBounds<std::uint8_t, std::int8_t>({"uint8 to int8", 0, 127});
  expectIntegerBounds<std::uint8_t, std::int64_t>({"uint8 to int64", 0, 255});
}

// --- double to float

TEST(NumberRules, NarrowRoundsInsideTheRangeOfFloat) {
  constexpr double largest = std::numeric_limits<float>::max();
  constexpr float least = std::numeric_limits<float>::denorm_min();
  const struct {
    double value;
    float expected;
  } rows[] = {
      {0.0, 0.0F},
      {1.5, 1.5F},
      {-1.5, -1.5F},
      {0.1, 0.1F},
      {largest, std::numeric_limits<float>::max()},
      {-largest, -std::numeric_limits<float>::max()},
      {std::nextafter(largest, 0.0), std::numeric_limits<float>::max()},
      {16777217.0, 16777216.0F},  // ties to even
      {16777219.0, 16777220.0F},
      {least, least},
      {least * 0.5, 0.0F},
      {least * 0.75, least},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(narrow(row.value), row.expected) << row.value;
    EXPECT_EQ(narrow(-row.value), -row.expected) << -row.value;
  }
  EXPECT_TRUE(std::signbit(narrow(-0.0)));
  EXPECT_FALSE(std::signbit(narrow(0.0)));
}

// Deliberate: on the negative side too. A C cast would round the first row down.
TEST(NumberRules, NarrowMakesEverythingElsePositiveInfinity) {
  constexpr double largest = std::numeric_limits<float>::max();
  for (const double value : {std::nextafter(largest, infinity), 3.5e38, 1e300,
                             std::numeric_limits<double>::max(), infinity}) {
    EXPECT_EQ(narrow(value), floatInfinity) << value;
    EXPECT_EQ(narrow(-value), floatInfinity) << -value;
  }
}

TEST(NumberRules, NarrowKeepsSignAndPayloadOfNaN) {
  const struct {
    std::uint64_t value;
    std::uint32_t expected;
  } rows[] = {
      {0x7ff8000000000000, 0x7fc00000}, {0xfff8000000000000, 0xffc00000},
      {0x7ff8000020000000, 0x7fc00001}, {0xfff8000020000000, 0xffc00001},
      {0x7fffffffffffffff, 0x7fffffff}, {0xffffffffe0000000, 0xffffffff},
      {0x7ff800001fffffff, 0x7fc00000},  // bits that do not fit
      {0x7ffabcdee0000000, 0x7fd5e6f7},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(std::bit_cast<std::uint32_t>(narrow(std::bit_cast<double>(row.value))), row.expected)
        << std::hex << row.value;
  }
}

TEST(NumberRules, ThroughDoubleOnlyInfinityAndSignalingNaNChange) {
  const struct {
    std::uint32_t value;
    std::uint32_t expected;
  } rows[] = {
      {0x00000000, 0x00000000}, {0x80000000, 0x80000000},  // zeros
      {0x00000001, 0x00000001}, {0x80000001, 0x80000001},  // the smallest
      {0x3f800000, 0x3f800000}, {0xbf800000, 0xbf800000},
      {0x7f7fffff, 0x7f7fffff}, {0xff7fffff, 0xff7fffff},  // the largest
      {0x7f800000, 0x7f800000}, {0xff800000, 0x7f800000},  // infinities
      {0x7fc00000, 0x7fc00000}, {0xffc12345, 0xffc12345},  // quiet NaN
      {0x7f800001, 0x7fc00001}, {0xffa12345, 0xffe12345},  // signaling NaN
  };
  for (const auto& row : rows) {
    const auto value = std::bit_cast<float>(row.value);
    EXPECT_EQ(std::bit_cast<std::uint32_t>(number_rules::throughDouble(value)), row.expected)
        << std::hex << row.value;
  }
}

}  // namespace
