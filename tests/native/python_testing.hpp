// What the tests of the module share: Python values and errors, arrays of samples, views of them.
#pragma once

#include "module/python.hpp"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "module/element_types.hpp"
#include "module/py_ref.hpp"
#include "storage/index_items.hpp"
#include "storage/mcpp_py_array.hpp"
#include "storage/mcpy_array.hpp"
#include "velmardata_testing.hpp"

namespace python_testing {

using velmardata_testing::AllTypes;
using velmardata_testing::Dimensions;
using velmardata_testing::sample;
using velmardata_testing::sampleArray;
using velmardata_testing::WritableTypes;

#define X(name, number, enumerator, type, ...) , type
using ClassTypes = velmardata_testing::TypesOf<void VELMARDATA_FOR_EACH_CLASS_TYPE(X)>::type;
#undef X

// Names a typed test by the word of its element type: ReadElement/complex_int8.
struct TypeWords {
  template <class T>
  static std::string GetName(int /*index*/) {
    if constexpr (std::is_same_v<T, char16_t>) {
      return "char16_t";
    } else {
      return std::string(isComplexElement<T> ? "complex_" : "") + typeWord<T>;
    }
  }
};

// --- Python values

// str() or repr() of an object that is not null.
inline std::string textOf(PyObject* object, PyObject* (*form)(PyObject*) = PyObject_Str) {
  const PyRef text = PyRef::steal(form(object));
  Py_ssize_t length = 0;
  const char* bytes = text ? PyUnicode_AsUTF8AndSize(text.get(), &length) : nullptr;
  if (bytes == nullptr) throw std::runtime_error("object has no text");
  return std::string(bytes, static_cast<std::size_t>(length));
}
inline std::string reprOf(const PyRef& object) {
  return object ? textOf(object.get(), PyObject_Repr) : "null";
}

struct Name {
  const char* name;
  const PyRef& object;
};

// The value of a Python expression in which the names given stand for the objects given. Throws,
// which fails the test, if there is none.
inline PyRef evaluate(const std::string& expression, std::initializer_list<Name> names = {}) {
  const PyRef scope = PyRef::steal(PyDict_New());
  PyDict_SetItemString(scope.get(), "__builtins__", PyEval_GetBuiltins());
  for (const Name& name : names) {
    PyDict_SetItemString(scope.get(), name.name, name.object.get());
  }
  const PyRef code = PyRef::steal(Py_CompileString(expression.c_str(), "test", Py_eval_input));
  if (!code) throw std::invalid_argument("is no expression: " + expression);
  PyRef value = PyRef::steal(PyEval_EvalCode(code.get(), scope.get(), scope.get()));
  if (!value) throw std::invalid_argument("has no value: " + expression);
  return value;
}

// --- Errors

struct PythonError {
  PyRef type;  // null if no error was set
  std::string text;
};

// Takes the pending error away.
inline PythonError takeError() {
  PyObject* raw[3] = {};
  PyErr_Fetch(&raw[0], &raw[1], &raw[2]);
  PyErr_NormalizeException(&raw[0], &raw[1], &raw[2]);
  const PyRef value = PyRef::steal(raw[1]);
  const PyRef traceback = PyRef::steal(raw[2]);
  return {PyRef::steal(raw[0]), value ? textOf(value.get()) : ""};
}

// Whether exactly this error is pending, which it is not any more afterwards.
inline testing::AssertionResult raised(PyObject* exceptionClass, const std::string& text) {
  const PythonError error = takeError();
  if (!error.type) return testing::AssertionFailure() << "no error is set; expected: " << text;
  if (error.type.get() == exceptionClass && error.text == text) return testing::AssertionSuccess();
  return testing::AssertionFailure()
         << "the error is " << textOf(error.type.get()) << "\n  " << error.text
         << "\nexpected: " << textOf(exceptionClass) << "\n  " << text;
}
// The same for an error of the interpreter's own, whose words are its business.
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

// --- Arrays and views

// The class that an array of elements T belongs to. There is none for characters; their views are
// labelled with the first, as nothing looks at the label.
template <class T>
constexpr SupportedArrayEnum classOfElement() {
  if constexpr (std::is_same_v<T, char16_t>) {
    return SupportedArrayEnum::Double;
  } else {
    return classOf<Part<T>>;
  }
}

using ViewPointer = std::unique_ptr<MCppPyArray>;

// A fresh array; its elements are the samples in storage order, for double 1.0, 2.0, 3.0 ...
template <class T>
ViewPointer makeArray(const Dimensions& dimensions) {
  return std::make_unique<MCppPyArray>(sampleArray<T>(dimensions), classOfElement<T>(),
                                       isComplexElement<T>, true);
}

// A weak view whose storage has gone.
template <class T>
ViewPointer makeExpiredView(const Dimensions& dimensions) {
  const ViewPointer owner = makeArray<T>(dimensions);
  return std::make_unique<MCppPyArray>(*owner, true);
}

// A view without storage: the strong copy of a weak view.
template <class T>
ViewPointer makeViewWithoutStorage(const Dimensions& dimensions) {
  const ViewPointer owner = makeArray<T>(dimensions);
  MCppPyArray weak(*owner, true);
  return std::make_unique<MCppPyArray>(weak, false);
}

// The view as a Python object.
inline PyRef makeRecord(ViewPointer view) {
  PyRef record = PyRef::steal(view->allocMCPyArrayFromMCppPyArray());
  getMCPyArrayFromPyObject(record.get())->mcppPyArray = view.release();
  return record;
}
inline MCppPyArray& viewOf(const PyRef& record) {
  return *getMCPyArrayFromPyObject(record.get())->mcppPyArray;
}

// --- Index items, and what is in them

inline SliceIndexItem slice(std::int64_t start, std::int64_t stop, std::int64_t step,
                            std::int64_t length) {
  return {start, stop, step, length, true};
}

inline std::string describe(const std::optional<std::int64_t>& number) {
  return number ? std::to_string(*number) : "-";
}
// "start:stop:step/length", with a dash for what is empty and "?" behind an item that was not
// normalised.
inline std::string describe(const SliceIndexItem& item) {
  return describe(item.m_start) + ":" + describe(item.m_stop) + ":" + describe(item.m_step) + "/" +
         describe(item.m_slice_len) + (item.m_isNormalized ? "" : "?");
}
inline std::string describe(const IntegerIndexItem& item) {
  return std::to_string(item.m_index) + (item.m_isNormalized ? "" : "?");
}
inline std::string describe(const IndexVariant& item) {
  return std::visit([](const auto& alternative) { return describe(alternative); }, item);
}
// The items of a chain with a blank between them.
inline std::string describe(const IndexChain& chain) {
  std::string text;
  for (const IndexVariant& item : chain) {
    if (!text.empty()) text += ' ';
    text += describe(item);
  }
  return text;
}

inline std::vector<std::int64_t> entriesOf(const Position& position) {
  return {position.begin(), position.end()};
}

}  // namespace python_testing
