// A growing run of elements in a block of the data library, which becomes the array without a copy.
#pragma once

#include <algorithm>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "storage/element_buffer.hpp"

// Owns its block until take() gives it away. No function sets an error.
template <class T>
class ElementStore {
 public:
  const T* data() const { return m_block.get(); }
  std::uint64_t size() const { return m_size; }
  std::uint64_t capacity() const { return m_capacity; }

  // Room for `count` elements in all. False, with nothing changed, when memory is short.
  bool tryReserve(std::uint64_t count) {
    if (count <= m_capacity) return true;
    ElementBuffer<T> larger = tryCreateElementBuffer<T>(count);
    if (larger == nullptr) return false;
    std::copy_n(m_block.get(), m_size, larger.get());
    m_block = std::move(larger);
    m_capacity = count;
    return true;
  }

  // Replaces the contents by `count` elements of any value, which the caller then writes. There
  // must be room.
  T* replace(std::uint64_t count) {
    assert(count <= m_capacity);
    m_size = count;
    return m_block.get();
  }

  // Appends `count` elements of any value, which the caller then writes. There must be room.
  T* extend(std::uint64_t count) {
    assert(count <= m_capacity - m_size);
    T* first = m_block.get() + m_size;
    m_size += count;
    return first;
  }

  // There must be room.
  void append(T element) {
    assert(m_size < m_capacity);
    m_block[m_size++] = element;
  }

  void shrinkTo(std::uint64_t size) {
    assert(size <= m_size);
    m_size = size;
  }

  // The elements in a block of exactly their number. size() does not change. Null when memory is
  // short.
  ElementBuffer<T> tryTake() {
    if (m_block != nullptr && m_capacity == m_size) return release();
    ElementBuffer<T> exact = tryCreateElementBuffer<T>(m_size);
    if (exact != nullptr) std::copy_n(m_block.get(), m_size, exact.get());
    release();
    return exact;
  }

  // A block for `count` elements of any value: the reserved one if it has that size. Null when
  // memory is short.
  ElementBuffer<T> tryTakeReserved(std::uint64_t count) {
    return m_block != nullptr && m_capacity == count ? release() : tryCreateElementBuffer<T>(count);
  }

 private:
  ElementBuffer<T> release() {
    m_capacity = 0;
    return std::exchange(m_block, noElementBuffer<T>());
  }

  ElementBuffer<T> m_block = noElementBuffer<T>();
  std::uint64_t m_size = 0;
  std::uint64_t m_capacity = 0;
};
