// From a Python subscript to an index item.
#pragma once

#include <cstdint>
#include <optional>

#include "module/python.hpp"
#include "module/support.hpp"
#include "storage/index_items.hpp"

// The value of an int or of an instance of a subclass. Empty, with no error set, for any other
// object. Deliberate: an int beyond 64 bits gives -1 and leaves the interpreter's OverflowError
// pending; the caller goes on with -1, so that the next error replaces it.
inline std::optional<std::int64_t> getIntegerIndexFromIndexObject(PyObject* object) {
  if (!pyObjectIsLong(object)) return std::nullopt;
  return PyLong_AsSsize_t(object);
}

// The normalised item of a slice object, for a dimension of the given length. Empty with an error
// set: ValueError for a step that is zero or cannot be read and for a negative length, the
// interpreter's own error for a start or stop that is not an integer.
std::optional<SliceIndexItem> getSliceData(PyObject* slice, std::int64_t length);
