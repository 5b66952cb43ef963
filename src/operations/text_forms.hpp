// What str() and repr() reach. T is the element type of the class.
#pragma once

#include "module/python.hpp"

template <class T>
PyObject* MCPyArray_GetStr(PyObject* self);
template <class T>
PyObject* MCPyArray_GetRepr(PyObject* self);
