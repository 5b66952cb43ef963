// Element conversion: values and failures, bounds of the numeric conversions, texts.
#include "construct/element_conversion_impl.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "python_testing.hpp"

namespace {

using namespace python_testing;

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();

// "value", or the class and the text of the failure.
template <class T>
std::string stateOf(const ConversionResult<T>& result) {
  if (result.value && result.failure) return "both";
  if (result.value) return "value";
  if (!result.failure) return "neither";
  std::string text = result.failure->exceptionClass == PyExc_TypeError       ? "TypeError: "
                     : result.failure->exceptionClass == PyExc_OverflowError ? "OverflowError: "
                                                                             : "another class: ";
  text += result.failure->message;
  return text;
}

// --- Reading ints

struct LongRow {
  const char* expression;
  std::optional<long long> number;
  const char* state;
  std::optional<unsigned long long> unsignedNumber;
  const char* unsignedState;
};
constexpr const char* tooLarge = "OverflowError: Python int too large to convert to C long long";
constexpr LongRow longRows[] = {
    {"0", 0, "value", 0, "value"},
    {"5", 5, "value", 5, "value"},
    {"True", 1, "value", 1, "value"},
    {"type('Int', (int,), {})(7)", 7, "value", 7, "value"},
    {"2**63 - 1", 9223372036854775807, "value", 9223372036854775807U, "value"},
    {"-1", -1, "value", std::nullopt,
     "OverflowError: value (-1) cannot be stored in a variable of type some word."},
    {"-2**63", std::numeric_limits<long long>::min(), "value", std::nullopt,
     "OverflowError: value (-9223372036854775808) cannot be stored in a variable of type some "
     "word."},
    {"2**63", std::nullopt, tooLarge, 9223372036854775808U, "value"},
    {"2**64 - 1", std::nullopt, tooLarge, 18446744073709551615U, "value"},
    // Deliberate: the text names the signed type for unsigned types too.
    {"2**64", std::nullopt, tooLarge, std::nullopt, tooLarge},
    {"2**400", std::nullopt, tooLarge, std::nullopt, tooLarge},
    {"-2**63 - 1", std::nullopt, tooLarge, std::nullopt, tooLarge},
    {"-2**400", std::nullopt, tooLarge, std::nullopt, tooLarge},
    {"1.0", std::nullopt, "neither", std::nullopt, "neither"},
    {"1j", std::nullopt, "neither", std::nullopt, "neither"},
    {"None", std::nullopt, "neither", std::nullopt, "neither"},
    {"'1'", std::nullopt, "neither", std::nullopt, "neither"},
    {"type('Index', (), {'__index__': lambda self: 1})()", std::nullopt, "neither", std::nullopt,
     "neither"},
};

TEST(ReadInt, GivesAValueAFailureOrNeither) {
  for (const LongRow& row : longRows) {
    SCOPED_TRACE(row.expression);
    const PyRef object = evaluate(row.expression);
    const auto number = getLongLongFromPyObject(object.get());
    EXPECT_EQ(number.value, row.number);
    EXPECT_EQ(stateOf(number), row.state);
    const auto unsignedNumber = getUnsignedLongLongFromPyObject(object.get(), "some word");
    EXPECT_EQ(unsignedNumber.value, row.unsignedNumber);
    EXPECT_EQ(stateOf(unsignedNumber), row.unsignedState);
    EXPECT_TRUE(raisedNothing());
  }
}

// --- Numeric conversions

// The bounds of a conversion from double: the first value that is refused on each side, and the
// text of that value in the message. The next double toward zero is accepted.
template <class To>
struct DoubleBounds {
  const char* word;
  double tooLow;
  const char* tooLowText;
  double tooHigh;
  const char* tooHighText;
  To notANumberBecomes;
};

template <class To>
void expectBounds(const DoubleBounds<To>& bounds) {
  SCOPED_TRACE(bounds.word);
  const auto convert = [](double value, std::string& message) {
    return convertAndCheckForOverflow<double, To>(value, message);
  };
  const std::string tail =
      std::string(") cannot be stored in a variable of type ") + bounds.word + ".";
  const std::pair<double, const char*> refused[] = {
      {bounds.tooLow, bounds.tooLowText},
      {bounds.tooHigh, bounds.tooHighText},
      {infinity, "inf"},
      {-infinity, "-inf"},
      {1e20, "1e+20"},
      {-1e300, "-1e+300"},
  };
  for (const auto& [value, text] : refused) {
    std::string message = "before ";
    EXPECT_EQ(convert(value, message), std::nullopt) << text;
    EXPECT_EQ(message, std::string("before value (") + text + tail) << "is appended";
  }
  std::string message;
  const double lowest = std::nextafter(bounds.tooLow, 0.0);
  const double highest = std::nextafter(bounds.tooHigh, 0.0);
  EXPECT_EQ(convert(lowest, message), static_cast<To>(std::trunc(lowest)));
  EXPECT_EQ(convert(highest, message), static_cast<To>(std::trunc(highest)));
  EXPECT_EQ(convert(3.99, message), To{3});
  EXPECT_EQ(convert(0.5, message), To{0});
  EXPECT_EQ(convert(-0.5, message), To{0});
  EXPECT_EQ(convert(-0.0, message), To{0});
  EXPECT_EQ(convert(notANumber, message), bounds.notANumberBecomes);
  EXPECT_EQ(convert(-notANumber, message), bounds.notANumberBecomes);
  EXPECT_EQ(message, "");
}

TEST(NumericConversion, FromDoubleTruncatesWithinItsBounds) {
  expectBounds<std::int8_t>({"int8", -129.0, "-129", 128.0, "128", 0});
  expectBounds<std::uint8_t>({"uint8", -1.0, "-1", 256.0, "256", 0});
  expectBounds<std::int16_t>({"int16", -32769.0, "-32769", 32768.0, "32768", 0});
  expectBounds<std::uint16_t>({"uint16", -1.0, "-1", 65536.0, "65536", 0});
  expectBounds<std::int32_t>({"int32", -2147483649.0, "-2.14748e+09", 2147483648.0, "2.14748e+09",
                              std::numeric_limits<std::int32_t>::min()});
  expectBounds<std::uint32_t>({"uint32", -1.0, "-1", 4294967296.0, "4.29497e+09", 0});
  // One below the lowest is not a double, so the lowest itself is refused.
  expectBounds<std::int64_t>({"int64", -9223372036854775808.0, "-9.22337e+18",
                              9223372036854775808.0, "9.22337e+18",
                              std::numeric_limits<std::int64_t>::min()});
  expectBounds<std::uint64_t>(
      {"uint64", -1.0, "-1", 18446744073709551616.0, "1.84467e+19", std::uint64_t{1} << 63});
}

TEST(NumericConversion, BoundsLieOneBelowTheLowestInteger) {
  std::string message;
  const auto lowest8 = convertAndCheckForOverflow<double, std::int8_t>(-128.9, message);
  const auto highest8 = convertAndCheckForOverflow<double, std::int8_t>(127.9, message);
  const auto lowest32 = convertAndCheckForOverflow<double, std::int32_t>(-2147483648.5, message);
  const auto none = convertAndCheckForOverflow<double, std::uint16_t>(-0.999, message);
  EXPECT_EQ(lowest8, std::int8_t{-128});
  EXPECT_EQ(highest8, std::int8_t{127});
  EXPECT_EQ(lowest32, std::numeric_limits<std::int32_t>::min());
  EXPECT_EQ(none, std::uint16_t{0});
  EXPECT_EQ(message, "");
}

template <class From, class To>
struct IntegerBounds {
  const char* word;
  To lowest;
  To highest;
};

template <class From, class To>
void expectBounds(const IntegerBounds<From, To>& bounds) {
  SCOPED_TRACE(bounds.word);
  const auto convert = [](From value, std::string& message) {
    return convertAndCheckForOverflow<From, To>(value, message);
  };
  std::vector<From> refused = {static_cast<From>(From{bounds.highest} + 1),
                               std::numeric_limits<From>::max()};
  if (std::is_signed_v<From>) {
    refused.push_back(static_cast<From>(From{bounds.lowest} - 1));
    refused.push_back(std::numeric_limits<From>::min());
  }
  for (const From value : refused) {
    std::string message;
    EXPECT_EQ(convert(value, message), std::nullopt) << value;
    EXPECT_EQ(message, "value (" + std::to_string(value) +
                           ") cannot be stored in a variable of type " + bounds.word + ".");
  }
  std::string message;
  for (const To value : {bounds.lowest, To{0}, To{1}, bounds.highest}) {
    EXPECT_EQ(convert(From{value}, message), value);
  }
  EXPECT_EQ(message, "");
}

TEST(NumericConversion, FromIntegersHasTheBoundsOfTheType) {
  expectBounds<long long, std::int8_t>({"int8", -128, 127});
  expectBounds<unsigned long long, std::uint8_t>({"uint8", 0, 255});
  expectBounds<long long, std::int16_t>({"int16", -32768, 32767});
  expectBounds<unsigned long long, std::uint16_t>({"uint16", 0, 65535});
  expectBounds<long long, std::int32_t>({"int32", -2147483647 - 1, 2147483647});
  expectBounds<unsigned long long, std::uint32_t>({"uint32", 0, 4294967295});
  // Deliberate: messages about characters say "double".
  expectBounds<unsigned long long, char16_t>({"double", 0, 65535});
}

TEST(DoubleToFloat, OutsideTheRangeIsPositiveInfinityOnEitherSide) {
  constexpr double largest = 3.4028234663852886e+38;
  constexpr float floatInfinity = std::numeric_limits<float>::infinity();
  const std::pair<double, float> rows[] = {
      {0.0, 0.0F},
      {0.1, 0.1F},
      {-2.5, -2.5F},
      {16777217.0, 16777216.0F},
      {1e-320, 0.0F},
      {1e-45, std::numeric_limits<float>::denorm_min()},
      {largest, std::numeric_limits<float>::max()},
      {-largest, std::numeric_limits<float>::lowest()},
      {std::nextafter(largest, infinity), floatInfinity},
      {std::nextafter(-largest, -infinity), floatInfinity},
      {1e300, floatInfinity},
      {-1e300, floatInfinity},
      {infinity, floatInfinity},
      {-infinity, floatInfinity},
  };
  for (const auto& [value, expected] : rows) EXPECT_EQ(convertDoubleToFloat(value), expected);
  EXPECT_TRUE(std::isnan(convertDoubleToFloat(notANumber)));
  EXPECT_TRUE(std::signbit(convertDoubleToFloat(-0.0)));
}

// --- Elements

TEST(Refusal, DependsOnTheObject) {
  const std::pair<const char*, const char*> rows[] = {
      {"'text'", "value is not numeric."},
      {"type('Text', (str,), {})('x')", "value is not numeric."},
      {"b'bytes'", "sequence passed when scalar was expected."},
      {"[1]", "sequence passed when scalar was expected."},
      {"()", "sequence passed when scalar was expected."},
      {"range(3)", "sequence passed when scalar was expected."},
      {"None", "value must not be 'None'."},
      {"object()", "type does not match."},
      {"{1: 2}", "type does not match."},
      {"{1}", "type does not match."},
      {"type('Float', (), {'__float__': lambda self: 1.0})()", "type does not match."},
  };
  for (const auto& [expression, expected] : rows) {
    SCOPED_TRACE(expression);
    const ConversionFailure failure = makeRefusal(evaluate(expression).get());
    EXPECT_EQ(failure.exceptionClass, PyExc_TypeError);
    EXPECT_EQ(failure.message, expected);
    EXPECT_TRUE(raisedNothing());
  }
}

struct CharacterRow {
  const char* expression;
  const char* state;
  char16_t expected;
};
constexpr CharacterRow characterRows[] = {
    {"0", "value", 0},
    {"65", "value", 65},
    {"65535", "value", 65535},
    {"True", "value", 1},
    {"65536", "OverflowError: value (65536) cannot be stored in a variable of type double.", 0},
    {"-1", "OverflowError: value (-1) cannot be stored in a variable of type double.", 0},
    {"2**64", tooLarge, 0},
    {"-2**70", tooLarge, 0},
    {"1.0", "TypeError: velmar.double does not accept floating-point values.", 0},
    {"1j",
     "TypeError: velmar.double does not accept complex values if 'is_complex' is not set to "
     "'True'.",
     0},
    {"'A'", "TypeError: value is not numeric.", 0},
    {"[65]", "TypeError: sequence passed when scalar was expected.", 0},
    {"None", "TypeError: value must not be 'None'.", 0},
    {"object()", "TypeError: type does not match.", 0},
};

TEST(CharacterElement, IsReadAsAnUnsignedIntegerThatIsCalledDouble) {
  for (const CharacterRow& row : characterRows) {
    for (const bool allowFloatingPoint : {false, true}) {
      SCOPED_TRACE(row.expression);
      const auto result =
          convertPyObjectToElement<char16_t>(evaluate(row.expression).get(), allowFloatingPoint);
      EXPECT_EQ(stateOf(result), row.state);
      EXPECT_EQ(result.value.value_or(u'\0'), row.expected);
      EXPECT_TRUE(raisedNothing());
    }
  }
}

TEST(LogicalElement, TakesFloatsAndComplexNumbersOnlyWhereAllowed) {
  struct Row {
    const char* expression;
    std::optional<bool> allowed;
    std::optional<bool> notAllowed;
  };
  const Row rows[] = {{"0", false, false},
                      {"-3", true, true},
                      {"True", true, true},
                      {"0.5", true, {}},
                      {"0.0", false, {}},
                      {"-0.0", false, {}},
                      {"float('nan')", true, {}},
                      {"0j", false, {}},
                      {"1e-300j", true, {}},
                      {"complex(0, float('nan'))", true, {}},
                      {"complex(float('nan'), 0)", true, {}},
                      {"2**64", {}, {}},
                      {"'x'", {}, {}},
                      {"None", {}, {}}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.expression);
    const PyRef object = evaluate(row.expression);
    EXPECT_EQ(convertPyObjectToElement<bool>(object.get(), true).value, row.allowed);
    EXPECT_EQ(convertPyObjectToElement<bool>(object.get(), false).value, row.notAllowed);
  }
  const auto refusal = [](const char* expression) {
    return stateOf(convertPyObjectToElement<bool>(evaluate(expression).get(), false));
  };
  EXPECT_EQ(refusal("0.5"), "TypeError: velmar.logical does not accept floating-point values.");
  EXPECT_EQ(refusal("1j"),
            "TypeError: velmar.logical does not accept complex values if 'is_complex' is not set "
            "to 'True'.");
  EXPECT_EQ(refusal("2**64"), tooLarge);
}

TYPED_SUITE(ElementConversion, AllTypes, TypeWords);

// Objects of every kind, including unusual ones.
constexpr const char* objects[] = {
    "0",
    "1",
    "-1",
    "127",
    "128",
    "-129",
    "2**31",
    "2**63",
    "2**64",
    "-2**63",
    "10**400",
    "True",
    "0.0",
    "1.5",
    "-1.5",
    "1e300",
    "-1e300",
    "float('nan')",
    "float('inf')",
    "1j",
    "1e300 + 1j",
    "complex(float('nan'), float('inf'))",
    "None",
    "'1'",
    "b'1'",
    "[1]",
    "()",
    "{}",
    "object()",
    "type('Float', (float,), {})(2.5)",
    "type('Complex', (complex,), {})(1j)",
    "type('Index', (), {'__index__': lambda self: 1})()",
    "type('Raises', (), {'__float__': lambda self: {}[0]})()",
};

TYPED_CASE(ElementConversion, GivesAValueOrAFailureAndLeavesNoError) {
  for (const char* expression : objects) {
    for (const bool allowFloatingPoint : {false, true}) {
      SCOPED_TRACE(expression);
      const auto result =
          convertPyObjectToElement<TypeParam>(evaluate(expression).get(), allowFloatingPoint);
      EXPECT_NE(result.value.has_value(), result.failure.has_value());
      if (result.failure) {
        EXPECT_TRUE(result.failure->exceptionClass == PyExc_TypeError ||
                    result.failure->exceptionClass == PyExc_OverflowError);
        EXPECT_FALSE(result.failure->message.empty());
      }
      EXPECT_TRUE(raisedNothing());
    }
  }
}

// Real elements refuse an object that is not a number; complex elements read it as 0.
TYPED_CASE(ElementConversion, OfObjectsThatAreNotNumbers) {
  for (const char* expression : {"None", "object()", "'1'", "[1]"}) {
    SCOPED_TRACE(expression);
    const PyRef object = evaluate(expression);
    const auto result = convertPyObjectToElement<TypeParam>(object.get(), true);
    if constexpr (isComplexElement<TypeParam>) {
      EXPECT_EQ(result.value, TypeParam());
    } else {
      EXPECT_EQ(stateOf(result), "TypeError: " + makeRefusal(object.get()).message);
    }
  }
}

}  // namespace
