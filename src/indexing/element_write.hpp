// Assignments: the handler of a[i] = x and a[i:j:k] = x, and its parts.
#pragma once

#include <cstdint>

#include "module/python.hpp"
#include "storage/index_items.hpp"
#include "storage/mcpp_py_array.hpp"

// 0, or -1 with an error set. T is the element type of the class. The value is read completely
// before the first element is stored; elements that were stored before a failure stay. Linear in
// the number of elements assigned.
template <class T>
int MCPyArray_SetViaIndex(PyObject* self, PyObject* index, PyObject* value);

// The parts return 0, or -1 with an error set. T is the element type itself, complex or not. An
// `index` is normalised and in coordinates of the storage, unless stated otherwise.

// One subscript that is an integer as the caller gave it; `length` is that of the storage.
template <class T>
int setItemsFromFinalOrNonFinalIntegerIndex(MCppPyArray& view, std::int64_t index,
                                            std::int64_t length, PyObject* value);
// One element. The view's last dimension alone must be open.
template <class T>
int setItemViaFinalIntegerIndex(MCppPyArray& view, std::int64_t index, PyObject* value);
// A part of the view with one dimension less, whose shape must be that of the value.
template <class T>
int setMultipleElementsFromNonFinalIntegerIndex(MCppPyArray& view, std::int64_t index,
                                                PyObject* value);
// A run of such parts. Only the number of elements must agree. The slice counts positions of the
// view's final slice if there is one, and is resolved against it in place.
template <class T>
int setMultipleElementsFromNonFinalSliceIndex(MCppPyArray& view, SliceIndexItem& slice,
                                              PyObject* value);
// Single elements of the last dimension, from a flat sequence of as many values. The slice counts
// positions of the storage.
template <class T>
int setIndividualElementsFromFlatSeqOfMultipleIntegerIndices(MCppPyArray& view,
                                                             const SliceIndexItem& slice,
                                                             PyObject* value);
