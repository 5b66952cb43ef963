// The library's exceptions: texts and identifiers.
#include "velmardata/exceptions.hpp"

namespace foundation::velmardata {

Exception::~Exception() = default;

const char* Exception::what() const noexcept {
  return "Error in velmar::data::Array.";
}

EArrayUnknownDataType::EArrayUnknownDataType(const std::string& detail) : m_detail(detail) {}

EArrayUnknownDataType::~EArrayUnknownDataType() = default;

const char* EArrayUnknownDataType::what() const noexcept {
  return "Unknown DataType field in velmar::data::Array.";
}

int EArrayUnknownDataType::getExceptionID() const noexcept {
  return 8;
}

ENonAsciiCharacter::~ENonAsciiCharacter() = default;

const char* ENonAsciiCharacter::what() const noexcept {
  return "Non-ASCII character in velmar::data::Array.";
}

int ENonAsciiCharacter::getExceptionID() const noexcept {
  return 9;
}

}  // namespace foundation::velmardata
