// Birth and death of the Python record.
#include "storage/mcpy_array.hpp"

#include "module/support.hpp"

PyObject* allocMCPyArray(PyTypeObject* type) {
  PyObject* record = nullptr;
  if (type != nullptr) {
    const auto alloc = reinterpret_cast<allocfunc>(PyType_GetSlot(type, Py_tp_alloc));
    record = alloc(type, 0);
  }
  if (record == nullptr) setError(PyExc_RuntimeError, messages::cannotInitializeObject);
  return record;
}

bool MCPyArray_Check(PyObject* object) {
  PyTypeObject* type = Py_TYPE(object);
  return type != nullptr &&
         PyType_GetSlot(type, Py_tp_dealloc) == reinterpret_cast<void*>(MCPyArray_Delete);
}

// Deliberate: the record goes by PyObject_Free and its reference on the class stays behind.
void MCPyArray_Delete(PyObject* object) {
  delete getMCPyArrayFromPyObject(object)->mcppPyArray;
  PyObject_Free(object);
}
