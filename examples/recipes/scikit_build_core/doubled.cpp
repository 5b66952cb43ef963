#include <velmar/client.hpp>  // first: it includes Python.h

#include <cstdint>
#include <exception>
#include <memory>
#include <new>

namespace vd = foundation::velmardata;

namespace {

std::optional<velmar::Client> client;  // set when the module is imported

// Returns the array, if it holds real doubles. Empty with the Python error set if not.
std::optional<vd::TypedArray<double>> takeDoubles(PyObject* object) {
  vd::Array array = client->fromPython(object);
  if (array.impl() == nullptr) return std::nullopt;  // the Python error is set
  if (array.getType() != vd::ArrayType::DOUBLE) {
    PyErr_SetString(PyExc_TypeError, "expected real doubles");
    return std::nullopt;
  }
  return vd::TypedArray<double>(std::move(array));
}

PyObject* doubled(PyObject* object) {
  std::optional<vd::TypedArray<double>> numbers = takeDoubles(object);
  if (!numbers) return nullptr;
  const std::uint64_t count = numbers->getNumberOfElements();
  // begin() for writing copies the elements first, because Python's array has them as well.
  double* element = std::to_address(numbers->begin());
  for (std::uint64_t i = 0; i < count; ++i) element[i] *= 2;
  return client->toPython(std::move(*numbers));
}

// Calls a function and turns its C++ exceptions into Python errors.
template <PyObject* (*function)(PyObject*)>
PyObject* guarded(PyObject*, PyObject* object) {
  try {
    return function(object);
  } catch (const std::bad_alloc&) {
    return PyErr_NoMemory();
  } catch (const std::exception& error) {
    PyErr_SetString(PyExc_RuntimeError, error.what());
    return nullptr;
  }
}

PyMethodDef functions[] = {{"doubled", guarded<doubled>, METH_O, nullptr},
                           {nullptr, nullptr, 0, nullptr}};
PyModuleDef definition = {
    PyModuleDef_HEAD_INIT, "doubled", nullptr, -1, functions, nullptr, nullptr, nullptr, nullptr};

}  // namespace

PyMODINIT_FUNC PyInit_doubled() {
  client = velmar::Client::load();
  if (!client) return nullptr;
  return PyModule_Create(&definition);
}
