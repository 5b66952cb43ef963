// Tables over pairs of element types.
#pragma once

#include <array>
#include <cstddef>
#include <utility>
#include <velmardata/velmardata.hpp>

namespace element_kinds {

// A list of types as the argument of a template.
template <class... Types>
struct TypeList {};
template <class, class... Types>
struct WithoutFirst {
  using type = TypeList<Types...>;
};

#define X(name, number, type) , type
using All = WithoutFirst<void VELMARDATA_FOR_EACH_CLASS_ELEMENT_TYPE(X)>::type;
#undef X

inline constexpr std::size_t count = 0
#define X(...) +1
    VELMARDATA_FOR_EACH_CLASS_ELEMENT_TYPE(X)
#undef X
    ;

// The place of a type in All; `count` for characters and unknown types.
constexpr std::size_t placeOf(foundation::velmardata::ArrayType type) {
  std::size_t place = 0;
#define X(name, number, element)                                     \
  if (type == foundation::velmardata::ArrayType::name) return place; \
  ++place;
  VELMARDATA_FOR_EACH_CLASS_ELEMENT_TYPE(X)
#undef X
  return place;
}

// table[placeOf(A)][placeOf(B)] is Entry<A, B>::value.
template <template <class, class> class Entry, class Value>
class PairTable {
 public:
  static Value at(foundation::velmardata::ArrayType a, foundation::velmardata::ArrayType b) {
    const std::size_t row = placeOf(a);
    const std::size_t column = placeOf(b);
    return row < count && column < count ? s_rows[row][column] : Value{};
  }

 private:
  using Row = std::array<Value, count>;
  template <class A, class... Types>
  static constexpr Row rowOf(TypeList<Types...>) {
    return {Entry<A, Types>::value...};
  }
  template <class... Types>
  static constexpr std::array<Row, count> rowsOf(TypeList<Types...> all) {
    return {rowOf<Types>(all)...};
  }
  static constexpr std::array<Row, count> s_rows = rowsOf(All{});
};

}  // namespace element_kinds
