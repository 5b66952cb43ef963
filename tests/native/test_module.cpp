// The test extension TEST_MODULE (the build defines the name). Its one function runs all tests.
#include "module/python.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "module/py_ref.hpp"
#include "python_values.hpp"

#define TEXT(word) #word
#define TEXT_OF(word) TEXT(word)
#define JOINED(first, second) first##second
#define ENTRY_POINT_OF(module) JOINED(PyInit_, module)

namespace {

constexpr const char* moduleName = TEXT_OF(TEST_MODULE);

std::string textOrPlaceholder(PyObject* object) {
  return python_testing::findTextOf(object).value_or("(no text)");
}

// Fails a test that leaves a Python error pending, and clears the error for the next test.
class PendingErrorListener final : public testing::EmptyTestEventListener {
  void OnTestEnd(const testing::TestInfo& /*test*/) override {
    if (PyErr_Occurred() == nullptr) {
      return;
    }
    PyObject* raw[3] = {};
    PyErr_Fetch(&raw[0], &raw[1], &raw[2]);
    const PyRef type = PyRef::steal(raw[0]);
    const PyRef value = PyRef::steal(raw[1]);
    const PyRef traceback = PyRef::steal(raw[2]);
    ADD_FAILURE() << "a Python error is left pending: " << textOrPlaceholder(type.get()) << ": "
                  << textOrPlaceholder(value.get());
  }
};

// run(list of str) -> int: runs the tests with GoogleTest's options and returns its exit status.
PyObject* run(PyObject* /*module*/, PyObject* options) {
  std::vector<std::string> words{moduleName};
  const Py_ssize_t count = PyList_Size(options);
  if (count < 0) {
    return nullptr;
  }
  for (Py_ssize_t i = 0; i < count; ++i) {
    words.push_back(textOrPlaceholder(PyList_GetItem(options, i)));
  }
  std::vector<char*> argv;
  for (std::string& word : words) {
    argv.push_back(word.data());
  }
  argv.push_back(nullptr);
  int argc = static_cast<int>(words.size());
  testing::InitGoogleTest(&argc, argv.data());
  if (argc != 1) {
    PyErr_Format(PyExc_ValueError, "unknown option: %s", argv[1]);
    return nullptr;
  }
  testing::UnitTest::GetInstance()->listeners().Append(new PendingErrorListener);
  return PyLong_FromLong(RUN_ALL_TESTS());
}

PyMethodDef s_methods[] = {
    {"run", run, METH_O, "Runs all tests with a list of options; returns the exit status."},
    {nullptr, nullptr, 0, nullptr},
};

PyModuleDef s_definition = {
    PyModuleDef_HEAD_INIT,
    moduleName,
    "Native tests.",
    -1,
    s_methods,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
};

}  // namespace

PyMODINIT_FUNC ENTRY_POINT_OF(TEST_MODULE)() {
  return PyModule_Create(&s_definition);
}
