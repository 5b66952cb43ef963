// `initializer` as a buffer of another object: its memory is copied whole, never converted.
#pragma once

#include <algorithm>
#include <cstring>
#include <string>
#include <type_traits>

#include "construct/final_constructor_parser.hpp"
#include "construct/layout_conversion_impl.hpp"
#include "construct/size_reconciliation_impl.hpp"
#include "module/support.hpp"

namespace external_buffer {

inline constexpr const char* doesNotFit = "input does not fit evenly into output type.";

inline bool refuse(const std::string& message) {
  setError(PyExc_BufferError, message);
  return false;
}

// The letter of the elements' part, and that with a Z in front for complex elements.
template <class T>
inline constexpr char outputLetter = TypeAsChar[static_cast<std::size_t>(classOf<Part<T>>)];
template <>
inline constexpr char outputLetter<char16_t> = '\0';  // characters have no class
template <class T>
std::string outputFormat() {
  return std::string(isComplexElement<T> ? "Z" : "") + outputLetter<T>;
}

// Only the letter counts: no prefix of the struct module's is read, and nothing behind it.
template <class T>
bool formatMatches(const Py_buffer& view) {
  if (view.format == nullptr || *view.format == '\0') {
    return refuse("input 'format' field is null.");
  }
  const std::string start = std::string("input buffer format ('") + view.format;
  if (isComplexElement<T> && *view.format != 'Z') {
    return refuse(start + "') does not begin with 'Z', but output type is complex");
  }
  const char letter = view.format[isComplexElement<T> ? 1 : 0];
  if (letter == outputLetter<T> ||
      areDifferentButCompatible(letter, outputLetter<T>, view.itemsize)) {
    return true;
  }
  return refuse(start + "') is not compatible with output format ('" + outputFormat<T>() +
                "'); use a different input or output type");
}

// The bytes of a logical element count by being other than 0.
template <class T>
using Item = std::conditional_t<std::is_same_v<T, bool>, unsigned char, T>;

template <class T>
void copyElements(const std::byte* items, std::uint64_t count, T* elements) {
  if constexpr (std::is_same_v<T, bool>) {
    std::transform(items, items + count, elements,
                   [](std::byte byte) { return byte != std::byte{}; });
  } else {
    std::memcpy(elements, items, count * sizeof(T));
  }
}

}  // namespace external_buffer

template <class T>
bool FinalConstructorParser<T>::fillFromBufferOf(PyObject* exporter) {
  Py_buffer view;
  if (PyObject_GetBuffer(exporter, &view, PyBUF_ANY_CONTIGUOUS | PyBUF_FORMAT) != 0) return false;
  const bool isFilled = fillVectorFromExternalBuffer(view);
  // Releasing can run code of the exporter's, which need not bear with an error that is pending.
  PyObject* error[3] = {};
  PyErr_Fetch(&error[0], &error[1], &error[2]);
  PyBuffer_Release(&view);
  PyErr_Restore(error[0], error[1], error[2]);
  return isFilled;
}

template <class T>
bool FinalConstructorParser<T>::fillVectorFromExternalBuffer(const Py_buffer& view) {
  using namespace external_buffer;
  if (!formatMatches<T>(view)) return false;
  const auto size = static_cast<Py_ssize_t>(sizeof(T));
  if (view.len < 0 || view.len % size != 0) return refuse(doesNotFit);
  const auto count = static_cast<std::uint64_t>(view.len / size);
  if (count > 0 && view.buf == nullptr) {
    setError(PyExc_RuntimeError, messages::nullDataPointer);
    return false;
  }
  // What `size` reserved can be too small for what the buffer holds.
  if (!reserveBuffer(count) || (count > flattenedElements.capacity() && !growTo(count))) {
    return false;
  }
  return takeDimensionsOf(view, count) && takeElementsOf(view, count);
}

template <class T>
bool FinalConstructorParser<T>::takeDimensionsOf(const Py_buffer& view, std::uint64_t count) {
  using external_buffer::refuse;
  if (view.ndim < 2) {
    if (view.ndim == 0 && count != 1) return refuse(external_buffer::doesNotFit);
    calculatedDimensions.push_back(static_cast<std::int64_t>(count));
    return true;
  }
  if (view.shape == nullptr) return refuse("shape is null.");
  calculatedDimensions.insert(calculatedDimensions.end(), view.shape, view.shape + view.ndim);
  const bool hasNegative =
      std::any_of(view.shape, view.shape + view.ndim, [](Py_ssize_t length) { return length < 0; });
  if (hasNegative || exactNumberOfElements(calculatedDimensions) != count ||
      view.strides == nullptr || view.itemsize <= 0) {
    return refuse(external_buffer::doesNotFit);
  }
  // With contiguous memory the first stride tells the order: that of one item is storage order.
  bufferInStorageOrder = view.strides[0] / view.itemsize == 1;
  return true;
}

// Into storage order at once, without a copy in between.
template <class T>
bool FinalConstructorParser<T>::takeElementsOf(const Py_buffer& view, std::uint64_t count) {
  if (count == 0) return true;
  const auto* items = static_cast<const std::byte*>(view.buf);
  layout_conversion::Transposition plan;
  const bool keepsOrder =
      bufferInStorageOrder || layout_conversion::isSameInBothOrders(calculatedDimensions);
  if (!keepsOrder && !layout_conversion::makeTransposition(calculatedDimensions, plan))
    return false;
  T* elements = flattenedElements.replace(count);
  if (keepsOrder) {
    external_buffer::copyElements<T>(items, count, elements);
  } else {
    layout_conversion::transpose<external_buffer::Item<T>>(plan, items, elements);
    bufferInStorageOrder = true;
  }
  return true;
}
