// What clone() and __reduce__() reach.
#pragma once

#include "module/python.hpp"

extern "C" {

// A new array of what the object shows. Deliberate: when there is nothing to clone, a record
// without a view comes back and the error stays pending.
PyObject* MCPyArray_Clone(PyObject* self, PyObject* ignored);

// (class, (dict, nested list)): the arguments from which the constructor makes the array anew.
// Deliberate: the integers of a view's chain are honoured and a final slice is not.
PyObject* MCPyArray_Reduce(PyObject* self, PyObject* ignored);
}
