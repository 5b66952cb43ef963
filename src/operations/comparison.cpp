// Comparison: of memory where that is the same, else by two iterators side by side.
#include "operations/comparison.hpp"

#include <iostream>
#include <optional>

#include "elements/equality.hpp"
#include "module/py_ref.hpp"
#include "module/support.hpp"
#include "operations/handlers.hpp"
#include "operations/iterator.hpp"
#include "storage/mcpy_array.hpp"

namespace {

// One level of a comparison of rows. Each level keeps two walks on the stack, with a shape and a
// chain of their own. The interpreter's own limit would let them fill the stack.
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

// Whether two numbers are equal; empty with an error set.
std::optional<bool> numbersAreEqual(PyObject* x, PyObject* y) {
  const int result = PyObject_RichCompareBool(x, y, Py_EQ);
  if (result == 0 || result == 1) return result == 1;
  std::cout << "PyObject_RichCompareBool() generated an error.\n" << std::flush;
  return std::nullopt;
}

// Compares elements in memory. Empty, with no error set, when they cannot be had so; the walks then
// decide.
std::optional<bool> tryCompareMemory(const MCppPyArray& self, const MCppPyArray& other) {
  if (PyErr_Occurred() != nullptr) return std::nullopt;
  const std::optional<Box> a = findBox(self);
  if (!a) return std::nullopt;
  const std::optional<Box> b = findBox(other);
  if (!b) return std::nullopt;
  return haveSameCounts(a->lanes, b->lanes) && areEqual(*a, *b);
}

}  // namespace

std::optional<bool> isEqualTo(const MCppPyArray& self, const MCppPyArray& other) {
  if (self.getSupportedArrayEnum() != other.getSupportedArrayEnum()) return false;
  if (const auto areEqualInMemory = tryCompareMemory(self, other)) return areEqualInMemory;
  const RecursionGuard guard(" while comparing arrays");
  const Level level;
  if (!guard || !level.isAllowed()) return std::nullopt;
  MCppPyIter first(&self);
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
      // Deliberate: an error in a row makes the arrays unequal here; the handler reports the error.
      const auto rowsAreEqual = isEqualTo(*getMCPyArrayFromPyObject(x.get())->mcppPyArray,
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
  const MCppPyArray* view = getInitializedView(self);
  if (view == nullptr) return nullptr;
  if (op != Py_EQ && op != Py_NE) {
    setError(PyExc_NotImplementedError, "inequality operators not supported.");
    return nullptr;
  }
  std::optional<bool> areEqual = false;
  if (MCPyArray_Check(other)) {
    const MCppPyArray* otherView = getInitializedView(other);
    if (otherView == nullptr) return nullptr;
    areEqual = isEqualTo(*view, *otherView);
  }
  if (!areEqual || PyErr_Occurred() != nullptr) return nullptr;
  return PyBool_FromLong(*areEqual == (op == Py_EQ) ? 1 : 0);
}

template PyObject* MCPyArray_RichCompare<double>(PyObject*, PyObject*, int);
