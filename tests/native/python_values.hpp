// Shared by the tests that use Python: values of expressions, texts of objects, errors.
#pragma once

#include "module/python.hpp"

#include <gtest/gtest.h>

#include <cstddef>
#include <initializer_list>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "module/py_ref.hpp"

namespace python_testing {

// --- Python values

// str() or repr() of an object. Empty, with no error set, for null and for an object without one.
inline std::optional<std::string> findTextOf(PyObject* object,
                                             PyObject* (*form)(PyObject*) = PyObject_Str) {
  const PyRef text = PyRef::steal(object == nullptr ? nullptr : form(object));
  Py_ssize_t length = 0;
  const char* bytes = text ? PyUnicode_AsUTF8AndSize(text.get(), &length) : nullptr;
  if (bytes != nullptr) return std::string(bytes, static_cast<std::size_t>(length));
  PyErr_Clear();
  return std::nullopt;
}
// The same for an object that has a text. Throws if it has none, and so fails the test.
inline std::string textOf(PyObject* object, PyObject* (*form)(PyObject*) = PyObject_Str) {
  std::optional<std::string> text = findTextOf(object, form);
  if (!text) throw std::runtime_error("object has no text");
  return *std::move(text);
}
inline std::string reprOf(const PyRef& object) {
  return object ? textOf(object.get(), PyObject_Repr) : "null";
}

struct Name {
  const char* name;
  const PyRef& object;
};

// The value of a Python expression, in which each of the names is bound to its object. Throws if
// the expression fails, and so fails the test.
inline PyRef evaluate(const std::string& expression, std::initializer_list<Name> names = {}) {
  const PyRef scope = PyRef::steal(PyDict_New());
  PyDict_SetItemString(scope.get(), "__builtins__", PyEval_GetBuiltins());
  for (const Name& name : names) {
    PyDict_SetItemString(scope.get(), name.name, name.object.get());
  }
  const PyRef code = PyRef::steal(Py_CompileString(expression.c_str(), "test", Py_eval_input));
  if (!code) throw std::invalid_argument("not an expression: " + expression);
  PyRef value = PyRef::steal(PyEval_EvalCode(code.get(), scope.get(), scope.get()));
  if (!value) throw std::invalid_argument("has no value: " + expression);
  return value;
}

// --- Errors

struct PythonError {
  PyRef type;  // null if no error was set
  std::string text;
};

// Returns the pending error and clears it.
inline PythonError takeError() {
  PyObject* raw[3] = {};
  PyErr_Fetch(&raw[0], &raw[1], &raw[2]);
  PyErr_NormalizeException(&raw[0], &raw[1], &raw[2]);
  const PyRef value = PyRef::steal(raw[1]);
  const PyRef traceback = PyRef::steal(raw[2]);
  return {PyRef::steal(raw[0]), value ? textOf(value.get()) : ""};
}

// Whether exactly this error was pending. Clears it.
inline testing::AssertionResult raised(PyObject* exceptionClass, const std::string& text) {
  const PythonError error = takeError();
  if (!error.type) return testing::AssertionFailure() << "no error is set; expected: " << text;
  if (error.type.get() == exceptionClass && error.text == text) return testing::AssertionSuccess();
  return testing::AssertionFailure()
         << "the error is " << textOf(error.type.get()) << "\n  " << error.text
         << "\nexpected: " << textOf(exceptionClass) << "\n  " << text;
}
// The same for an error that the interpreter words itself, in ways that differ between versions.
inline testing::AssertionResult raisedOwn(PyObject* exceptionClass) {
  const PythonError error = takeError();
  if (error.type.get() == exceptionClass) return testing::AssertionSuccess();
  return testing::AssertionFailure()
         << (error.type ? textOf(error.type.get()) : "no error") << ": " << error.text;
}
inline testing::AssertionResult raisedNothing() {
  const PythonError error = takeError();
  if (!error.type) return testing::AssertionSuccess();
  return testing::AssertionFailure() << textOf(error.type.get()) << ": " << error.text;
}
inline testing::AssertionResult raisedExpired() {
  return raised(PyExc_RuntimeError, "locked shared pointer is null.");
}

}  // namespace python_testing
