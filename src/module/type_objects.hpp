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

// Remembers the slots through which items of a class are read, to be called when the class is made.
void rememberItems(SupportedArrayEnum arrayClass);
// Whether items are still read through these slots. A program redefines them by assigning
// __getitem__ or __len__ to the class.
bool hasOwnItems(SupportedArrayEnum arrayClass);

struct ArrayArray {
  static PyObject* s_arrayClass;   // the class array.array; owned
  static PyObject* s_arrayModule;  // always null; kept because its name is published
};
