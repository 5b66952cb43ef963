// The specs from which the Python classes are made.
#pragma once

#include <array>

#include "module/element_types.hpp"
#include "module/python.hpp"

// In the order of SupportedArrayEnum.
extern const std::array<PyType_Spec*, numberOfArrayClasses> TypeSpecPointers;
// The attributes of the module that hold the classes, in the same order, and a null.
extern const std::array<const char*, numberOfArrayClasses + 1> MCPyArrayTypeNames;

extern PyType_Spec MCPyIterTypeSpec;
