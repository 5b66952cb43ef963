// The Python record of an iterator.
#pragma once

#include "module/python.hpp"

class MCppPyIter;

struct MCPyIter {
  PyObject_HEAD MCppPyIter* mcppPyIter;  // owned
};

// An iterator is its own iterator.
extern "C" PyObject* MCPyIter_GetIter(PyObject* self);
