// The module's entry point: fetches array.array and makes the classes, the exceptions and the
// capsule.
#include <iostream>

#include "module/entry/capsule.hpp"
#include "module/entry/type_specs.hpp"
#include "module/py_ref.hpp"
#include "module/support.hpp"
#include "module/type_objects.hpp"

namespace {

constexpr int apiVersion = 1013;

PyMethodDef noFunctions[] = {{nullptr, nullptr, 0, nullptr}};
PyModuleDef moduleDefinition = {PyModuleDef_HEAD_INIT,
                                "velmarmultidimarrayforpython",
                                "velmarmultidimarrayforpython",
                                -1,
                                noFunctions,
                                nullptr,
                                nullptr,
                                nullptr,
                                nullptr};

// Gives an object to the module under a name. The result is ignored: a module that lacks a name is
// returned with what it has. The module takes over the reference; if it does not, the reference
// stays, because the tables point at the object.
void publish(PyObject* module, const char* name, PyRef&& object) {
  if (module != nullptr && object) PyModule_AddObject(module, name, object.get());
  keepForever(std::move(object));
}

// Deliberate: a failure leaves its error pending beside the module, so that the interpreter gets
// both and refuses the import in its own words.
void fetchArrayClass() {
  PyRef arrayModule = PyRef::steal(PyImport_ImportModule("array"));
  if (!arrayModule) {
    setError(PyExc_RuntimeError, "unable to import array module.");
    return;
  }
  ArrayArray::s_arrayClass = PyObject_GetAttrString(arrayModule.get(), "array");
  keepForever(std::move(arrayModule));  // deliberate: the class must outlive sys.modules
  if (ArrayArray::s_arrayClass == nullptr) {
    setError(PyExc_RuntimeError, "unable to retrieve array.array class.");
    return;
  }
  if (PyCallable_Check(ArrayArray::s_arrayClass) == 0) {
    setError(PyExc_RuntimeError, "array.array class is not callable.");
    const PyRef given = PyRef::steal(ArrayArray::s_arrayClass);  // the pointer stays as it is
  }
}

// Makes and publishes one class; null with an error set.
PyTypeObject* makeClass(PyObject* module, PyType_Spec* spec, const char* name,
                        PyTypeObject*& place) {
  place = reinterpret_cast<PyTypeObject*>(PyType_FromSpec(spec));
  publish(module, name, PyRef::borrow(reinterpret_cast<PyObject*>(place)));
  return place;
}

PyObject* init_types(PyObject* module) {
  if (module == nullptr) {
    std::cerr << "Could not initialize module." << '\n' << std::flush;
    return nullptr;
  }
  for (std::size_t i = 0; i < numberOfArrayClasses; ++i) {
    if (makeClass(module, TypeSpecPointers[i], MCPyArrayTypeNames[i], TypeObjectPointers[i]) ==
        nullptr) {
      std::cerr << "Could not initialize type." << '\n' << std::flush;
      return nullptr;
    }
    rememberItems(static_cast<SupportedArrayEnum>(i));
  }
  if (makeClass(module, &MCPyIterTypeSpec, "MCPyIter", MCPyIterTypeObj) == nullptr) {
    std::cerr << "Could not initialize MCPyIter_Type." << '\n' << std::flush;
    return nullptr;
  }
  return module;
}

// Makes and publishes an exception class. The result is borrowed from the module.
PyObject* makeException(PyObject* module, const char* dottedName, const char* name) {
  PyObject* exception = PyErr_NewException(dottedName, nullptr, nullptr);
  publish(module, name, PyRef::steal(exception));
  return exception;
}

}  // namespace

PyMODINIT_FUNC PyInit_velmarmultidimarrayforpython() {
  fetchArrayClass();
  PyObject* module = PyModule_Create2(&moduleDefinition, apiVersion);
  init_types(module);
  MCPyError::shapeErr = makeException(module, "vlexceptions.ShapeError", "ShapeError");
  MCPyError::sizeErr = makeException(module, "vlexceptions.SizeError", "SizeError");
  PyRef capsule = PyRef::steal(makeCapsule());
  if (!capsule) {
    const PyRef given = PyRef::steal(module);
    return nullptr;
  }
  publish(module, "_capi", std::move(capsule));
  return module;
}
