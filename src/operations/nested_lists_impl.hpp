// Nested lists of what a view shows: the neutral form of an array's contents.
#pragma once

#include <algorithm>
#include <array>
#include <complex>
#include <cstring>

#include "indexing/element_to_number.hpp"
#include "module/py_ref.hpp"
#include "module/support.hpp"
#include "storage/mcpp_py_array.hpp"

namespace nested_lists {

// What a null element does to the walk. Deliberately so: the two levels of lists differ.
enum class OnNull { Store, Stop };

// A run of positions in one dimension.
struct Run {
  std::int64_t start;
  std::int64_t step;
  std::int64_t count;
};

// Elements at the positions `fixed` with the run's indices behind, into `elements`. False, with
// nothing said, when one of them lies outside the mirror.
template <class T>
bool copyRun(const MCppPyArray& view, Position& fixed, const Run& run, T* elements) {
  const WrapperAccess storage = view.wrapper();
  if (!storage) return false;
  fixed.push_back(run.start);
  const std::byte* first = storage->addressOfElement(fixed);
  fixed.back() = run.start + (run.count - 1) * run.step;
  const std::byte* last = storage->addressOfElement(fixed);
  const std::size_t dimension = fixed.size() - 1;
  fixed.pop_back();
  if (first == nullptr || last == nullptr) return false;
  const std::int64_t bytes = run.step * storage->bytewiseStrides()[dimension];
  for (std::int64_t k = 0; hasNumber<T> && k < run.count; ++k, first += bytes) {
    std::memcpy(elements + k, first, sizeof(T));
  }
  return true;
}

inline bool setItem(PyObject* list, std::int64_t place, PyObject* item) {
  if (PyList_SetItem(list, place, item) == 0) return true;
  setError(PyExc_RuntimeError, "unable to set list item.");
  return false;
}

// Fills the list from the run. Elements are copied out in blocks before the first Python object is
// made of them, since making an object can run code that changes or drops the storage.
template <class T>
bool fillWithElements(const MCppPyArray& view, Position& fixed, Run run, OnNull onNull,
                      PyObject* list) {
  std::array<T, 256> elements;
  const auto blockSize = static_cast<std::int64_t>(elements.size());
  for (std::int64_t place = 0; run.count > 0;) {
    const Run block = {run.start, run.step, std::min(run.count, blockSize)};
    const bool areCopied = copyRun(view, fixed, block, elements.data());
    for (std::int64_t k = 0; k < block.count; ++k, ++place) {
      PyObject* item = nullptr;
      if (areCopied) {
        if constexpr (hasNumber<T>) item = makeNumber(elements[static_cast<std::size_t>(k)]);
      } else {
        fixed.push_back(block.start + k * block.step);
        item = view.getNumericPyObjectFromNormalizedIntIndices<T>(fixed);
        fixed.pop_back();
      }
      if (item == nullptr && onNull == OnNull::Stop) return false;
      if (!setItem(list, place, item)) return false;
    }
    run.start += block.count * run.step;
    run.count -= block.count;
  }
  return true;
}

}  // namespace nested_lists

template <class T>
PyObject* MCppPyArray::getContentsAsPyList(Position& indices, std::uint64_t dimension) const {
  using namespace nested_lists;
  std::size_t dimensions = 0;
  std::int64_t length = 0;
  {
    const WrapperAccess storage = wrapper();
    if (!storage) return nullptr;
    dimensions = storage->shape().size();
    if (dimension < dimensions) length = storage->shape()[dimension];
  }
  PyRef list = PyRef::steal(PyList_New(length));
  if (!list || length == 0) return list.release();
  if (dimension + 1 == dimensions) {
    const Run run = {0, 1, length};
    return fillWithElements<T>(*this, indices, run, OnNull::Store, list.get()) ? list.release()
                                                                               : nullptr;
  }
  const RecursionGuard guard(" while making a nested list of an array");
  if (!guard) return nullptr;
  for (std::int64_t i = 0; i < length; ++i) {
    indices.push_back(i);
    PyObject* item = getContentsAsPyList<T>(indices, dimension + 1);
    indices.pop_back();
    if (item == nullptr || !setItem(list.get(), i, item)) return nullptr;
  }
  return list.release();
}

template <class T>
PyObject* MCppPyArray::getAllContentsAsPyList() const {
  using namespace nested_lists;
  bool success = false;
  Position indices = getIntegerIndicesSoFar(success);
  if (!success) return nullptr;
  const SliceIndexItem* slice = finalSlice();
  if (slice == nullptr) return getContentsAsPyList<T>(indices, indices.size());

  std::size_t dimensions = 0;
  std::int64_t length = 0;
  {
    const WrapperAccess storage = wrapper();
    if (!storage) return nullptr;
    dimensions = storage->shape().size();
    if (indices.size() < dimensions) length = storage->shape()[indices.size()];
  }
  if (!slice->m_isNormalized) {
    slice->getIntegerIndexValues(length, success);  // sets the error
    return nullptr;
  }
  const std::int64_t count = slice->numberOfValues();
  // The step of a single position can be beyond all arithmetic.
  const Run run = {*slice->m_start, count < 2 ? 1 : *slice->m_step, count};
  PyRef list = PyRef::steal(PyList_New(run.count));
  if (!list || run.count == 0) return list.release();
  const std::uint64_t next = indices.size() + 1;
  if (next == dimensions) {
    success = fillWithElements<T>(*this, indices, run, OnNull::Stop, list.get());
  } else {
    for (std::int64_t k = 0; success && k < run.count; ++k) {
      indices.push_back(run.start + k * run.step);
      PyObject* item = getContentsAsPyList<T>(indices, next);
      indices.pop_back();
      success = item != nullptr && setItem(list.get(), k, item);
    }
  }
  if (success) return list.release();
  // Replaces what was set deeper.
  setError(PyExc_RuntimeError, "unable to set list item.");
  return nullptr;
}
