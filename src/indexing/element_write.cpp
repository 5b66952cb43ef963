// Instances of the assignments.
#include "indexing/element_write_impl.hpp"

#define X(name, number, enumerator, type, ...) \
  template int MCPyArray_SetViaIndex<type>(PyObject*, PyObject*, PyObject*);
VELMARDATA_FOR_EACH_CLASS_TYPE(X)
#undef X
#define X(name, number, type)                                                    \
  template bool MCppPyArray::setElementFromIndices<type>(const Position&, type); \
  template bool MDArrayWrapper::setElementFromIndices<type>(const Position&, type);
VELMARDATA_FOR_EACH_CLASS_ELEMENT_TYPE(X)
#undef X
