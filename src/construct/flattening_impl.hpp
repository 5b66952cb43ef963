// `initializer`: the one recursive walk of nested sequences, which finds elements and dimensions.
#pragma once

#include <stdexcept>

#include "construct/element_conversion_impl.hpp"
#include "construct/external_buffer_impl.hpp"
#include "construct/final_constructor_parser.hpp"
#include "construct/layout_conversion.hpp"
#include "construct/memory_error.hpp"
#include "construct/plain_sequence.hpp"
#include "construct/size_reconciliation_impl.hpp"
#include "module/support.hpp"
#include "storage/mcpy_array.hpp"

namespace flattening {

inline constexpr const char* notNumeric = "value passed to initializer must be numeric.";

inline bool refuseShape() {
  setError(PyExc_ValueError, "arrays must be rectangular.");
  return false;
}

}  // namespace flattening

template <class T>
bool FinalConstructorParser<T>::flattenWithUnspecifiedDimensions(PyObject* value,
                                                                 bool allowFloatingPoint) {
  try {
    if (value == nullptr) {
      setError(PyExc_RuntimeError, messages::nullDataPointer);
      return false;
    }
    if (!isPlainNumber(value) && PySequence_Check(value) != 0) {
      return flattenSequence(value, allowFloatingPoint);
    }
    return flattenLeaf(value, allowFloatingPoint);
  } catch (const std::runtime_error& error) {
    setError(PyExc_RuntimeError, error.what());
    return false;
  }
}

template <class T>
bool FinalConstructorParser<T>::flattenSequence(PyObject* value, bool allowFloatingPoint) {
  if (pyObjectIsUnicodeOrString(value)) {
    setError(PyExc_ValueError, flattening::notNumeric);
    return false;
  }
  // The attempt would swallow an error that is pending already, which the conversions look at.
  if (PlainSequence::matches(value) && PyErr_Occurred() == nullptr &&
      flattenPlainNumbers(value, allowFloatingPoint)) {
    return leaveLevel();
  }
  const RecursionGuard guard(" while flattening nested sequences");
  if (!guard) return false;
  const std::optional<std::int64_t> length = getLengthOfPySequence(value);
  if (!length) {
    if (PyErr_Occurred() == nullptr) {
      setError(PyExc_ValueError, "elements of array are of different lengths or types.");
    }
    return false;
  }
  return enterLevel(*length) && flattenItems(value, *length, allowFloatingPoint) && leaveLevel();
}

template <class T>
bool FinalConstructorParser<T>::flattenItems(PyObject* value, std::int64_t length,
                                             bool allowFloatingPoint) {
  for (std::int64_t i = 0; i < length; ++i) {
    const PyRef item = PyRef::steal(PySequence_GetItem(value, i));
    if (!flattenWithUnspecifiedDimensions(item.get(), allowFloatingPoint)) return false;
  }
  return true;
}

// A row of plain numbers, in one pass: leaves of one depth, which run no code when read. False
// undoes the attempt, level and error included: the walk of any sequence then finds the first
// thing wrong in the right order.
template <class T>
bool FinalConstructorParser<T>::flattenPlainNumbers(PyObject* value, bool allowFloatingPoint) {
  const PlainSequence sequence(value);
  const Py_ssize_t length = sequence.size();
  const std::uint64_t before = flattenedElements.size();
  enterLevel(length);
  for (Py_ssize_t i = 0; i < length; ++i) {
    PyObject* item = sequence.borrowedItem(i);
    if constexpr (std::is_floating_point_v<T>) {
      // The conversion's shortest way, for what rows are mostly made of. The first element goes the
      // long one, on which room is found for all.
      if (i > 0 && Py_TYPE(item) == &PyFloat_Type) {
        flattenedElements.append(element_conversion::narrowed<T>(PyFloat_AsDouble(item)));
        continue;
      }
    }
    if (isPlainNumber(item)) {
      const auto element = convertPyObjectToElement<T>(item, allowFloatingPoint);
      if (element.value && (i > 0 || prepareForLeaves(static_cast<std::uint64_t>(length)))) {
        flattenedElements.append(*element.value);
        continue;
      }
    }
    PyErr_Clear();
    flattenedElements.shrinkTo(before);
    --currentDepth;
    return false;
  }
  return true;
}

template <class T>
bool FinalConstructorParser<T>::flattenLeaf(PyObject* value, bool allowFloatingPoint) {
  const auto element = convertPyObjectToElement<T>(value, allowFloatingPoint);
  if (!element.value) {
    setError(element.failure->exceptionClass, element.failure->message);
    return false;
  }
  if (!prepareForLeaves(1)) return false;
  flattenedElements.append(*element.value);
  return true;
}

// Depth, dimensions and room for elements that are about to be appended at one depth.
template <class T>
bool FinalConstructorParser<T>::prepareForLeaves(std::uint64_t count) {
  const auto depth = static_cast<std::int64_t>(currentDepth);
  if (leafDepth == 0) leafDepth = depth;
  if (leafDepth != depth) return flattening::refuseShape();
  if (calculatedDimensions.empty()) calculatedDimensions = {1, 1};
  // The lengths along the path to the first leaf are those of the whole array if it is rectangular.
  if (!reserveBuffer(size_reconciliation::wrappedProduct(sequenceLengths))) return false;
  const std::uint64_t needed = flattenedElements.size() + count;
  return needed <= flattenedElements.capacity() || growTo(needed + flattenedElements.size());
}

template <class T>
bool FinalConstructorParser<T>::enterLevel(std::int64_t length) {
  if (length < 0) return false;  // the sequence has set its own exception
  ++currentDepth;
  if (calculatedDimensions.size() < currentDepth) calculatedDimensions.push_back(0);
  if (sequenceLengths.size() < currentDepth) sequenceLengths.push_back(0);
  sequenceLengths[currentDepth - 1] = length;
  return true;
}

template <class T>
bool FinalConstructorParser<T>::leaveLevel() {
  std::int64_t& dimension = calculatedDimensions[currentDepth - 1];
  std::int64_t& length = sequenceLengths[currentDepth - 1];
  if (dimension == 0) dimension = length;
  if (dimension != length) return flattening::refuseShape();
  length = 0;
  --currentDepth;
  return true;
}

template <class T>
ElementBuffer<T> FinalConstructorParser<T>::getFilledBuffer() {
  return flattenedElements.take();
}

template <class T>
ElementBuffer<T> FinalConstructorParser<T>::processInitializerKwarg(PyObject* initializer,
                                                                    bool& ok) {
  ok = false;
  if (pyObjectIsUnicodeOrString(initializer)) {
    setError(PyExc_ValueError, flattening::notNumeric);
    return noBuffer();
  }
  // Arrays of our own are walked like any sequence.
  const bool isOutside = PyObject_CheckBuffer(initializer) != 0 && !MCPyArray_Check(initializer);
  if (!(isOutside ? fillFromBufferOf(initializer)
                  : flattenWithUnspecifiedDimensions(initializer, true))) {
    return noBuffer();
  }
  // An empty sequence leaves the length of its level open, so that elements can be missing.
  const auto count = static_cast<std::uint64_t>(getNumberOfFlattenedElements());
  if (exactNumberOfElements(calculatedDimensions) != count) {
    flattening::refuseShape();
    return noBuffer();
  }
  if (!handleSingleSingletonDimensionEdgeCase(true, true)) return noBuffer();
  while (calculatedDimensions.size() > 2 && calculatedDimensions.back() == 1) {
    calculatedDimensions.pop_back();
  }
  ElementBuffer<T> buffer = getFilledBuffer();
  ok = buffer != nullptr;
  if (!ok) setOutOfMemory(count, typeWord<T>);
  return buffer;
}
