// What Python sees of a C++ exception.
#include "module/entry/guarded.hpp"

#include <new>
#include <stdexcept>

#include "module/python.hpp"
#include "module/support.hpp"

void boundary::setErrorOf(const std::exception& exception) {
  // Containers report a length beyond all memory as std::length_error.
  if (dynamic_cast<const std::bad_alloc*>(&exception) != nullptr ||
      dynamic_cast<const std::length_error*>(&exception) != nullptr) {
    PyErr_NoMemory();
  } else {
    setError(PyExc_RuntimeError, exception.what());
  }
}
