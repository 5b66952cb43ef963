// `initializer`: the recursive walk of nested sequences, which finds elements and dimensions.
#pragma once

#include "construct/element_conversion_impl.hpp"
#include "construct/external_buffer_impl.hpp"
#include "construct/final_constructor_parser.hpp"
#include "construct/plain_sequence.hpp"
#include "elements/source.hpp"
#include "elements/transfer.hpp"
#include "module/dimensions.hpp"
#include "module/support.hpp"
#include "storage/mcpy_array.hpp"

namespace flattening {

inline constexpr const char* notNumeric = "value passed to initializer must be numeric.";

}  // namespace flattening

template <class T>
bool FinalConstructorParser<T>::flattenWithUnspecifiedDimensions(PyObject* value,
                                                                 bool allowFloatingPoint) {
  if (value == nullptr) {
    setError(PyExc_RuntimeError, messages::nullDataPointer);
    return false;
  }
  if (!isPlainNumber(value) && PySequence_Check(value) != 0) {
    return flattenSequence(value, allowFloatingPoint);
  }
  return flattenLeaf(value, allowFloatingPoint);
}

template <class T>
bool FinalConstructorParser<T>::flattenSequence(PyObject* value, bool allowFloatingPoint) {
  if (pyObjectIsUnicodeOrString(value)) {
    setError(PyExc_ValueError, flattening::notNumeric);
    return false;
  }
  // The attempt clears errors, and the conversions look at an error that was pending before.
  if (PlainSequence::matches(value) && PyErr_Occurred() == nullptr &&
      tryFlattenPlainNumbers(value, allowFloatingPoint)) {
    return m_shape.leaveLevel();
  }
  if (tryFlattenMemory(value, allowFloatingPoint)) return true;
  const RecursionGuard guard(" while flattening nested sequences");
  if (!guard) return false;
  const std::optional<std::int64_t> length = getLengthOfPySequence(value, m_signals);
  if (!length) return false;
  m_shape.enterLevel(*length);
  return flattenItems(value, *length, allowFloatingPoint) && m_shape.leaveLevel();
}

template <class T>
bool FinalConstructorParser<T>::flattenItems(PyObject* value, std::int64_t length,
                                             bool allowFloatingPoint) {
  for (std::int64_t i = 0; i < length; ++i) {
    if (!m_signals.count()) return false;
    const PyRef item = PyRef::steal(PySequence_GetItem(value, i));
    if (!flattenWithUnspecifiedDimensions(item.get(), allowFloatingPoint)) return false;
  }
  return true;
}

// A row of plain numbers in one pass: leaves of one depth, whose reading runs no code. False undoes
// the attempt, level and error included; the walk of any sequence then finds the first fault in the
// right order.
template <class T>
bool FinalConstructorParser<T>::tryFlattenPlainNumbers(PyObject* value, bool allowFloatingPoint) {
  const PlainSequence sequence(value);
  const Py_ssize_t length = sequence.size();
  const std::uint64_t before = flattenedElements.size();
  m_shape.enterLevel(length);
  for (Py_ssize_t i = 0; i < length; ++i) {
    PyObject* item = sequence.borrowedItem(i);
    if constexpr (std::is_floating_point_v<T>) {
      // The shortest way of the conversion, for the most frequent kind of row. The first element
      // takes the way below, where room is found for all.
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
    m_shape.forgetLevel();
    return false;
  }
  return true;
}

// A sequence whose elements lie in memory, nested to any depth, in one pass. False undoes the
// attempt, as above.
template <class T>
bool FinalConstructorParser<T>::tryFlattenMemory(PyObject* value, bool allowFloatingPoint) {
  Source source;
  if (PlainSequence::matches(value) || !source.find(value)) return false;
  const Box& box = source.box();
  const std::span<const Lane> lanes(box.lanes.data(), box.lanes.size());
  if (!m_shape.takesLevels(lanes)) return false;
  const std::uint64_t before = flattenedElements.size();
  const auto count = static_cast<std::uint64_t>(box.count);
  for (const Lane& lane : lanes) m_shape.enterLevel(lane.count);
  if (prepareForLeaves(count) &&
      tryTransferDense(box, allowFloatingPoint ? Purpose::Construction : Purpose::Assignment,
                       factsOf<T>, Order::Nesting, flattenedElements.extend(count))) {
    for (std::size_t k = 0; k < lanes.size(); ++k) m_shape.leaveLevel();  // cannot fail: see above
    return true;
  }
  PyErr_Clear();
  flattenedElements.shrinkTo(before);
  for (std::size_t k = 0; k < lanes.size(); ++k) m_shape.forgetLevel();
  return false;
}

// An array of ours as the whole data, taken in storage order. False, with no error set and nothing
// taken, when its items have to be converted one by one.
template <class T>
bool FinalConstructorParser<T>::tryTakeArray(PyObject* initializer) {
  Source source;
  if (!source.find(initializer)) return false;
  const Box& box = source.box();
  const auto count = static_cast<std::uint64_t>(box.count);
  if (flattenedElements.tryReserve(count) &&
      tryTransferDense(box, Purpose::Construction, factsOf<T>, Order::Storage,
                       flattenedElements.replace(count))) {
    m_shape.takeDimensionsOf(std::span<const Lane>(box.lanes.data(), box.lanes.size()));
    m_shape.setBufferInStorageOrder();
    return true;
  }
  flattenedElements.shrinkTo(0);
  return false;
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

// Depth and room for elements that are about to be appended at one depth. False with an error set.
template <class T>
bool FinalConstructorParser<T>::prepareForLeaves(std::uint64_t count) {
  if (!m_shape.enterLeaf()) return false;
  // The lengths along the path to the first leaf are those of the whole array if it is rectangular.
  if (!bufferReserved && !reserveBuffer(m_shape.numberOfElementsByLengths())) return false;
  const std::uint64_t needed = flattenedElements.size() + count;
  return needed <= flattenedElements.capacity() || growTo(needed + flattenedElements.size());
}

template <class T>
ElementBuffer<T> FinalConstructorParser<T>::getFilledBuffer() {
  ElementBuffer<T> buffer = flattenedElements.tryTake();
  if (buffer == nullptr) setOutOfMemory(flattenedElements.size(), typeWord<T>);
  return buffer;
}

// Null with an error set.
template <class T>
ElementBuffer<T> FinalConstructorParser<T>::processInitializerKwarg(PyObject* initializer) {
  if (pyObjectIsUnicodeOrString(initializer)) {
    setError(PyExc_ValueError, flattening::notNumeric);
    return noElementBuffer<T>();
  }
  const bool isOurs = MCPyArray_Check(initializer);
  const bool isTaken = !isOurs && PyObject_CheckBuffer(initializer) != 0
                           ? fillFromBufferOf(initializer)
                           : (isOurs && tryTakeArray(initializer)) ||
                                 flattenWithUnspecifiedDimensions(initializer, true);
  if (!isTaken) return noElementBuffer<T>();
  // An empty sequence leaves the length of its level open, so elements can be missing.
  const std::int64_t count = getNumberOfFlattenedElements();
  if (exactProduct(m_shape.getCalculatedDimensions()) != static_cast<std::uint64_t>(count)) {
    setError(PyExc_ValueError, "arrays must be rectangular.");
    return noElementBuffer<T>();
  }
  if (!m_shape.handleSingleSingletonDimensionEdgeCase(count)) return noElementBuffer<T>();
  m_shape.dropTrailingOnes();
  return getFilledBuffer();
}
