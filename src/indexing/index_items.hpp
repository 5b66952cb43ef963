// From a Python subscript to an index item, and items read as ranges.
#pragma once

#include <cstdint>
#include <optional>

#include "module/python.hpp"
#include "module/support.hpp"
#include "storage/index_items.hpp"

// The value of an int (or subclass); empty, with no error set, for any other object. Deliberate: an
// int too large for 64 bits gives -1 and leaves the interpreter's OverflowError pending.
inline std::optional<std::int64_t> getIntegerIndexFromIndexObject(PyObject* object) {
  if (!pyObjectIsLong(object)) return std::nullopt;
  return PyLong_AsSsize_t(object);
}

// Fills the item from a slice object for a dimension of the given length and normalises it. False
// with an error set: ValueError for a step that is zero or unreadable, the interpreter's own error
// for a start or stop that is no integer.
bool getSliceData(PyObject* slice, std::int64_t length, SliceIndexItem& item);

// A stored item read as a range: an integer i runs from i to i + 1 with step 0, which marks a fixed
// dimension. For normalised items only.
inline std::int64_t getStart(const IndexVariant& item) {
  const auto* integer = std::get_if<IntegerIndexItem>(&item);
  return integer != nullptr ? integer->m_index : *std::get_if<SliceIndexItem>(&item)->m_start;
}
inline std::int64_t getStop(const IndexVariant& item) {
  const auto* integer = std::get_if<IntegerIndexItem>(&item);
  return integer != nullptr ? integer->m_index + 1 : *std::get_if<SliceIndexItem>(&item)->m_stop;
}
inline std::int64_t getStep(const IndexVariant& item) {
  const auto* integer = std::get_if<IntegerIndexItem>(&item);
  return integer != nullptr ? 0 : *std::get_if<SliceIndexItem>(&item)->m_step;
}
