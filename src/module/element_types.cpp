// Mappings between the numberings of element types.
#include "module/element_types.hpp"

#include <mutex>
#include <stdexcept>
#include <string>

#include <velmardata/exceptions.hpp>

#include "module/support.hpp"

using foundation::velmardata::ArrayType;

namespace {

constexpr TypeAndComplexity invalidType = {false, SupportedArrayEnum::Logical, true};

// Py_buffer holds formats as char*, so they are writable arrays of static duration.
#define X(name, number, enumerator, type, suffix, word, letter) \
  char formatOf##enumerator[] = {letter, '\0'};                 \
  char formatOfComplex##enumerator[] = {'Z', letter, '\0'};
VELMARDATA_FOR_EACH_NUMERIC_TYPE(X)
#undef X
char formatOfLogical[] = {TypeAsChar[static_cast<std::size_t>(SupportedArrayEnum::Logical)], '\0'};

constexpr int firstNumberOfFormatLetters = 4;

std::once_flag sessionFlag;

}  // namespace

TypeAndComplexity getTypeAndComplexityFromArrayType(ArrayType type) {
  switch (type) {
    case ArrayType::LOGICAL:
      return {true, SupportedArrayEnum::Logical, false};
#define X(name, number, enumerator, ...)                  \
  case ArrayType::name:                                   \
    return {true, SupportedArrayEnum::enumerator, false}; \
  case ArrayType::COMPLEX_##name:                         \
    return {true, SupportedArrayEnum::enumerator, true};
      VELMARDATA_FOR_EACH_NUMERIC_TYPE(X)
#undef X
    case ArrayType::CHAR:
      return invalidType;
  }
  return invalidType;  // a number that names none of the types above
}

std::int64_t sizeOfElement(ArrayType type) {
  switch (type) {
#define X(name, number, element) \
  case ArrayType::name:          \
    return sizeof(element);
    VELMARDATA_FOR_EACH_ARRAY_TYPE(X)
#undef X
  }
  throw foundation::velmardata::EArrayUnknownDataType("");
}

char* classid2format(ArrayType type) {
  switch (type) {
#define X(name, number, enumerator, ...) \
  case ArrayType::name:                  \
    return formatOf##enumerator;         \
  case ArrayType::COMPLEX_##name:        \
    return formatOfComplex##enumerator;
    VELMARDATA_FOR_EACH_NUMERIC_TYPE(X)
#undef X
    case ArrayType::LOGICAL:
      return formatOfLogical;
    default:
      throw std::out_of_range("map::at");  // the text is kept for clients
  }
}

void initializeCharToArrayTypeEnumMap(std::map<char, int>& map) {
  int number = firstNumberOfFormatLetters;
  for (char letter : TypeAsChar) map[letter] = number++;
}

std::optional<std::int32_t> getArrayTypeEnumFromChar(char letter) {
  static std::map<char, int> map;
  std::call_once(sessionFlag, initializeCharToArrayTypeEnumMap, std::ref(map));
  const auto found = map.find(letter);
  if (found != map.end()) return found->second;
  setError(PyExc_RuntimeError, std::string("format character not supported: ") + letter);
  return std::nullopt;
}
