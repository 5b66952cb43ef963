// What a[i] = x and a[i:j:k] = x reach.
#pragma once

#include "module/python.hpp"

// 0, or -1 with an error set. T is the element type of the class. Linear in the number of elements
// assigned.
template <class T>
int MCPyArray_SetViaIndex(PyObject* self, PyObject* index, PyObject* value);
