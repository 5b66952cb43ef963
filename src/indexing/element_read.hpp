// Reads: the handlers of a[i], a[i:j:k] and len(a), and the addresses of single elements.
#pragma once

#include <cstdint>
#include <cstring>

#include "module/element_to_number.hpp"
#include "module/python.hpp"
#include "storage/mcpy_array.hpp"

// New reference to a view, or to a number when the subscript fixes the last dimension; null with an
// error set. T is the element type of the class. Constant time.
template <class T>
PyObject* MCPyArray_GetViaIndex(PyObject* self, PyObject* index);
template <class T>
PyObject* MCPyArray_GetItem(PyObject* self, Py_ssize_t index);

// The length of the active dimension; -1 with an error set.
extern "C" Py_ssize_t MCPyArray_NumElemsInFirstDim(PyObject* self);

// The address in the mirror of an element of the view's storage. Null with RuntimeError set when
// there is no such element. Valid until Python code may run.
const std::byte* getAddressOfElementFromNormalizedIntIndices(const MCppPyArray& view,
                                                             const Position& position);

// New reference to the number of the element at an address; null with the error that is pending for
// a null address. The element is copied before an object is made, because that can run code that
// frees the storage.
template <class T>
PyObject* makeNumberAt(const std::byte* address) {
  if (address == nullptr) return nullptr;
  T element;
  std::memcpy(&element, address, sizeof(T));
  return makeNumber(element);
}

// The number at a position of the view's storage; null with RuntimeError set.
template <class T>
PyObject* getNumericPyObjectFromNormalizedIntIndices(const MCppPyArray& view,
                                                     const Position& position) {
  return makeNumberAt<T>(getAddressOfElementFromNormalizedIntIndices(view, position));
}
