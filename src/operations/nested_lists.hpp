// Nested lists: the neutral form of the contents of a view.
#pragma once

#include <cstdint>

#include "module/python.hpp"
#include "module/signals.hpp"
#include "storage/mcpp_py_array.hpp"

// New references; null with an error set. Linear in the number of elements, with a Python object
// for each. T is the element type of the storage, complex or not. With `signals`, the error of a
// signal's handler ends the walk.

// What the view shows. Deliberate: an element that is out of reach becomes a null item of the list
// beside the error that is set, except in the dimension of a final slice, where it is a failure.
// The callers look for the error.
template <class T>
PyObject* getAllContentsAsPyList(const MCppPyArray& view, SignalWatch* signals = nullptr);

// The dimensions from `dimension` on, in full. `indices` holds the positions in the dimensions
// before, and is the same afterwards. Null items as above.
template <class T>
PyObject* getContentsAsPyList(const MCppPyArray& view, Position& indices, std::uint64_t dimension,
                              SignalWatch* signals = nullptr);
// The same when the element type is known at run time only.
PyObject* getPyListFromNormalizedIntIndicesWithoutTemplate(const MCppPyArray& view,
                                                           Position& indices,
                                                           std::uint64_t dimension);
