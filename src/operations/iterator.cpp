// Handlers of the iterator class.
#include "operations/iterator.hpp"

#include "module/py_ref.hpp"

extern "C" PyObject* MCPyIter_GetIter(PyObject* self) {
  return PyRef::borrow(self).release();
}
