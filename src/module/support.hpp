// Helpers of every function that Python calls: errors, guards, tests of a type.
#pragma once

#include "module/python.hpp"

#include <cstdint>
#include <optional>
#include <string>

// Every error that the module reports is set here.
void setError(PyObject* exceptionType, const char* message);
inline void setError(PyObject* exceptionType, const std::string& message) {
  setError(exceptionType, message.c_str());
}

// Sets MemoryError for an array of `count` elements. An empty count stands for a number beyond 64
// bits; the largest 64-bit number is printed then. `typeWord` names the element type.
void setOutOfMemory(std::optional<std::uint64_t> count, const char* typeWord);

// Prints and clears a pending Python error.
void printAndClearErrorIfAny();

// New reference to an int; null with RuntimeError set when it cannot be made.
PyObject* makePyObjectFromLong(long value);

// The module's own exception classes; borrowed from the module.
namespace MCPyError {
extern PyObject* shapeErr;  // the number of elements differs
extern PyObject* sizeErr;   // the number of elements agrees, the shape differs
}  // namespace MCPyError

// Messages that more than one place reports.
namespace messages {
inline constexpr const char* objectNotInitialized = "object not initialized.";
inline constexpr const char* cannotInitializeObject = "unable to initialize C object.";
inline constexpr const char* nullDataPointer = "null data pointer.";
inline constexpr const char* expiredStorage = "locked shared pointer is null.";
inline constexpr const char* unequalShapes =
    "unable to perform assignment because the left and right sides have a different shape.";
inline constexpr const char* invalidIndex = "index has an invalid value: ";
inline constexpr const char* indexIsNoIndex = "index is not an integer or slice.";
inline constexpr const char* tooManyIndices = "too many indices.";
inline constexpr const char* zeroStep = "slice step cannot be zero.";
}  // namespace messages

// One level of the interpreter's own recursion count. Tests false with RecursionError set.
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

// Puts a pending error aside and restores it at the end of the scope. For calls that may run Python
// code, which must not start with an error pending. An error that was set meanwhile is dropped.
class ErrorPutAside {
 public:
  ErrorPutAside() { PyErr_Fetch(&m_type, &m_value, &m_traceback); }
  ErrorPutAside(const ErrorPutAside&) = delete;
  ErrorPutAside& operator=(const ErrorPutAside&) = delete;
  ~ErrorPutAside() { PyErr_Restore(m_type, m_value, m_traceback); }

 private:
  PyObject* m_type = nullptr;
  PyObject* m_value = nullptr;
  PyObject* m_traceback = nullptr;
};

// A buffer of another object. The guard owns it and releases it at the end of the scope; an error
// that is pending then stays pending.
class BufferGuard {
 public:
  BufferGuard() = default;
  BufferGuard(const BufferGuard&) = delete;
  BufferGuard& operator=(const BufferGuard&) = delete;
  ~BufferGuard() {
    if (!m_isHeld) return;
    const ErrorPutAside aside;
    PyBuffer_Release(&m_view);
  }

  // False with the exporter's own error set.
  bool obtain(PyObject* exporter, int flags) {
    m_isHeld = PyObject_GetBuffer(exporter, &m_view, flags) == 0;
    return m_isHeld;
  }
  const Py_buffer& view() const { return m_view; }

  // For a function that obtains the buffer itself: it fills place(), and hold() then hands the
  // buffer to the guard. A Py_buffer must not be copied, since it may point into itself.
  Py_buffer* place() { return &m_view; }
  void hold() { m_isHeld = true; }

 private:
  Py_buffer m_view = {};
  bool m_isHeld = false;
};

inline bool typeHasFlag(PyObject* object, unsigned long flag) {
  return (PyType_GetFlags(Py_TYPE(object)) & flag) != 0;
}
// True for int and its subclasses, bool among them; not for an object that only has __index__.
inline bool pyObjectIsLong(PyObject* object) {
  return Py_TYPE(object) == &PyLong_Type || typeHasFlag(object, Py_TPFLAGS_LONG_SUBCLASS);
}
// True for str and its subclasses; not for bytes.
inline bool pyObjectIsUnicodeOrString(PyObject* object) {
  return typeHasFlag(object, Py_TPFLAGS_UNICODE_SUBCLASS);
}
inline bool pyObjectIsEmpty(PyObject* object) {
  return object == nullptr || object == Py_None;
}
