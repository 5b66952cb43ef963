// What toarray() reaches.
#pragma once

#include "module/python.hpp"

// New reference to an array.array of the numbers that an iterator yields: for a view of one
// dimension, or with nothing to walk. Null with RuntimeError set otherwise, and the constructor's
// own error printed to standard error. Linear in the number of elements.
extern "C" PyObject* MCPyArray_ToArrayArray(PyObject* self, PyObject* ignored);
