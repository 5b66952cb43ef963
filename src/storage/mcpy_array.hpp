// The Python record of an array and the functions that every handler takes it through.
#pragma once

#include "module/python.hpp"
#include "module/support.hpp"
#include "storage/mcpp_py_array.hpp"

struct MCPyArray {
  PyObject_HEAD MCppPyArray*
      mcppPyArray;  // owned; null between allocation and the end of construction
};

// A zeroed record of the class, or null with RuntimeError set.
PyObject* allocMCPyArray(PyTypeObject* type);

// True for an object of one of the eleven classes; the object must not be null.
bool MCPyArray_Check(PyObject* object);

// An unchecked cast.
inline MCPyArray* getMCPyArrayFromPyObject(PyObject* object) {
  return reinterpret_cast<MCPyArray*>(object);
}

// The guard of the handlers: the view of a record, or null with RuntimeError set when the record
// or its view is missing.
inline MCppPyArray* getInitializedView(PyObject* object) {
  MCPyArray* record = getMCPyArrayFromPyObject(object);
  if (record != nullptr && record->mcppPyArray != nullptr) return record->mcppPyArray;
  setError(PyExc_RuntimeError, messages::objectNotInitialized);
  return nullptr;
}

// The classes' destructor slot, and so the mark by which MCPyArray_Check knows them.
extern "C" void MCPyArray_Delete(PyObject* object);
