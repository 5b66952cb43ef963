// Conversion of one element to a Python number.
#pragma once

#include <complex>
#include <type_traits>

#include "module/element_types.hpp"
#include "module/python.hpp"

// New reference; null with the interpreter's error set when there is no memory. A complex element
// always becomes a Python complex, and a character becomes the number of its code unit.
template <class T>
PyObject* makeNumber(T element) {
  if constexpr (isComplexElement<T>) {
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
