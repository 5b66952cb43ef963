// The table of element types. Every list, number, switch and entry point is generated from it.
#pragma once

#include <complex>
#include <cstdint>
#include <type_traits>

// One row for each type that has a Python class, in the order of the classes:
//   ROW(X, ArrayType name, ArrayType number, enumerator, C++ type, handler suffix, type word,
//   letter)
// The letter is the buffer protocol's format character. The complex type of a row is named
// COMPLEX_<name> and its number is 10 higher. Logical has no complex type.
#define VELMARDATA_NUMERIC_ROWS(ROW, X)                              \
  ROW(X, DOUBLE, 4, Double, double, double, "double", 'd')           \
  ROW(X, SINGLE, 5, Single, float, float, "single", 'f')             \
  ROW(X, INT8, 6, Int8, std::int8_t, int8_t, "int8", 'b')            \
  ROW(X, UINT8, 7, UInt8, std::uint8_t, uint8_t, "uint8", 'B')       \
  ROW(X, INT16, 8, Int16, std::int16_t, int16_t, "int16", 'h')       \
  ROW(X, UINT16, 9, UInt16, std::uint16_t, uint16_t, "uint16", 'H')  \
  ROW(X, INT32, 10, Int32, std::int32_t, int32_t, "int32", 'i')      \
  ROW(X, UINT32, 11, UInt32, std::uint32_t, uint32_t, "uint32", 'I') \
  ROW(X, INT64, 12, Int64, std::int64_t, int64_t, "int64", 'q')      \
  ROW(X, UINT64, 13, UInt64, std::uint64_t, uint64_t, "uint64", 'Q')
#define VELMARDATA_LOGICAL_ROW(ROW, X) ROW(X, LOGICAL, 1, Logical, bool, bool, "logical", '?')

#define VELMARDATA_DETAIL_WHOLE_ROW(X, ...) X(__VA_ARGS__)
#define VELMARDATA_DETAIL_REAL(X, name, number, enumerator, type, ...) X(name, number, type)
#define VELMARDATA_DETAIL_COMPLEX(X, name, number, enumerator, type, ...) \
  X(COMPLEX_##name, (number) + 10, std::complex<type>)

// X(ArrayType name, number, enumerator, C++ type, handler suffix, type word, letter)
#define VELMARDATA_FOR_EACH_NUMERIC_TYPE(X) VELMARDATA_NUMERIC_ROWS(VELMARDATA_DETAIL_WHOLE_ROW, X)
#define VELMARDATA_FOR_EACH_CLASS_TYPE(X) \
  VELMARDATA_FOR_EACH_NUMERIC_TYPE(X)     \
  VELMARDATA_LOGICAL_ROW(VELMARDATA_DETAIL_WHOLE_ROW, X)

// X(ArrayType name, number, C++ type)
#define VELMARDATA_FOR_EACH_COMPLEX_TYPE(X) VELMARDATA_NUMERIC_ROWS(VELMARDATA_DETAIL_COMPLEX, X)
#define VELMARDATA_FOR_EACH_CLASS_ELEMENT_TYPE(X)    \
  VELMARDATA_LOGICAL_ROW(VELMARDATA_DETAIL_REAL, X)  \
  VELMARDATA_NUMERIC_ROWS(VELMARDATA_DETAIL_REAL, X) \
  VELMARDATA_FOR_EACH_COMPLEX_TYPE(X)
#define VELMARDATA_FOR_EACH_ARRAY_TYPE(X) \
  VELMARDATA_FOR_EACH_CLASS_ELEMENT_TYPE(X) X(CHAR, 2, char16_t)

namespace foundation::velmardata {

// The library's number of an element type. Arrays from other programs may report 0, 3 or a number
// above 23; the library does not support those types.
enum class ArrayType : std::uint32_t {
#define X(name, number, type) name = number,
  VELMARDATA_FOR_EACH_ARRAY_TYPE(X)
#undef X
};

// The number of the C++ element type T. Defined for the 22 element types only.
template <class T>
struct ArrayTypeOf;
#define X(name, number, type) \
  template <>                 \
  struct ArrayTypeOf<type> : std::integral_constant<ArrayType, ArrayType::name> {};
VELMARDATA_FOR_EACH_ARRAY_TYPE(X)
#undef X

template <class T>
inline constexpr ArrayType arrayTypeOf = ArrayTypeOf<T>::value;

}  // namespace foundation::velmardata
