// toarray(): the numbers of a view as an array.array.
#include "module/py_ref.hpp"
#include "module/support.hpp"
#include "module/type_objects.hpp"
#include "operations/handlers.hpp"
#include "storage/mcpy_array.hpp"

namespace {

// array.array has no letter for logical elements; they go out as bytes.
int typecodeOf(SupportedArrayEnum type) {
  if (type == SupportedArrayEnum::Logical) type = SupportedArrayEnum::UInt8;
  return TypeAsChar[static_cast<std::size_t>(type)];
}

}  // namespace

PyObject* MCPyArray_ToArrayArray(PyObject* self, PyObject*) {
  const MCppPyArray* view = getInitializedView(self);
  if (view == nullptr) return nullptr;
  const PyRef iterator = PyRef::steal(MCPyArray_GetIter(self));
  if (!iterator) return nullptr;
  const PyRef arguments =
      PyRef::steal(Py_BuildValue("CO", typecodeOf(view->getSupportedArrayEnum()), iterator.get()));
  if (!arguments) {
    printAndClearErrorIfAny();
    setError(PyExc_RuntimeError, "unable to set arg tuple.");
    return nullptr;
  }
  PyObject* array = ArrayArray::s_arrayClass == nullptr
                        ? nullptr
                        : PyObject_CallObject(ArrayArray::s_arrayClass, arguments.get());
  if (array != nullptr) return array;
  printAndClearErrorIfAny();
  const std::int64_t left = view->getNumberOfDimensions() - view->getNumberOfIntegerIndicesSoFar();
  setError(PyExc_RuntimeError, left == 1
                                   ? "toarray() failed."
                                   : "toarray() can be called only on a one-dimensional sequence.");
  return nullptr;
}
