// CharArray: an array of 16-bit character units, which is read only.
#pragma once

#include <string>

#include "velmardata/typed_array.hpp"

namespace foundation::velmardata {

// A TypedArray<char16_t> that can be read as text. It has no operations that write; where its units
// come from is the maker's affair: createBuffer with the number of CHAR gives room for them.
class VELMARDATA_EXPORT CharArray : public TypedArray<char16_t> {
 public:
  // As TypedArray: std::invalid_argument if `other` is not an array of characters.
  CharArray(const Array& other);
  CharArray(Array&& other);

  CharArray(const CharArray&) = default;
  CharArray(CharArray&&) = default;
  CharArray& operator=(const CharArray&) = default;
  CharArray& operator=(CharArray&&) = default;
  ~CharArray() override;

  // The units in storage order, one char each. Throws ENonAsciiCharacter at the first unit above
  // 127. Linear time.
  std::string toAscii() const;
};

}  // namespace foundation::velmardata
