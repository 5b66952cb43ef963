// The state of an iterator, and its Python record.
#pragma once

#include <cstdint>

#include "elements/traversal.hpp"
#include "module/python.hpp"
#include "storage/mcpp_py_array.hpp"

// Owns a weak view, so it keeps no storage alive; the views that it yields are weak too. Its bounds
// are those of the moment when it was made.
class MCppPyIter {
 public:
  // An error is set when the storage has expired.
  explicit MCppPyIter(const MCppPyArray* source);

  // New reference to the next item; null with StopIteration set at the end, or with another error.
  PyObject* increment();
  // Whether the items are arrays and not numbers.
  bool yieldsViews() const { return m_yieldsViews; }

 private:
  using NumberReader = PyObject* (*)(const MCppPyArray&, const Position&, std::int64_t);
  PyObject* makeRow();

  MCppPyArray m_arrayView;
  std::int64_t m_activeDimension;
  Position m_currentIndices;  // the next item
  // The range of the walked dimension. The dimensions before it are fixed, so no step carries.
  traversal::Range m_range = {};
  bool m_isFinished = true;
  bool m_yieldsViews = false;
  NumberReader m_readNumber = nullptr;  // for the element type; null when views are yielded
  std::int64_t m_ahead = 0;             // bytes to an element that is read soon
};

struct MCPyIter {
  PyObject_HEAD MCppPyIter* mcppPyIter;  // owned
};
