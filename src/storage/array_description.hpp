// Shape and strides of an array in the form of the buffer protocol.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <utility>

// Owns its numbers, at addresses that stay the same until the next assign(). Those of two
// dimensions need no memory of their own.
class ArrayDescription {
 public:
  ArrayDescription() = default;
  ArrayDescription(const ArrayDescription&) = delete;
  ArrayDescription& operator=(const ArrayDescription&) = delete;

  // The strides of contiguous elements of that many bytes; order: 'F' for the first dimension
  // densest, 'C' for the last. Throws std::bad_alloc, with nothing changed.
  void assign(std::span<const std::int64_t> shape, std::int64_t elementSize, char order);

  void swap(ArrayDescription& other) noexcept {
    std::swap(m_count, other.m_count);
    std::swap(m_inside, other.m_inside);
    std::swap(m_outside, other.m_outside);
  }
  bool operator==(const ArrayDescription& other) const {
    return std::equal(numbers(), numbers() + 2 * m_count, other.numbers(),
                      other.numbers() + 2 * other.m_count);
  }

  std::span<std::int64_t> shape() { return {numbers(), m_count}; }
  std::span<std::int64_t> strides() { return {numbers() + m_count, m_count}; }
  std::span<const std::int64_t> shape() const { return {numbers(), m_count}; }
  std::span<const std::int64_t> strides() const { return {numbers() + m_count, m_count}; }

 private:
  static constexpr std::size_t mostInside = 2;  // dimensions

  std::int64_t* numbers() { return m_outside != nullptr ? m_outside.get() : m_inside.data(); }
  const std::int64_t* numbers() const {
    return m_outside != nullptr ? m_outside.get() : m_inside.data();
  }

  std::size_t m_count = 0;                              // of dimensions
  std::array<std::int64_t, 2 * mostInside> m_inside{};  // lengths, then strides
  std::unique_ptr<std::int64_t[]> m_outside;            // the same, for more dimensions
};
