// From one Python scalar to one array element: the rules, family by family.
#pragma once

#include <optional>
#include <string>

#include "module/python.hpp"

struct ConversionFailure {
  PyObject* exceptionClass;  // PyExc_TypeError or PyExc_OverflowError, borrowed
  std::string message;
};

// Also the text for an int below or above every range, unsigned ones included.
inline constexpr const char* intTooLarge = "Python int too large to convert to C long long";

// A value, or a failure that the caller raises, or neither: only the two functions that read ints
// return neither, for an object that is no int.
template <class T>
struct ConversionResult {
  std::optional<T> value;
  std::optional<ConversionFailure> failure;
};

// Constant time; no Python error is left set. Real integers refuse floats, complex integers take
// and truncate them, floats saturate silently, and a complex element turns any object that is no
// number into 0. `allowFloatingPoint` is for logical elements alone: it lets floats and complex
// numbers count by being other than 0.
template <class T>
ConversionResult<T> convertPyObjectToElement(PyObject* value, bool allowFloatingPoint);

inline ConversionResult<long long> getLongLongFromPyObject(PyObject* value);
ConversionResult<unsigned long long> getUnsignedLongLongFromPyObject(PyObject* value,
                                                                     const char* typeWord);

// The value truncated toward zero, or nothing when it is out of To's range; the text that says so
// has then been appended to `message`.
template <class From, class To>
std::optional<To> convertAndCheckForOverflow(From value, std::string& message);

// Rounds as usual; everything outside the range of float, on either side, is positive infinity.
float convertDoubleToFloat(double value);

// The last tests of the real families, for an object that is no number of any kind.
ConversionFailure makeRefusal(PyObject* value);
