// Python objects whose elements can be read as memory instead of item by item.
#pragma once

#include "elements/box.hpp"
#include "module/python.hpp"
#include "module/support.hpp"

// The elements of an array of ours, of an exact array.array or of an exact one-dimensional
// memoryview. Owns the buffer of an object that is not an array of ours; an array is borrowed from
// the caller.
class Source {
 public:
  Source();
  ~Source();

  // Looks for exactly those elements that the items of the object give one by one. False, with no
  // error set, when they cannot be had so: for other objects, without elements, with an error
  // pending, and when a program has redefined the items of the class.
  bool find(PyObject* object);

  // Valid after find() was true, until Python code may run or the storage is written to.
  const Box& box() const { return m_box; }

 private:
  bool findInArray(PyObject* object);
  bool findInBuffer(PyObject* object);

  Box m_box;
  BufferGuard m_buffer;
};
