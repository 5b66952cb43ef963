// The library's own exceptions. Memory shortage and misuse surface as the standard's exceptions.
#pragma once

#include <exception>
#include <string>

#include "velmardata/export.hpp"

namespace foundation::velmardata {

// Base of the library's own exceptions; abstract. The text of what() is fixed for each class and
// lives as long as the process.
//
// Beside these the library throws std::bad_alloc where memory is short, and std::invalid_argument
// or std::out_of_range for arguments that the called operation excludes. Whatever is thrown, no
// array is changed by the call.
class VELMARDATA_EXPORT Exception : public std::exception {
 public:
  Exception() = default;
  Exception(const Exception&) = default;
  Exception& operator=(const Exception&) = default;
  ~Exception() override;

  const char* what() const noexcept override;

  // A number that tells the class of the exception, for clients that cannot catch by type.
  virtual int getExceptionID() const noexcept = 0;
};

// The element type of an array is none of the 22 that are handled. Identifier 8. The library throws
// it when asked for elements of such a type; clients do when an array reports one.
class VELMARDATA_EXPORT EArrayUnknownDataType final : public Exception {
 public:
  // The argument is kept for debuggers only: what() gives the same text whatever it says.
  explicit EArrayUnknownDataType(const std::string& detail);
  EArrayUnknownDataType(const EArrayUnknownDataType&) = default;
  EArrayUnknownDataType& operator=(const EArrayUnknownDataType&) = default;
  ~EArrayUnknownDataType() override;

  const char* what() const noexcept override;
  int getExceptionID() const noexcept override;

 private:
  std::string m_detail;
};

// A character array holds a unit outside ASCII where a std::string was asked for. Identifier 9.
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
