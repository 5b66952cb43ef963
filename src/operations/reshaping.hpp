// What reshape() reaches.
#pragma once

#include <cstdint>
#include <vector>

#include "module/python.hpp"

// The dimensions that a sequence of ints names, without the 1s behind the first two. Empty with an
// error set.
std::vector<std::int64_t> getDimsFromReshapeArg(PyObject* argument);

// New reference to the array itself, reshaped in place with all its views; null with an error set.
// reshape(2, 3) and reshape((2, 3)) are the same. Constant time.
extern "C" PyObject* MCPyArray_Reshape(PyObject* self, PyObject* args, PyObject* kwargs);
