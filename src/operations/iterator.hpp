// Walking an array: the iterator's state, its Python record and handlers.
#pragma once

#include "module/python.hpp"
#include "storage/mcpp_py_array.hpp"

// Keeps no storage alive: it holds a weak view, and so are the views that it yields. Its bounds are
// those of the moment when it was made.
class MCppPyIter {
 public:
  // With the storage gone, an error is set.
  explicit MCppPyIter(MCppPyArray* source);

  // New reference to the next item; null with StopIteration set at the end, or with another error.
  PyObject* increment();
  // Whether the items are arrays; otherwise they are numbers.
  bool yieldsViews() const { return m_yieldsViews; }

 private:
  using NumberReader = PyObject* (*)(const MCppPyArray&, const Position&, std::int64_t);
  PyObject* makeRow();

  MCppPyArray m_arrayView;
  std::int64_t m_activeDimension;
  Position m_currentIndices;  // to yield next
  bool m_isFinished = true;
  bool m_yieldsViews = false;
  std::vector<std::int64_t> m_shape;
  IndexChain m_restrictingIndices;
  NumberReader m_readNumber = nullptr;  // for the element type, where numbers are yielded
  std::int64_t m_ahead = 0;             // bytes to an element to be read soon
};

struct MCPyIter {
  PyObject_HEAD MCppPyIter* mcppPyIter;  // owned
};

extern "C" {
PyObject* MCPyArray_GetIter(PyObject* self);
PyObject* MCPyIter_GetIter(PyObject* self);  // an iterator is its own iterator
PyObject* MCPyIter_GetIterNext(PyObject* self);
void MCPyIter_Delete(PyObject* self);
}
