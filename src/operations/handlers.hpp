// The handlers of the operations on whole arrays: the one list that the tables of slots, methods
// and attributes are made from. Results are new references, or null with an error set.
#pragma once

#include "module/python.hpp"

// --- Text and comparison. T is the element type of the class.

// The nested list of the contents as Python prints it, without blanks. Linear, with a Python object
// for each element.
template <class T>
PyObject* MCPyArray_GetStr(PyObject* self);
// The same in the form of a call of the class.
template <class T>
PyObject* MCPyArray_GetRepr(PyObject* self);

// True or False. Two arrays are equal when two walks over them yield the same; no other operator is
// supported. T selects only the name, and the one instance is that for double. Linear, with Python
// objects for each element.
template <class T>
PyObject* MCPyArray_RichCompare(PyObject* self, PyObject* other, int op);

extern "C" {

// --- Iteration

// An iterator over the first open dimension. Constant time.
PyObject* MCPyArray_GetIter(PyObject* self);
PyObject* MCPyIter_GetIter(PyObject* self);  // an iterator is its own iterator
PyObject* MCPyIter_GetIterNext(PyObject* self);
void MCPyIter_Delete(PyObject* self) noexcept;

// --- Memory

// Fills the Py_buffer from the storage's mirror; for a view from a copy that is made at the first
// export and kept. The memory is read-only and never given out as C-contiguous. 0, or -1 with an
// error set and no owner in the Py_buffer. What goes out stays readable until it is released.
int MCPyArray_GetBuffer(PyObject* self, Py_buffer* buffer, int flags);
// No-op: an export allocates nothing and is not counted.
void MCPyArray_ReleaseBuffer(PyObject* self, Py_buffer* buffer) noexcept;
PyObject* MCPyArray_ToMemoryView(PyObject* self, PyObject* ignored);
// (address, number of elements) of the whole storage, for a view too. Constant time after the first
// look at the elements.
PyObject* MCPyArray_BufferInfo(PyObject* self, PyObject* ignored);
// An array.array of the numbers that an iterator yields: for a view of one dimension, or without
// elements. RuntimeError otherwise, and the constructor's own error is printed to standard error.
// Linear in the number of elements.
PyObject* MCPyArray_ToArrayArray(PyObject* self, PyObject* ignored);

// --- Description. Linear in the number of dimensions.

// The strides of the whole storage in bytes, for a view too.
PyObject* MCPyArray_GetBytewiseStrides(PyObject* self, PyObject* ignored);
// The lengths of the open dimensions.
PyObject* MCPyArray_GetArraySize(PyObject* self, void* closure);
PyObject* MCPyArray_GetElementSize(PyObject* self, void* closure);
PyObject* MCPyArray_GetIsComplexAsAttrib(PyObject* self, void* closure);

// --- Copies

// A new array with the contents of the object. Deliberate: when the elements cannot be read, a
// record without a view comes back and the error stays pending, because programs have seen that
// error only at the next step.
PyObject* MCPyArray_Clone(PyObject* self, PyObject* ignored);
// (class, (dict, nested list)): the arguments from which the constructor makes the array again.
// Deliberate: the integers of a view's chain count and a final slice does not, since stored pickles
// hold it so.
PyObject* MCPyArray_Reduce(PyObject* self, PyObject* ignored);

// A real array of the same class, as a view of the one row of a 1-by-N array. It holds the elements
// of the whole storage in storage order, for a view too. Linear in the number of elements.
PyObject* MCPyArray_Real(PyObject* self, PyObject* ignored);
PyObject* MCPyArray_Imag(PyObject* self, PyObject* ignored);
PyObject* MCPyArray_Noncomplex(PyObject* self, PyObject* ignored);
PyObject* MCPyArray_GetRealAsAttrib(PyObject* self, void* closure);
PyObject* MCPyArray_GetImagAsAttrib(PyObject* self, void* closure);
PyObject* MCPyArray_GetNoncomplexAsAttrib(PyObject* self, void* closure);

// The array itself, reshaped in place together with all views of its storage. reshape(2, 3) and
// reshape((2, 3)) are the same. Constant time.
PyObject* MCPyArray_Reshape(PyObject* self, PyObject* args, PyObject* kwargs);
}
