// The one way from an element to a Python number.
#pragma once

#include <complex>
#include <type_traits>

#include "module/element_types.hpp"
#include "module/python.hpp"

// There is no complex logical: its instances complete the templates, and give null without a look
// at an element that no storage holds.
template <class T>
inline constexpr bool hasNumber = !std::is_same_v<T, std::complex<bool>>;

// New reference, or null. A complex element is always a Python complex; a character is the number
// of its code unit.
template <class T>
PyObject* makeNumber(T element) {
  if constexpr (!hasNumber<T>) {
    return nullptr;
  } else if constexpr (isComplexElement<T>) {
    return PyComplex_FromDoubles(static_cast<double>(element.real()),
                                 static_cast<double>(element.imag()));
  } else if constexpr (std::is_same_v<T, bool>) {
    return PyBool_FromLong(element ? 1 : 0);
  } else if constexpr (std::is_floating_point_v<T>) {
    return PyFloat_FromDouble(static_cast<double>(element));
  } else if constexpr (std::is_signed_v<T>) {
    return PyLong_FromLongLong(element);
  } else {
    return PyLong_FromUnsignedLongLong(element);
  }
}
