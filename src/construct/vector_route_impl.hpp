// `vector`: an unnested sequence, written straight into a block in storage order.
#pragma once

#include <stdexcept>
#include <string>

#include "construct/element_conversion_impl.hpp"
#include "construct/final_constructor_parser.hpp"
#include "construct/memory_error.hpp"
#include "construct/plain_sequence.hpp"
#include "module/support.hpp"

template <class T>
ElementBuffer<T> FinalConstructorParser<T>::processVectorKwarg(PyObject* vector, bool& ok) {
  ok = false;
  if (PySequence_Check(vector) == 0) {
    setError(PyExc_ValueError, "value of 'vector' must be a sequence.");
    return noBuffer();
  }
  if (pyObjectIsUnicodeOrString(vector)) {
    setError(PyExc_ValueError, "value passed to 'vector' must be numeric.");
    return noBuffer();
  }
  const Py_ssize_t length = PySequence_Size(vector);
  if (length < 0) return noBuffer();
  if (specifiedDimensions.empty()) calculatedDimensions.push_back(1);
  calculatedDimensions.push_back(length);
  if (!specifiedAndCalculatedDimensionsMatch()) return noBuffer();

  const auto count = static_cast<std::uint64_t>(length);
  ElementBuffer<T> buffer = flattenedElements.takeReserved(count);
  if (buffer == nullptr) {
    setOutOfMemory(count, typeWord<T>);
    return noBuffer();
  }
  ok = fillFromVector(vector, length, buffer.get());
  return buffer;
}

template <class T>
bool FinalConstructorParser<T>::fillFromVector(PyObject* vector, std::int64_t length, T* elements) {
  const bool isPlain = PlainSequence::matches(vector);
  const PlainSequence sequence(vector);
  for (std::int64_t i = 0; i < length; ++i) {
    // Items of a plain sequence can be borrowed: no conversion runs Python code.
    const PyRef owned = isPlain ? PyRef() : PyRef::steal(PySequence_GetItem(vector, i));
    PyObject* item = isPlain ? sequence.borrowedItem(i) : owned.get();
    if (item == nullptr) {
      setError(PyExc_RuntimeError, "item " + std::to_string(i) + " could not be retrieved.");
      return false;
    }
    if (!isPlainNumber(item) && PySequence_Check(item) != 0) {
      setError(PyExc_TypeError, "value of 'vector' must be an unnested sequence.");
      return false;
    }
    try {
      ConversionResult<T> element = convertPyObjectToElement<T>(item, true);
      if (!element.value) {
        // Deliberate: ValueError, whatever class the failure names.
        setError(PyExc_ValueError, element.failure->message);
        return false;
      }
      elements[i] = *element.value;
    } catch (const std::runtime_error& error) {
      setError(PyExc_RuntimeError, error.what());
      return false;
    }
  }
  return true;
}
