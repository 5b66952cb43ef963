// Bodies of the element conversion.
#pragma once

#include <complex>
#include <cstdint>
#include <limits>
#include <sstream>
#include <type_traits>

#include "construct/element_conversion.hpp"
#include "module/element_types.hpp"
#include "module/support.hpp"

// Python ints are read without raising an exception: its allocation could run any code.
inline ConversionResult<long long> getLongLongFromPyObject(PyObject* value) {
  if (!pyObjectIsLong(value)) return {};
  int overflow = 0;
  const long long number = PyLong_AsLongLongAndOverflow(value, &overflow);
  // Deliberate: -1 is a failure while an error is pending, because the interpreter reports failures
  // that way; the pending error is that of a subscript beyond 64 bits.
  const bool isFailure = overflow != 0 || (number == -1 && PyErr_Occurred() != nullptr);
  if (!isFailure) [[likely]]
    return {number, std::nullopt};
  PyErr_Clear();
  return {std::nullopt, ConversionFailure{PyExc_OverflowError, intTooLarge}};
}

template <class From>
std::string outOfRangeText(From value, const char* word) {
  std::ostringstream text;
  text.exceptions(std::ios_base::badbit);  // without memory for the text it throws
  text << "value (" << value << ") cannot be stored in a variable of type " << word << ".";
  return text.str();
}

template <class From, class To>
std::optional<To> convertAndCheckForOverflow(From value, std::string& message) {
  if (number_rules::fits<To>(value)) return number_rules::truncate<To>(value);
  message += outOfRangeText(value, typeWord<To>);
  return std::nullopt;
}

namespace element_conversion {

// The walk up the base classes is only for unusual types.
inline bool isOfType(PyObject* value, PyTypeObject* type) {
  PyTypeObject* own = Py_TYPE(value);
  if (own == type) return true;
  return own != &PyLong_Type && own != &PyFloat_Type && PyType_IsSubtype(own, type) != 0;
}
inline bool isFloat(PyObject* value) {
  return isOfType(value, &PyFloat_Type);
}
inline bool isComplexNumber(PyObject* value) {
  return isOfType(value, &PyComplex_Type);
}

template <class T>
ConversionResult<T> success(T value) {
  return {value, std::nullopt};
}
template <class T>
ConversionResult<T> fail(ConversionFailure&& failure) {
  return {std::nullopt, std::move(failure)};
}
template <class T>
ConversionResult<T> failForClass(const char* text) {
  return fail<T>({PyExc_TypeError, std::string("velmar.") + typeWord<T> + " " + text});
}
template <class T>
ConversionResult<T> refuseFloat() {
  return failForClass<T>("does not accept floating-point values.");
}
template <class T>
ConversionResult<T> refuseComplex() {
  return failForClass<T>("does not accept complex values if 'is_complex' is not set to 'True'.");
}

template <class P>
P narrowed(double value) {
  if constexpr (std::is_same_v<P, float>) {
    return convertDoubleToFloat(value);
  } else {
    return value;
  }
}

template <class P>
auto readInteger(PyObject* value) {
  if constexpr (std::is_unsigned_v<P>) {
    return getUnsignedLongLongFromPyObject(value, typeWord<P>);
  } else {
    return getLongLongFromPyObject(value);
  }
}

// An int that was read, as an integer of type P. Empty with the text appended to `message`.
template <class P, class Wide>
std::optional<P> fromWide(Wide number, std::string& message) {
  if constexpr (sizeof(P) == sizeof(Wide)) {
    return static_cast<P>(number);
  } else {
    return convertAndCheckForOverflow<Wide, P>(number, message);
  }
}

template <class T>
[[gnu::noinline]] ConversionResult<T> convertOtherToRealFloating(PyObject* value) {
  ConversionResult<long long> integer = getLongLongFromPyObject(value);
  if (integer.value) return success<T>(static_cast<T>(*integer.value));
  if (integer.failure) {
    // Deliberate: in single precision, ints too large on either side are positive infinity, as
    // floats are.
    if constexpr (std::is_same_v<T, float>) return success(std::numeric_limits<float>::infinity());
    return fail<T>(std::move(*integer.failure));
  }
  if (isComplexNumber(value)) return refuseComplex<T>();
  return fail<T>(makeRefusal(value));
}

// Floats are the most frequent input of these classes, so their way is inlined into the walks.
template <class T>
[[gnu::always_inline]] inline ConversionResult<T> convertToRealFloating(PyObject* value) {
  if (isFloat(value)) return success<T>(narrowed<T>(PyFloat_AsDouble(value)));
  return convertOtherToRealFloating<T>(value);
}

template <class T>
ConversionResult<T> convertToRealInteger(PyObject* value) {
  // Characters are read as unsigned integers.
  auto integer = readInteger<T>(value);
  if (integer.failure) return fail<T>(std::move(*integer.failure));
  if (integer.value) {
    std::string message;
    const auto element = fromWide<T>(*integer.value, message);
    return element ? success<T>(*element) : fail<T>({PyExc_OverflowError, std::move(message)});
  }
  if (isFloat(value)) return refuseFloat<T>();
  if (isComplexNumber(value)) return refuseComplex<T>();
  return fail<T>(makeRefusal(value));
}

inline ConversionResult<bool> convertToLogical(PyObject* value, bool allowFloatingPoint) {
  ConversionResult<long long> integer = getLongLongFromPyObject(value);
  if (integer.failure) return fail<bool>(std::move(*integer.failure));
  if (integer.value) return success(*integer.value != 0);
  if (isFloat(value)) {
    return allowFloatingPoint ? success(PyFloat_AsDouble(value) != 0.0) : refuseFloat<bool>();
  }
  if (isComplexNumber(value)) {
    if (!allowFloatingPoint) return refuseComplex<bool>();
    return success(PyComplex_RealAsDouble(value) != 0.0 || PyComplex_ImagAsDouble(value) != 0.0);
  }
  return fail<bool>(makeRefusal(value));
}

// Deliberate: the complex families refuse nothing. An object that is not a number becomes 0, as it
// would as the imaginary part that was left out.
template <class P>
ConversionResult<std::complex<P>> convertToComplexFloating(PyObject* value) {
  using T = std::complex<P>;
  if (isComplexNumber(value)) {
    return success(
        T(narrowed<P>(PyComplex_RealAsDouble(value)), narrowed<P>(PyComplex_ImagAsDouble(value))));
  }
  if (isFloat(value)) return success(T(narrowed<P>(PyFloat_AsDouble(value)), 0));
  ConversionResult<long long> integer = getLongLongFromPyObject(value);
  if (integer.failure) {
    if constexpr (std::is_same_v<P, float>) {
      return success(T(std::numeric_limits<float>::infinity(), 0));
    }
    return fail<T>(std::move(*integer.failure));
  }
  return success(T(static_cast<P>(integer.value.value_or(0)), 0));
}

template <class P>
ConversionResult<std::complex<P>> convertToComplexInteger(PyObject* value) {
  using T = std::complex<P>;
  std::string message;
  std::optional<P> real;
  std::optional<P> imaginary = P{0};
  if (isComplexNumber(value)) {
    real = convertAndCheckForOverflow<double, P>(PyComplex_RealAsDouble(value), message);
    if (real) {
      imaginary = convertAndCheckForOverflow<double, P>(PyComplex_ImagAsDouble(value), message);
    }
  } else if (isFloat(value)) {
    real = convertAndCheckForOverflow<double, P>(PyFloat_AsDouble(value), message);
  } else {
    auto integer = readInteger<P>(value);
    if (integer.failure) return fail<T>(std::move(*integer.failure));
    real = fromWide<P>(integer.value.value_or(0), message);
  }
  if (real && imaginary) return success(T(*real, *imaginary));
  return fail<T>({PyExc_OverflowError, std::move(message)});
}

}  // namespace element_conversion

template <class T>
ConversionResult<T> convertPyObjectToElement(PyObject* value, bool allowFloatingPoint) {
  using namespace element_conversion;
  if constexpr (std::is_same_v<T, bool>) {
    return convertToLogical(value, allowFloatingPoint);
  } else if constexpr (isComplexElement<T>) {
    if constexpr (std::is_floating_point_v<Part<T>>)
      return convertToComplexFloating<Part<T>>(value);
    else
      return convertToComplexInteger<Part<T>>(value);
  } else if constexpr (std::is_floating_point_v<T>) {
    return convertToRealFloating<T>(value);
  } else {
    return convertToRealInteger<T>(value);
  }
}
