// The module's numbers of element types, and their mappings to ArrayType and to the letters of the
// buffer protocol.
#pragma once

#include <array>
#include <complex>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <type_traits>
#include <velmardata/element_types.hpp>

// Index of an array class in every table of classes. Complexity is a separate flag.
enum class SupportedArrayEnum : std::int8_t {
#define X(name, number, enumerator, ...) enumerator,
  VELMARDATA_FOR_EACH_CLASS_TYPE(X)
#undef X
};

inline constexpr std::size_t numberOfArrayClasses = 0
#define X(...) +1
    VELMARDATA_FOR_EACH_CLASS_TYPE(X)
#undef X
    ;
static_assert(numberOfArrayClasses == 11);

// The letter of each class in format strings, not terminated.
inline constexpr std::array<char, numberOfArrayClasses> TypeAsChar = {
#define X(name, number, enumerator, type, suffix, word, letter) letter,
    VELMARDATA_FOR_EACH_CLASS_TYPE(X)
#undef X
};

struct TypeAndComplexity {
  bool isValid;  // false: the type has no Python class, and the other fields have no meaning
  SupportedArrayEnum supportedArrayEnum;
  bool isComplex;
};

// Character arrays and unknown numbers are not valid. Constant time.
TypeAndComplexity getTypeAndComplexityFromArrayType(foundation::velmardata::ArrayType type);

// The format string of the buffer protocol, valid for the life of the process. Throws
// std::out_of_range for a type without a format.
char* classid2format(foundation::velmardata::ArrayType type);

// The element-type number of a format letter: the index of the class plus 4. "?" therefore gives
// 14, which is not the ArrayType of logical. Empty with RuntimeError set for any other letter.
std::optional<std::int32_t> getArrayTypeEnumFromChar(char letter);
void initializeCharToArrayTypeEnumMap(std::map<char, int>& map);

// Facts about one C++ element type.
template <class T>
struct PartOf {
  using Type = T;
};
template <class T>
struct PartOf<std::complex<T>> {
  using Type = T;
};
template <class T>
using Part = typename PartOf<T>::Type;
template <class T>
inline constexpr bool isComplexElement = !std::is_same_v<Part<T>, T>;

// The word that names the element type in messages. A complex element has the word of its part.
template <class T>
struct TypeWord : TypeWord<Part<T>> {};
// Deliberate: messages about characters, which occur internally only, say "double".
template <>
struct TypeWord<char16_t> {
  static constexpr const char* value = "double";
};
template <class T>
struct ClassOf;
#define X(name, number, enumerator, type, suffix, word, letter)                 \
  template <>                                                                   \
  struct TypeWord<type> {                                                       \
    static constexpr const char* value = word;                                  \
  };                                                                            \
  template <>                                                                   \
  struct ClassOf<type> {                                                        \
    static constexpr SupportedArrayEnum value = SupportedArrayEnum::enumerator; \
  };
VELMARDATA_FOR_EACH_CLASS_TYPE(X)
#undef X
template <class T>
inline constexpr const char* typeWord = TypeWord<T>::value;
// The same, by class.
inline constexpr std::array<const char*, numberOfArrayClasses> typeWords = {
#define X(name, number, enumerator, type, suffix, word, letter) word,
    VELMARDATA_FOR_EACH_CLASS_TYPE(X)
#undef X
};
constexpr const char* typeWordOf(SupportedArrayEnum arrayClass) {
  return typeWords[static_cast<std::size_t>(arrayClass)];
}
// The class of the arrays whose parts are of type T.
template <class T>
inline constexpr SupportedArrayEnum classOf = ClassOf<T>::value;

// The bytes of one element. Throws EArrayUnknownDataType for a type without elements here.
std::int64_t sizeOfElement(foundation::velmardata::ArrayType type);

// What code without templates needs to know of an element type.
struct ElementFacts {
  foundation::velmardata::ArrayType type;
  std::size_t size;  // in bytes
  const char* word;
};
template <class T>
inline constexpr ElementFacts factsOf = {foundation::velmardata::arrayTypeOf<T>, sizeof(T),
                                         typeWord<T>};
