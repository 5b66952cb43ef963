// Storage of the tables of Python objects.
#include "module/type_objects.hpp"

std::array<PyTypeObject*, numberOfArrayClasses> TypeObjectPointers = {};
PyTypeObject* MCPyIterTypeObj = nullptr;
PyObject* ArrayArray::s_arrayClass = nullptr;
PyObject* ArrayArray::s_arrayModule = nullptr;
