// Clone and pickling.
#include "operations/pickling.hpp"

#include "module/py_ref.hpp"
#include "module/support.hpp"
#include "module/type_objects.hpp"
#include "storage/mcpy_array.hpp"

PyObject* MCPyArray_Clone(PyObject* self, PyObject*) {
  MCppPyArray* view = getInitializedView(self);
  if (view == nullptr) return nullptr;
  return view->cloneAsMCPyArray(velmar::data::MemoryLayout::Default, true);
}

PyObject* MCPyArray_Reduce(PyObject* self, PyObject*) {
  MCppPyArray* view = getInitializedView(self);
  if (view == nullptr) return nullptr;
  const PyRef dict = PyRef::steal(PyDict_New());
  if (!dict) return nullptr;
  if (view->isComplex() && PyDict_SetItemString(dict.get(), "is_complex", Py_True) < 0) {
    setError(PyExc_RuntimeError, "unable to insert 'is_complex' value into dict.");
    return nullptr;
  }
  bool success = false;
  Position indices = view->getIntegerIndicesSoFar(success);
  if (!success) return nullptr;
  const auto dimension = static_cast<std::int64_t>(indices.size());
  const PyRef list =
      PyRef::steal(view->getPyListFromNormalizedIntIndicesWithoutTemplate(indices, dimension));
  if (!list || PyErr_Occurred() != nullptr) return nullptr;
  const PyRef arguments = PyRef::steal(PyTuple_Pack(2, dict.get(), list.get()));
  if (!arguments) return nullptr;
  return PyTuple_Pack(2, reinterpret_cast<PyObject*>(typeObjectOf(view->getSupportedArrayEnum())),
                      arguments.get());
}
