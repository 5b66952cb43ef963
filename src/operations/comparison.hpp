// What == and != reach.
#pragma once

#include "module/python.hpp"

// New reference to True or False, or null with an error set. Equality is what two walks yield, by
// design without a look at the memory; T selects nothing but the name, and the one instance is that
// for double. Linear in the number of elements, with Python objects made of each.
template <class T>
PyObject* MCPyArray_RichCompare(PyObject* self, PyObject* other, int op);
