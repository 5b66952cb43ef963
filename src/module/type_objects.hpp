// The Python objects that the module creates at import and keeps until the process ends.
#pragma once

#include <array>

#include "module/element_types.hpp"
#include "module/python.hpp"

// The eleven classes in the order of SupportedArrayEnum. Owned references; null for a class that
// could not be made. Every array is created through this table.
extern std::array<PyTypeObject*, numberOfArrayClasses> TypeObjectPointers;
extern PyTypeObject* MCPyIterTypeObj;

inline PyTypeObject* typeObjectOf(SupportedArrayEnum arrayClass) {
  return TypeObjectPointers[static_cast<std::size_t>(arrayClass)];
}

struct ArrayArray {
  static PyObject* s_arrayClass;   // the class array.array; owned
  static PyObject* s_arrayModule;  // always null; kept because its name is published
};
