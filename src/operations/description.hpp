// What an array tells of itself: shape, strides, size of an element, complexity.
#pragma once

#include "module/python.hpp"

extern "C" {

// New references; null with an error set. Linear in the number of dimensions.

// The strides of the whole storage in bytes, also for a view.
PyObject* MCPyArray_GetBytewiseStrides(PyObject* self, PyObject* ignored);
// The lengths of the dimensions that are left.
PyObject* MCPyArray_GetArraySize(PyObject* self, void* closure);
PyObject* MCPyArray_GetElementSize(PyObject* self, void* closure);
PyObject* MCPyArray_GetIsComplexAsAttrib(PyObject* self, void* closure);
}
