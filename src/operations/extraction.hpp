// What real(), imag() and noncomplex() and their attribute forms reach.
#pragma once

#include "module/python.hpp"

extern "C" {

// New reference to a real array of the same class, a view of the one row of a 1-by-N array. It
// holds the elements of the whole storage in storage order, whatever view was asked. Null with an
// error set. Linear in the number of elements.
PyObject* MCPyArray_Real(PyObject* self, PyObject* ignored);
PyObject* MCPyArray_Imag(PyObject* self, PyObject* ignored);
PyObject* MCPyArray_Noncomplex(PyObject* self, PyObject* ignored);

PyObject* MCPyArray_GetRealAsAttrib(PyObject* self, void* closure);
PyObject* MCPyArray_GetImagAsAttrib(PyObject* self, void* closure);
PyObject* MCPyArray_GetNoncomplexAsAttrib(PyObject* self, void* closure);
}
