// The buffer protocol's side of an array, and the memory behind it.
#pragma once

#include "module/python.hpp"

extern "C" {

// Fills the Py_buffer from the storage's mirror, for a view from a copy of its own that is made at
// the first export and kept. Read-only, and never given out as C-contiguous. 0, or -1 with an error
// set and no owner in the Py_buffer. What goes out stays readable until it is released.
int MCPyArray_GetBuffer(PyObject* self, Py_buffer* buffer, int flags);
// Nothing was made for an export, and nothing counts them.
void MCPyArray_ReleaseBuffer(PyObject* self, Py_buffer* buffer);

// New references; null with an error set.
PyObject* MCPyArray_ToMemoryView(PyObject* self, PyObject* ignored);
// (address, number of elements) of the whole storage, also for a view.
PyObject* MCPyArray_BufferInfo(PyObject* self, PyObject* ignored);
}
