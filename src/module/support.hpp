// Small helpers of every Python-facing function: errors, integers, recursion, tests of a type.
#pragma once

#include "module/python.hpp"

#include <string>

// All failure reporting goes through here.
void setError(PyObject* exceptionType, const char* message);
inline void setError(PyObject* exceptionType, const std::string& message) {
  setError(exceptionType, message.c_str());
}

// Prints and clears a pending Python error.
void printAndClearErrorIfAny();

// New reference to an int; null with RuntimeError set when it cannot be made.
PyObject* makePyObjectFromLong(long value);

namespace MCPyError {
extern PyObject* shapeErr;  // another number of elements; borrowed from the module
extern PyObject* sizeErr;   // the same number in another shape; borrowed from the module
}  // namespace MCPyError

// Messages that more than one place reports.
namespace messages {
inline constexpr const char* objectNotInitialized = "object not initialized.";
inline constexpr const char* cannotInitializeObject = "unable to initialize C object.";
inline constexpr const char* nullDataPointer = "null data pointer.";
inline constexpr const char* expiredStorage = "locked shared pointer is null.";
inline constexpr const char* noFinalSlice =
    "unable to retrieve index values from slice in final position.";
inline constexpr const char* unexpectedSlice = "slice index unexpectedly found.";
inline constexpr const char* unequalShapes =
    "unable to perform assignment because the left and right sides have a different shape.";
inline constexpr const char* invalidIndex = "index has an invalid value: ";
inline constexpr const char* indexIsNoIndex = "index is not an integer or slice.";
inline constexpr const char* tooManyIndices = "too many indices.";
inline constexpr const char* zeroStep = "slice step cannot be zero.";
}  // namespace messages

// One level of the interpreter's own recursion count. False: RecursionError is set.
class RecursionGuard {
 public:
  explicit RecursionGuard(const char* where) : m_entered(Py_EnterRecursiveCall(where) == 0) {}
  RecursionGuard(const RecursionGuard&) = delete;
  RecursionGuard& operator=(const RecursionGuard&) = delete;
  ~RecursionGuard() {
    if (m_entered) Py_LeaveRecursiveCall();
  }
  explicit operator bool() const { return m_entered; }

 private:
  bool m_entered;
};

inline bool typeHasFlag(PyObject* object, unsigned long flag) {
  return (PyType_GetFlags(Py_TYPE(object)) & flag) != 0;
}
// int or a subclass, bool among them; an object that merely has __index__ is none.
inline bool pyObjectIsLong(PyObject* object) {
  return Py_TYPE(object) == &PyLong_Type || typeHasFlag(object, Py_TPFLAGS_LONG_SUBCLASS);
}
// str or a subclass; bytes is no text here.
inline bool pyObjectIsUnicodeOrString(PyObject* object) {
  return typeHasFlag(object, Py_TPFLAGS_UNICODE_SUBCLASS);
}
inline bool pyObjectIsEmpty(PyObject* object) {
  return object == nullptr || object == Py_None;
}
