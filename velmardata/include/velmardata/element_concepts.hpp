// Concepts for the element types that an operation accepts, defined on the table of types.
#pragma once

#include <concepts>
#include <type_traits>

#include "velmardata/element_types.hpp"

namespace foundation::velmardata {

// Any of the 22 element types.
template <class T>
concept ArrayElement = requires { ArrayTypeOf<T>::value; };

// The 21 types whose elements a client may write. Arrays of characters are read-only.
template <class T>
concept WritableElement = ArrayElement<T> && !std::same_as<T, char16_t>;

// The ten real numeric types.
template <class T>
concept RealNumericElement =
    WritableElement<T> && std::is_arithmetic_v<T> && !std::same_as<T, bool>;

}  // namespace foundation::velmardata

namespace velmar::data {

// The element type of the array that ArrayFactory::createScalarInternal<T> returns: T for every
// type of the table. A specialisation can name another stored type.
template <class T>
struct GetReturnType {
  using type = T;
};

}  // namespace velmar::data
