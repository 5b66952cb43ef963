// Sequences and numbers whose reading runs no Python code: exact lists and tuples, and exact
// numbers. Walks over them borrow the items and call no method for each element.
#pragma once

#include "module/python.hpp"

inline bool isPlainNumber(PyObject* object) {
  PyTypeObject* type = Py_TYPE(object);
  return type == &PyFloat_Type || type == &PyLong_Type || type == &PyBool_Type ||
         type == &PyComplex_Type;
}

class PlainSequence {
 public:
  static bool matches(PyObject* object) {
    return Py_TYPE(object) == &PyList_Type || Py_TYPE(object) == &PyTuple_Type;
  }
  explicit PlainSequence(PyObject* object)
      : m_object(object), m_isList(Py_TYPE(object) == &PyList_Type) {}

  Py_ssize_t size() const { return m_isList ? PyList_Size(m_object) : PyTuple_Size(m_object); }
  PyObject* borrowedItem(Py_ssize_t index) const {
    return m_isList ? PyList_GetItem(m_object, index) : PyTuple_GetItem(m_object, index);
  }

 private:
  PyObject* m_object;
  bool m_isList;
};
