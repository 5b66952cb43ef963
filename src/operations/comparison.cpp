// Comparison: two iterators side by side, level by level.
#include "operations/comparison.hpp"

#include <complex>
#include <iostream>
#include <optional>

#include "module/py_ref.hpp"
#include "module/support.hpp"
#include "operations/iterator.hpp"
#include "storage/mcpy_array.hpp"

namespace {

// A level below another one in a comparison of rows. Each keeps two walks alive, with a shape and a
// chain of their own, so that the interpreter's count alone would let them fill the stack.
class Level {
 public:
  Level() { ++s_levels; }
  Level(const Level&) = delete;
  Level& operator=(const Level&) = delete;
  ~Level() { --s_levels; }

  // False with RecursionError set.
  bool isAllowed() const {
    if (s_levels <= deepest) return true;
    setError(PyExc_RecursionError, "maximum recursion depth exceeded while comparing arrays");
    return false;
  }

 private:
  static constexpr int deepest = 1000;
  static thread_local int s_levels;
};
thread_local int Level::s_levels = 0;

// Two yielded numbers; empty with an error set.
std::optional<bool> numbersAreEqual(PyObject* x, PyObject* y) {
  const int result = PyObject_RichCompareBool(x, y, Py_EQ);
  if (result == 0 || result == 1) return result == 1;
  std::cout << "PyObject_RichCompareBool() generated an error.\n" << std::flush;
  return std::nullopt;
}

}  // namespace

template <class T>
std::optional<bool> MCppPyArray::isEqualTo(MCppPyArray& other) {
  if (m_supportedArrayEnum != other.m_supportedArrayEnum) return false;
  const RecursionGuard guard(" while comparing arrays");
  const Level level;
  if (!guard || !level.isAllowed()) return std::nullopt;
  MCppPyIter first(this);
  MCppPyIter second(&other);
  if (PyErr_Occurred() != nullptr) return std::nullopt;
  for (;;) {
    const PyRef x = PyRef::steal(first.increment());
    const PyRef y = PyRef::steal(second.increment());
    if (!x || !y) {
      PyErr_Clear();
      return !x && !y;
    }
    if (first.yieldsViews() != second.yieldsViews()) return false;
    if (first.yieldsViews()) {
      // An error deeper down makes the arrays unequal here; the handler reports it.
      const auto rowsAreEqual = getMCPyArrayFromPyObject(x.get())->mcppPyArray->isEqualTo<T>(
          *getMCPyArrayFromPyObject(y.get())->mcppPyArray);
      if (!rowsAreEqual.value_or(false)) return false;
    } else {
      const std::optional<bool> areEqual = numbersAreEqual(x.get(), y.get());
      if (!areEqual || !*areEqual) return areEqual;
    }
  }
}

template <class T>
PyObject* MCPyArray_RichCompare(PyObject* self, PyObject* other, int op) {
  MCppPyArray* view = getInitializedView(self);
  if (view == nullptr) return nullptr;
  if (op != Py_EQ && op != Py_NE) {
    setError(PyExc_NotImplementedError, "inequality operators not supported.");
    return nullptr;
  }
  std::optional<bool> areEqual = false;
  if (MCPyArray_Check(other)) {
    MCppPyArray* otherView = getInitializedView(other);
    if (otherView == nullptr) return nullptr;
    areEqual = view->isComplex() ? view->isEqualTo<std::complex<T>>(*otherView)
                                 : view->isEqualTo<T>(*otherView);
  }
  if (!areEqual || PyErr_Occurred() != nullptr) return nullptr;
  return PyBool_FromLong(*areEqual == (op == Py_EQ) ? 1 : 0);
}

template std::optional<bool> MCppPyArray::isEqualTo<double>(MCppPyArray&);
template std::optional<bool> MCppPyArray::isEqualTo<std::complex<double>>(MCppPyArray&);
template PyObject* MCPyArray_RichCompare<double>(PyObject*, PyObject*, int);
