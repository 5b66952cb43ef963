// Shared by the tests of the capsule: its table as a client finds it, and arrays on both sides.
#pragma once

#include "module/python.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <complex>
#include <cstddef>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>
#include <velmar/capsule_table.hpp>
#include <velmardata/velmardata.hpp>

#include "module/py_ref.hpp"
#include "python_values.hpp"
#include "velmardata_testing.hpp"

namespace client_testing {

using namespace python_testing;
using namespace velmardata_testing;
using velmar::data::impl::addReference;
using velmar::data::impl::ArrayImpl;
using velmar::data::impl::releaseReference;

// --- The table

inline const velmar::MCPyArrayAPITable& capsuleTable() {
  static const auto* const table =
      static_cast<const velmar::MCPyArrayAPITable*>(PyCapsule_Import(velmar::capsuleName, 0));
  if (table == nullptr) throw std::runtime_error("there is no capsule");
  return *table;
}

// A Python array of the library array; the handle keeps its own reference. Null with the error left
// pending.
inline PyRef adopt(const Array& array) {
  return PyRef::steal(capsuleTable().MDAImplToMCPyArray(addReference(array.impl())));
}

// The library array of an object; the handle owns the new reference. Empty with the error left
// pending.
inline Array handOut(const PyRef& object) {
  return Array(static_cast<ArrayImpl*>(capsuleTable().MCPyArrayToMDAImpl(object.get())));
}

struct Converted {
  PyRef array;  // null on failure; an error, if one is set, is left pending
  int type;
};
inline Converted convertBuffer(const PyRef& object) {
  int type = -99;
  PyRef array = PyRef::steal(capsuleTable().BufferObjectToMCPyArray(object.get(), &type));
  return {std::move(array), type};
}

// --- Arrays made by Python

template <class T>
inline constexpr bool isComplexType = !std::is_same_v<T, typename PartOf<T>::type>;

template <class T>
std::string className() {
  using Number = typename PartOf<T>::type;
#define X(name, number, enumerator, type, suffix, word, letter) \
  if constexpr (std::is_same_v<Number, type>) return word;
  VELMARDATA_FOR_EACH_CLASS_TYPE(X)
#undef X
}

template <class T>
PyRef classObject() {
  return evaluate("__import__('velmar')." + className<T>());
}

template <class T>
std::string literalOf(T value) {
  if constexpr (std::is_same_v<T, bool>) {
    return value ? "True" : "False";
  } else if constexpr (isComplexType<T>) {
    return "complex(" + literalOf(value.real()) + ", " + literalOf(value.imag()) + ")";
  } else {
    return std::to_string(value);
  }
}

// An array with `rows` rows; `elements` are in storage order.
template <class T>
PyRef pythonArray(const std::vector<T>& elements, std::size_t rows) {
  std::string nested;
  for (std::size_t i = 0; i < rows; ++i) {
    nested += "[";
    for (std::size_t k = i; k < elements.size(); k += rows)
      nested += literalOf<T>(elements[k]) + ",";
    nested += "],";
  }
  return evaluate("__import__('velmar')." + className<T>() + "([" + nested + "]" +
                  (isComplexType<T> ? ", is_complex=True)" : ")"));
}

// 2 by 3 samples.
template <class T>
PyRef pythonSamples() {
  return pythonArray(samples<T>(6), 2);
}

// The repr of a 2-by-3 array of these elements.
template <class T>
std::string textOfRows(const std::vector<T>& elements) {
  return reprOf(pythonArray(elements, 2));
}

template <class T>
T elementAt(const Array& array, std::ptrdiff_t place) {
  const TypedArray<T> elements(array);
  return elements.begin()[place];
}

// Assigns from Python: array[i][k] = value.
template <class T>
void setFromPython(const PyRef& array, std::size_t i, std::size_t k, T value) {
  evaluate("a[" + std::to_string(i) + "].__setitem__(" + std::to_string(k) + ", " +
               literalOf(value) + ")",
           {{"a", array}});
}

// --- Arrays in unusual states

// A record whose array was not constructed.
inline PyRef bareRecord(const PyRef& arrayClass) {
  return PyRef::steal(PyType_GenericAlloc(reinterpret_cast<PyTypeObject*>(arrayClass.get()), 0));
}

// Expressions for views whose storage has expired, or that never had storage.
constexpr const char* expiredViews[] = {
    "list(__import__('velmar').double([[1, 2, 3], [4, 5, 6]]))[0]",
    "list(__import__('velmar').double([[[1, 2], [3, 4]], [[5, 6], [7, 8]]]))[1]",
    "list(__import__('velmar').logical([[True, False]] * 2))[1]",
    "list(__import__('velmar').int8([[1, 2], [3, 4]], is_complex=True))[1]",
    // A slice of a view that a loop yields has no storage even while the array exists.
    ("[row[::-1] for row in [__import__('velmar').double([[1, 2, 3], [4, 5, 6]])] for row in "
     "row][0]"),
};

// --- Leaks

// The number of the interpreter's memory blocks that a call leaves allocated; empty if the
// interpreter does not count them, as with PYTHONMALLOC=malloc. The smallest result of several
// rounds, because its own caches do not grow in every round.
template <class Action>
std::optional<double> blocksPerCall(Action action) {
  const auto allocatedBlocks = [] {
    const PyRef count = PyRef::steal(PyObject_CallNoArgs(PySys_GetObject("getallocatedblocks")));
    return PyLong_AsLong(count.get());
  };
  if (allocatedBlocks() == 0) return std::nullopt;
  constexpr int calls = 200;
  double least = std::numeric_limits<double>::max();
  for (int round = 0; round < 3; ++round) {
    const long before = allocatedBlocks();
    for (int i = 0; i < calls; ++i) action();
    least = std::min(least, static_cast<double>(allocatedBlocks() - before) / calls);
  }
  return least;
}

}  // namespace client_testing
