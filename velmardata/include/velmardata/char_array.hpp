// CharArray: a read-only array of 16-bit character units.
#pragma once

#include <string>

#include "velmardata/typed_array.hpp"

namespace foundation::velmardata {

// A TypedArray<char16_t> that can be converted to text. It has no write operations. To create one,
// fill a block that createBuffer made for type number CHAR and pass it to createArrayFromBuffer.
class VELMARDATA_EXPORT CharArray : public TypedArray<char16_t> {
 public:
  // Shares or takes over the contents of `other`, as TypedArray does. Throws std::invalid_argument
  // if `other` is not an array of characters.
  CharArray(const Array& other);
  CharArray(Array&& other);

  CharArray(const CharArray&) = default;
  CharArray(CharArray&&) = default;
  CharArray& operator=(const CharArray&) = default;
  CharArray& operator=(CharArray&&) = default;
  ~CharArray() override;

  // The units in storage order, one char each. Throws ENonAsciiCharacter if a unit is above 127.
  // Linear time.
  std::string toAscii() const;
};

}  // namespace foundation::velmardata
