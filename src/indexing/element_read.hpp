// What a[i], a[i:j:k] and len(a) reach.
#pragma once

#include "module/python.hpp"
#include "storage/mcpy_array.hpp"

// New reference to a view, or to a number when the subscript fixes the last dimension; null with an
// error set. T is the element type of the class. Constant time.
template <class T>
PyObject* MCPyArray_GetViaIndex(PyObject* self, PyObject* index);
template <class T>
PyObject* MCPyArray_GetItem(PyObject* self, Py_ssize_t index);

// The length of the active dimension, or -1 with an error set.
extern "C" Py_ssize_t MCPyArray_NumElemsInFirstDim(PyObject* self);
