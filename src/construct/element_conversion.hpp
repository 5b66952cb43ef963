// Conversion of one Python scalar to one array element, by the rules of each family of types.
#pragma once

#include <optional>
#include <string>

#include "elements/number_rules.hpp"
#include "module/python.hpp"

struct ConversionFailure {
  PyObject* exceptionClass;  // PyExc_TypeError or PyExc_OverflowError, borrowed
  std::string message;
};

// The text for an int beyond 64 bits, for unsigned elements too.
inline constexpr const char* intTooLarge = "Python int too large to convert to C long long";

// A value, or a failure that the caller raises. The two functions that read ints return neither for
// an object that is not an int.
template <class T>
struct ConversionResult {
  std::optional<T> value;
  std::optional<ConversionFailure> failure;
};

// Leaves no Python error set. Real integers refuse floats, complex integers truncate them, single
// elements become infinity when out of range, and a complex element turns an object that is not a
// number into 0. `allowFloatingPoint` concerns logical elements only: floats and complex numbers
// other than 0 are then true. Constant time.
template <class T>
ConversionResult<T> convertPyObjectToElement(PyObject* value, bool allowFloatingPoint);

inline ConversionResult<long long> getLongLongFromPyObject(PyObject* value);
ConversionResult<unsigned long long> getUnsignedLongLongFromPyObject(PyObject* value,
                                                                     const char* typeWord);

// The value truncated toward zero. Empty when it is out of To's range; the text that says so is
// then appended to `message`.
template <class From, class To>
std::optional<To> convertAndCheckForOverflow(From value, std::string& message);

// Rounds to nearest. Everything outside the range of float becomes positive infinity.
inline float convertDoubleToFloat(double value) {
  return number_rules::narrow(value);
}

// The failure of the real families for an object that is not a number.
ConversionFailure makeRefusal(PyObject* value);
