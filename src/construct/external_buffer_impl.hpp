// `initializer` as a buffer of another object: its memory is copied whole and never converted.
#pragma once

#include <algorithm>
#include <cstring>
#include <type_traits>

#include "construct/external_buffer.hpp"
#include "construct/final_constructor_parser.hpp"
#include "construct/transposition.hpp"
#include "module/dimensions.hpp"
#include "module/support.hpp"

namespace external_buffer {

template <class T>
inline constexpr char outputLetter = TypeAsChar[static_cast<std::size_t>(classOf<Part<T>>)];
template <>
inline constexpr char outputLetter<char16_t> = '\0';  // characters have no class

// Copies bytes to elements. Any byte but 0 is a true logical element, which must be stored as 1.
template <class T>
void copyElements(const void* source, std::uint64_t count, T* elements) {
  if constexpr (std::is_same_v<T, bool>) {
    const auto* bytes = static_cast<const unsigned char*>(source);
    std::transform(bytes, bytes + count, reinterpret_cast<unsigned char*>(elements),
                   [](unsigned char byte) -> unsigned char { return byte != 0 ? 1 : 0; });
  } else {
    std::memcpy(static_cast<void*>(elements), source, count * sizeof(T));
  }
}

}  // namespace external_buffer

template <class T>
bool FinalConstructorParser<T>::fillFromBufferOf(PyObject* exporter) {
  BufferGuard buffer;
  return buffer.obtain(exporter, PyBUF_ANY_CONTIGUOUS | PyBUF_FORMAT) &&
         fillVectorFromExternalBuffer(buffer.view());
}

template <class T>
bool FinalConstructorParser<T>::fillVectorFromExternalBuffer(const Py_buffer& view) {
  using namespace external_buffer;
  if (!formatMatches(view, outputLetter<T>, isComplexElement<T>)) return false;
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
  if (!m_shape.takeDimensionsOf(view, count)) return false;
  takeElementsOf(view, count);
  return true;
}

// Copies into storage order at once, without a copy in between.
template <class T>
void FinalConstructorParser<T>::takeElementsOf(const Py_buffer& view, std::uint64_t count) {
  if (count == 0) return;
  const std::span<const std::int64_t> dimensions = m_shape.getCalculatedDimensions();
  T* elements = flattenedElements.replace(count);
  if (m_shape.isBufferInStorageOrder() || isSameInBothOrders(dimensions)) {
    external_buffer::copyElements(view.buf, count, elements);
  } else {
    transposition::transpose(transposition::makeTransposition(dimensions), sizeof(T), view.buf,
                             elements);
    if constexpr (std::is_same_v<T, bool>) external_buffer::copyElements(elements, count, elements);
  }
  m_shape.setBufferInStorageOrder();
}
