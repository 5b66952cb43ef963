// Comparison: of memory and lengths where that is the same, else by two iterators.
#include "operations/comparison.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iostream>
#include <optional>
#include <span>

#include "elements/equality.hpp"
#include "module/dimensions.hpp"
#include "module/py_ref.hpp"
#include "module/support.hpp"
#include "operations/handlers.hpp"
#include "operations/iterator.hpp"
#include "storage/mcpy_array.hpp"

namespace {

// Whether two numbers are equal; empty with an error set.
std::optional<bool> numbersAreEqual(PyObject* x, PyObject* y) {
  const int result = PyObject_RichCompareBool(x, y, Py_EQ);
  if (result == 0 || result == 1) return result == 1;
  std::cout << "PyObject_RichCompareBool() generated an error.\n" << std::flush;
  return std::nullopt;
}

// The lengths of a view without elements. Empty, with no error set, for
// other views, and for those whose walk their lengths do not tell.
std::optional<Lengths> findLengthsWithoutElements(const MCppPyArray& view) {
  const MDArrayWrapper* storage = view.findWrapper();
  if (storage == nullptr) return std::nullopt;
  const std::span<const std::int64_t> shape = storage->shape();
  const std::size_t first = view.chain().integers().size();
  if (first >= shape.size()) return std::nullopt;
  Lengths lengths(shape.begin() + static_cast<std::ptrdiff_t>(first), shape.end());
  if (const SliceIndexItem* slice = view.chain().finalSlice()) {
    if (!slice->m_isNormalized) return std::nullopt;
    const std::int64_t count = slice->numberOfValues();
    const std::int64_t last = count == 0 ? *slice->m_stop : slice->valueAt(count - 1);
    if (count != *slice->m_slice_len || *slice->m_start < 0 || last < 0) return std::nullopt;
    lengths.front() = count;
  }
  if (std::find(lengths.begin(), lengths.end(), 0) == lengths.end()) return std::nullopt;
  return lengths;
}

// The lengths of the box of a view, or of a view without elements. Empty as above.
std::optional<Lengths> findLengths(const MCppPyArray& view, const std::optional<Box>& box) {
  if (!box) return findLengthsWithoutElements(view);
  Lengths lengths;
  for (const Lane& lane : box->lanes) lengths.push_back(lane.count);
  return lengths;
}

// Whether walks along these lengths, at least one of which has a 0, yield the same.
bool emptyWalksAreEqual(const Lengths& a, const Lengths& b) {
  for (std::size_t k = 0;; ++k) {
    if (a[k] != b[k]) return false;
    if (a[k] == 0) return true;                                // nothing behind it is looked at
    if (k + 1 == a.size() || k + 1 == b.size()) return false;  // a number beside a row
  }
}

// Compares without a walk: elements in memory, or lengths where there are no elements. Empty, with
// no error set, when that is not possible; the walks then decide.
std::optional<bool> tryCompareWithoutWalk(const MCppPyArray& self, const MCppPyArray& other) {
  if (PyErr_Occurred() != nullptr) return std::nullopt;
  const std::optional<Box> a = findBox(self);
  const std::optional<Box> b = findBox(other);
  if (a && b) return haveSameCounts(a->lanes, b->lanes) && areEqual(*a, *b);
  const std::optional<Lengths> lengthsA = findLengths(self, a);
  if (!lengthsA) return std::nullopt;
  const std::optional<Lengths> lengthsB = findLengths(other, b);
  if (!lengthsB) return std::nullopt;
  return emptyWalksAreEqual(*lengthsA, *lengthsB);
}

// The levels of rows that walks may have. Each takes some of the stack, and the interpreter's own
// limit would let them fill it.
constexpr int deepest = 1000;

// `level` counts the comparisons around this one, and this one.
std::optional<bool> areEqualAtLevel(const MCppPyArray& self, const MCppPyArray& other, int level) {
  if (self.getSupportedArrayEnum() != other.getSupportedArrayEnum()) return false;
  if (const auto areEqual = tryCompareWithoutWalk(self, other)) return areEqual;
  const RecursionGuard guard(" while comparing arrays");
  if (!guard) return std::nullopt;
  if (level > deepest) {
    setError(PyExc_RecursionError, "maximum recursion depth exceeded while comparing arrays");
    return std::nullopt;
  }
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
      const auto rowsAreEqual =
          areEqualAtLevel(*getMCPyArrayFromPyObject(x.get())->mcppPyArray,
                          *getMCPyArrayFromPyObject(y.get())->mcppPyArray, level + 1);
      if (!rowsAreEqual.value_or(false)) return false;
    } else {
      const std::optional<bool> areEqual = numbersAreEqual(x.get(), y.get());
      if (!areEqual || !*areEqual) return areEqual;
    }
  }
}

}  // namespace

std::optional<bool> isEqualTo(const MCppPyArray& self, const MCppPyArray& other) {
  return areEqualAtLevel(self, other, 1);
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
