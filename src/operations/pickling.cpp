// Clone and pickling.
#include "module/py_ref.hpp"
#include "module/support.hpp"
#include "module/type_objects.hpp"
#include "operations/handlers.hpp"
#include "operations/materialisation.hpp"
#include "operations/nested_lists.hpp"
#include "storage/mcpy_array.hpp"

PyObject* MCPyArray_Clone(PyObject* self, PyObject*) {
  MCppPyArray* view = getInitializedView(self);
  if (view == nullptr) return nullptr;
  return cloneAsMCPyArray(*view);
}

PyObject* MCPyArray_Reduce(PyObject* self, PyObject*) {
  const MCppPyArray* view = getInitializedView(self);
  if (view == nullptr) return nullptr;
  const PyRef dict = PyRef::steal(PyDict_New());
  if (!dict) return nullptr;
  if (view->isComplex() && PyDict_SetItemString(dict.get(), "is_complex", Py_True) < 0) {
    setError(PyExc_RuntimeError, "unable to insert 'is_complex' value into dict.");
    return nullptr;
  }
  Position indices = view->getIntegerIndicesSoFar();
  const std::uint64_t dimension = indices.size();
  const PyRef list =
      PyRef::steal(getPyListFromNormalizedIntIndicesWithoutTemplate(*view, indices, dimension));
  if (!list || PyErr_Occurred() != nullptr) return nullptr;
  const PyRef arguments = PyRef::steal(PyTuple_Pack(2, dict.get(), list.get()));
  if (!arguments) return nullptr;
  return PyTuple_Pack(2, reinterpret_cast<PyObject*>(typeObjectOf(view->getSupportedArrayEnum())),
                      arguments.get());
}
