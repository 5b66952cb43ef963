// CharArray: conversion of character arrays to text.
#include "velmardata/char_array.hpp"

#include <utility>

#include "velmardata/exceptions.hpp"

namespace foundation::velmardata {

CharArray::CharArray(const Array& other) : TypedArray<char16_t>(other) {}

CharArray::CharArray(Array&& other) : TypedArray<char16_t>(std::move(other)) {}

CharArray::~CharArray() = default;

std::string CharArray::toAscii() const {
  constexpr char16_t lastAscii = 127;
  std::string text;
  text.reserve(getNumberOfElements());
  for (const char16_t unit : *this) {
    if (unit > lastAscii) throw ENonAsciiCharacter();
    text.push_back(static_cast<char>(unit));
  }
  return text;
}

}  // namespace foundation::velmardata
