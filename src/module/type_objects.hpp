// The Python objects of the module, created at import and kept until the process ends.
#pragma once

#include <array>

#include "module/element_types.hpp"
#include "module/python.hpp"

// The eleven classes in the order of SupportedArrayEnum; an entry is null when its class could not
// be made. Owned references. Every creation of an array goes through this table.
extern std::array<PyTypeObject*, numberOfArrayClasses> TypeObjectPointers;
extern PyTypeObject* MCPyIterTypeObj;

inline PyTypeObject* typeObjectOf(SupportedArrayEnum arrayClass) {
  return TypeObjectPointers[static_cast<std::size_t>(arrayClass)];
}

struct ArrayArray {
  static PyObject* s_arrayClass;   // the class array.array; owned
  static PyObject* s_arrayModule;  // always null
};
