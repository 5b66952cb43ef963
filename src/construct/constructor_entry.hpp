// The handler of a call of one of the classes.
#pragma once

#include "module/python.hpp"

// New reference to an array, or null with an exception set. T is the element type of the class.
// Linear in the number of elements.
template <class T>
PyObject* MCPyArray_New(PyTypeObject* type, PyObject* args, PyObject* kwargs);
