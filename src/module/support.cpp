// Bodies of the helpers of the Python-facing functions.
#include "module/support.hpp"

void setError(PyObject* exceptionType, const char* message) {
  PyErr_SetString(exceptionType, message);
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
