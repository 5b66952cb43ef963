// The test extension TEST_MODULE, a name from the build: its one function runs every test in it.
#include "module/python.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "module/py_ref.hpp"

#define TEXT(word) #word
#define TEXT_OF(word) TEXT(word)
#define JOINED(first, second) first##second
#define ENTRY_POINT_OF(module) JOINED(PyInit_, module)

namespace {

constexpr const char* moduleName = TEXT_OF(TEST_MODULE);

std::string textOf(PyObject* object) {
  const PyRef text = PyRef::steal(object == nullptr ? nullptr : PyObject_Str(object));
  Py_ssize_t length = 0;
  const char* bytes = text ? PyUnicode_AsUTF8AndSize(text.get(), &length) : nullptr;
  if (bytes == nullptr) {
    PyErr_Clear();
    return "(no text)";
  }
  return std::string(bytes, static_cast<std::size_t>(length));
}

// A test that leaves a Python error pending fails, and the next one starts without it.
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
    ADD_FAILURE() << "a Python error is left pending: " << textOf(type.get()) << ": "
                  << textOf(value.get());
  }
};

// run(list of str) -> int: the options of GoogleTest in, its exit status out.
PyObject* run(PyObject* /*module*/, PyObject* options) {
  std::vector<std::string> words{moduleName};
  const Py_ssize_t count = PyList_Size(options);
  if (count < 0) {
    return nullptr;
  }
  for (Py_ssize_t i = 0; i < count; ++i) {
    words.push_back(textOf(PyList_GetItem(options, i)));
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
