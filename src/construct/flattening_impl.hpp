// `initializer`: the one recursive walk of nested sequences, which finds elements and dimensions.
#pragma once

#include <algorithm>
#include <stdexcept>

#include "construct/element_conversion_impl.hpp"
#include "construct/final_constructor_parser.hpp"
#include "construct/layout_conversion.hpp"
#include "construct/memory_error.hpp"
#include "construct/plain_sequence.hpp"
#include "construct/size_reconciliation_impl.hpp"
#include "module/support.hpp"

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
  if (PlainSequence::matches(value)) {
    const PlainSequence sequence(value);
    const Py_ssize_t length = sequence.size();
    if (sequence.holdsPlainNumbersOnly(length)) {
      return enterLevel(length) && flattenPlainNumbers(value, length, allowFloatingPoint) &&
             leaveLevel();
    }
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

// A row of plain numbers, which all are leaves of one depth and run no code when read.
template <class T>
bool FinalConstructorParser<T>::flattenPlainNumbers(PyObject* value, std::int64_t length,
                                                    bool allowFloatingPoint) {
  const PlainSequence sequence(value);
  for (std::int64_t i = 0; i < length; ++i) {
    PyObject* item = sequence.borrowedItem(i);
    if (!(i == 0 ? flattenLeaf(item, allowFloatingPoint)
                 : appendConverted(item, allowFloatingPoint))) {
      return false;
    }
  }
  return true;
}

template <class T>
bool FinalConstructorParser<T>::flattenLeaf(PyObject* value, bool allowFloatingPoint) {
  return appendConverted(value, allowFloatingPoint) && prepareForLeaf();
}

template <class T>
bool FinalConstructorParser<T>::appendConverted(PyObject* value, bool allowFloatingPoint) {
  ConversionResult<T> element = convertPyObjectToElement<T>(value, allowFloatingPoint);
  if (!element.value) {
    setError(element.failure->exceptionClass, element.failure->message);
    return false;
  }
  if (flattenedElements.size() == flattenedElements.capacity() &&
      !growTo(std::max<std::uint64_t>(1, 2 * flattenedElements.capacity()))) {
    return false;
  }
  flattenedElements.append(*element.value);
  return true;
}

template <class T>
bool FinalConstructorParser<T>::prepareForLeaf() {
  const auto depth = static_cast<std::int64_t>(currentDepth);
  if (leafDepth == 0) leafDepth = depth;
  if (leafDepth != depth) return flattening::refuseShape();
  if (calculatedDimensions.empty()) calculatedDimensions = {1, 1};
  // The lengths along the path to the first leaf are those of the whole array if it is rectangular.
  return reserveBuffer(size_reconciliation::wrappedProduct(sequenceLengths));
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
  if (!flattenWithUnspecifiedDimensions(initializer, true)) return noBuffer();
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
