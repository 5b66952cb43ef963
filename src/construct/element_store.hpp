// A growing run of elements in a block of the data library, so that it can become an array without
// a copy.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <velmardata/velmardata.hpp>

template <class T>
using ElementBuffer = std::unique_ptr<T[], void (*)(void*)>;

// A block for `count` elements; null when memory is short, never for a count of 0. Unlike the
// library's own template this serves characters too.
template <class T>
ElementBuffer<T> createElementBuffer(const foundation::velmardata::ArrayFactory& factory,
                                     std::uint64_t count) {
  void* block = nullptr;
  void (*deleter)(void*) = nullptr;
  factory.createBuffer(&block, &deleter, static_cast<int>(foundation::velmardata::arrayTypeOf<T>),
                       count);
  return ElementBuffer<T>(static_cast<T*>(block), deleter);
}

template <class T>
class ElementStore {
 public:
  explicit ElementStore(const foundation::velmardata::ArrayFactory& factory)
      : m_factory(factory), m_block(nullptr, [](void*) {}) {}

  const T* data() const { return m_block.get(); }
  std::uint64_t size() const { return m_size; }
  std::uint64_t capacity() const { return m_capacity; }

  // Room for `count` elements in all. False when memory is short; nothing has changed then.
  bool reserve(std::uint64_t count) {
    if (count <= m_capacity) return true;
    ElementBuffer<T> larger = createElementBuffer<T>(m_factory, count);
    if (larger == nullptr) return false;
    std::copy_n(m_block.get(), m_size, larger.get());
    m_block = std::move(larger);
    m_capacity = count;
    return true;
  }

  // `count` elements of any value in place of what was there, to be written by the caller. There
  // must be room.
  T* replace(std::uint64_t count) {
    m_size = count;
    return m_block.get();
  }

  // There must be room.
  void append(T element) { m_block[m_size++] = element; }

  void shrinkTo(std::uint64_t size) { m_size = size; }

  // The elements in a block of exactly their number; size() stays. Null when memory is short.
  ElementBuffer<T> take() {
    if (m_block != nullptr && m_capacity == m_size) return release();
    ElementBuffer<T> exact = createElementBuffer<T>(m_factory, m_size);
    if (exact != nullptr) std::copy_n(m_block.get(), m_size, exact.get());
    release();
    return exact;
  }

  // A block of `count` elements of any value: the reserved one if it is of that size.
  ElementBuffer<T> takeReserved(std::uint64_t count) {
    return m_block != nullptr && m_capacity == count ? release()
                                                     : createElementBuffer<T>(m_factory, count);
  }

 private:
  ElementBuffer<T> release() {
    m_capacity = 0;
    return std::exchange(m_block, ElementBuffer<T>(nullptr, m_block.get_deleter()));
  }

  const foundation::velmardata::ArrayFactory& m_factory;
  ElementBuffer<T> m_block;
  std::uint64_t m_size = 0;
  std::uint64_t m_capacity = 0;
};
