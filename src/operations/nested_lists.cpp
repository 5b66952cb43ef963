// Bodies of the nested lists, and their instances.
#include "operations/nested_lists.hpp"

#include <algorithm>
#include <array>
#include <complex>
#include <cstring>

#include "indexing/element_read.hpp"
#include "module/apply_visitor.hpp"
#include "module/element_to_number.hpp"
#include "module/py_ref.hpp"
#include "module/support.hpp"

namespace vd = foundation::velmardata;

namespace {

// What a null element does to the walk. Deliberate: the two levels of lists differ, since the inner
// one leaves the report to its callers.
enum class OnNull { Store, Stop };

// A run of positions in one dimension.
struct Run {
  std::int64_t start;
  std::int64_t step;
  std::int64_t count;
};

// Copies the elements at the positions `fixed` with the run's indices behind them. False when the
// storage has expired (an error is set) or an element lies outside the mirror (no error is set).
template <class T>
bool tryCopyRun(const MCppPyArray& view, Position& fixed, const Run& run, T* elements) {
  const WrapperAccess storage = view.wrapper();
  if (!storage) return false;
  fixed.push_back(run.start);
  const std::byte* first = findElement(*storage, fixed);
  // If this position were one later, a run at the end of the storage would be read one element at a
  // time, which gives the same list, so no test detects a change of `1` to `0`.
  fixed.back() = run.start + (run.count - 1) * run.step;
  const std::byte* last = findElement(*storage, fixed);
  const std::size_t dimension = fixed.size() - 1;
  fixed.pop_back();
  if (first == nullptr || last == nullptr) return false;
  const std::int64_t bytes = run.step * storage->bytewiseStrides()[dimension];
  for (std::int64_t k = 0; k < run.count; ++k, first += bytes) {
    std::memcpy(elements + k, first, sizeof(T));
  }
  return true;
}

// False with the error of a signal's handler set.
bool countIn(SignalWatch* signals, std::int64_t elements) {
  return signals == nullptr || signals->count(elements);
}

// Takes the item. False with RuntimeError set.
bool setListItem(PyObject* list, std::int64_t place, PyObject* item) {
  if (PyList_SetItem(list, place, item) == 0) return true;
  setError(PyExc_RuntimeError, "unable to set list item.");
  return false;
}

// Fills the list from the run. Elements are copied in blocks before objects are made of them,
// because making an object can run code that changes or drops the storage. False with an error set,
// except for a null element that no error explains.
template <class T>
bool fillWithElements(const MCppPyArray& view, Position& fixed, Run run, OnNull onNull,
                      PyObject* list, SignalWatch* signals) {
  std::array<T, 256> elements;
  const auto blockSize = static_cast<std::int64_t>(elements.size());
  for (std::int64_t place = 0; run.count > 0;) {
    if (!countIn(signals, std::min(run.count, blockSize))) return false;
    const Run block = {run.start, run.step, std::min(run.count, blockSize)};
    const bool areCopied = tryCopyRun(view, fixed, block, elements.data());
    for (std::int64_t k = 0; k < block.count; ++k, ++place) {
      PyObject* item = nullptr;
      if (areCopied) {
        item = makeNumber(elements[static_cast<std::size_t>(k)]);
      } else {
        fixed.push_back(block.start + k * block.step);
        item = getNumericPyObjectFromNormalizedIntIndices<T>(view, fixed);
        fixed.pop_back();
      }
      if (item == nullptr && onNull == OnNull::Stop) return false;
      if (!setListItem(list, place, item)) return false;
    }
    run.start += block.count * run.step;
    run.count -= block.count;
  }
  return true;
}

struct PyObjListFromIndicesVisitor {
  const MCppPyArray& view;
  Position& indices;
  std::uint64_t dimension;

  template <class T>
  PyObject* operator()(const vd::TypedArray<T>&) const {
    return getContentsAsPyList<T>(view, indices, dimension);
  }
};

}  // namespace

template <class T>
PyObject* getContentsAsPyList(const MCppPyArray& view, Position& indices, std::uint64_t dimension,
                              SignalWatch* signals) {
  std::size_t dimensions = 0;
  std::int64_t length = 0;
  {
    const WrapperAccess storage = view.wrapper();
    if (!storage) return nullptr;
    dimensions = storage->shape().size();
    if (dimension < dimensions) length = storage->shape()[dimension];
  }
  PyRef list = PyRef::steal(PyList_New(length));
  if (!list || length == 0) return list.release();
  if (dimension + 1 == dimensions) {
    const Run run = {0, 1, length};
    const bool isFilled =
        fillWithElements<T>(view, indices, run, OnNull::Store, list.get(), signals);
    return isFilled ? list.release() : nullptr;
  }
  const RecursionGuard guard(" while making a nested list of an array");
  if (!guard) return nullptr;
  for (std::int64_t i = 0; i < length; ++i) {
    if (!countIn(signals, 1)) return nullptr;
    indices.push_back(i);
    PyObject* item = getContentsAsPyList<T>(view, indices, dimension + 1, signals);
    indices.pop_back();
    if (item == nullptr || !setListItem(list.get(), i, item)) return nullptr;
  }
  return list.release();
}

template <class T>
PyObject* getAllContentsAsPyList(const MCppPyArray& view, SignalWatch* signals) {
  Position indices = view.getIntegerIndicesSoFar();
  const SliceIndexItem* slice = view.chain().finalSlice();
  if (slice == nullptr) return getContentsAsPyList<T>(view, indices, indices.size(), signals);

  const int dimensions = view.getNumberOfDimensions();
  if (dimensions < 0) return nullptr;
  const std::int64_t count = slice->numberOfValues();
  // The step of a single position can be so large that its product overflows.
  const Run run = {*slice->m_start, count < 2 ? 1 : *slice->m_step, count};
  PyRef list = PyRef::steal(PyList_New(run.count));
  if (!list || run.count == 0) return list.release();
  const std::uint64_t next = indices.size() + 1;
  bool success = true;
  if (next == static_cast<std::uint64_t>(dimensions)) {
    success = fillWithElements<T>(view, indices, run, OnNull::Stop, list.get(), signals);
  } else {
    for (std::int64_t k = 0; success && k < run.count; ++k) {
      indices.push_back(run.start + k * run.step);
      PyObject* item =
          countIn(signals, 1) ? getContentsAsPyList<T>(view, indices, next, signals) : nullptr;
      indices.pop_back();
      success = item != nullptr && setListItem(list.get(), k, item);
    }
  }
  if (success) return list.release();
  if (signals != nullptr && signals->hasRaised()) return nullptr;
  // Deliberate: replaces the error that was set deeper, since the list is what could not be made.
  setError(PyExc_RuntimeError, "unable to set list item.");
  return nullptr;
}

PyObject* getPyListFromNormalizedIntIndicesWithoutTemplate(const MCppPyArray& view,
                                                           Position& indices,
                                                           std::uint64_t dimension) {
  vd::Array array;
  {
    const WrapperAccess storage = view.wrapper();
    if (!storage) return nullptr;
    array = storage->array();  // a handle of its own, because the walk makes objects
  }
  return applyVisitor(std::as_const(array), PyObjListFromIndicesVisitor{view, indices, dimension});
}

#define X(name, number, type) \
  template PyObject* getAllContentsAsPyList<type>(const MCppPyArray&, SignalWatch*);
VELMARDATA_FOR_EACH_ARRAY_TYPE(X)
#undef X
