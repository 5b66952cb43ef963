// Bodies of the helpers.
#include "module/support.hpp"

#include <limits>

void setError(PyObject* exceptionType, const char* message) {
  PyErr_SetString(exceptionType, message);
}

void setOutOfMemory(std::optional<std::uint64_t> count, const char* typeWord) {
  const std::uint64_t printed = count.value_or(std::numeric_limits<std::uint64_t>::max());
  setError(PyExc_MemoryError, "unable to allocate memory for array with number of elements = " +
                                  std::to_string(printed) + "; type = " + typeWord);
}

void printAndClearErrorIfAny() {
  if (PyErr_Occurred() != nullptr) PyErr_Print();
}

PyObject* makePyObjectFromLong(long value) {
  PyObject* object = PyLong_FromLong(value);
  if (object == nullptr) {
    setError(PyExc_RuntimeError, "unable to construct Python object from integer.");
  }
  return object;
}

PyObject* MCPyError::shapeErr = nullptr;
PyObject* MCPyError::sizeErr = nullptr;
