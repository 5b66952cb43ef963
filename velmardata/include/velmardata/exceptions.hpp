// The library's exception classes. It also throws std::bad_alloc and standard logic errors.
#pragma once

#include <exception>
#include <string>

#include "velmardata/export.hpp"

namespace foundation::velmardata {

// Abstract base of the library's exceptions. what() returns a constant text for each class.
//
// The library also throws std::bad_alloc if there is no memory, and std::invalid_argument or
// std::out_of_range for invalid arguments. A call that throws does not change any array.
class VELMARDATA_EXPORT Exception : public std::exception {
 public:
  Exception() = default;
  Exception(const Exception&) = default;
  Exception& operator=(const Exception&) = default;
  ~Exception() override;

  const char* what() const noexcept override;

  // A number that identifies the class, for clients that cannot catch by type.
  virtual int getExceptionID() const noexcept = 0;
};

// The element type of an array is not one of the 22 supported types. Identifier 8. The library
// throws it if elements of such a type are requested; clients throw it if an array reports one.
class VELMARDATA_EXPORT EArrayUnknownDataType final : public Exception {
 public:
  // `detail` is stored for debuggers only; what() does not include it.
  explicit EArrayUnknownDataType(const std::string& detail);
  EArrayUnknownDataType(const EArrayUnknownDataType&) = default;
  EArrayUnknownDataType& operator=(const EArrayUnknownDataType&) = default;
  ~EArrayUnknownDataType() override;

  const char* what() const noexcept override;
  int getExceptionID() const noexcept override;

 private:
  std::string m_detail;
};

// A character array to be converted to std::string has a unit outside ASCII. Identifier 9.
class VELMARDATA_EXPORT ENonAsciiCharacter final : public Exception {
 public:
  ENonAsciiCharacter() = default;
  ENonAsciiCharacter(const ENonAsciiCharacter&) = default;
  ENonAsciiCharacter& operator=(const ENonAsciiCharacter&) = default;
  ~ENonAsciiCharacter() override;

  const char* what() const noexcept override;
  int getExceptionID() const noexcept override;
};

}  // namespace foundation::velmardata
