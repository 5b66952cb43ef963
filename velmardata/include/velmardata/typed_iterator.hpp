// TypedIterator: a contiguous iterator that keeps the block of elements alive.
#pragma once

#include <compare>
#include <concepts>
#include <cstddef>
#include <iterator>
#include <type_traits>
#include <utility>

#include "velmardata/block_hold.hpp"
#include "velmardata/element_concepts.hpp"

namespace foundation::velmardata {

// Iterates over the elements of one array in storage order. T is an element type, const for an
// iterator that only reads. A complex element is its real part followed by its imaginary part.
//
// An iterator holds its block: the elements stay readable after the array is destroyed, after a
// write that moves the array to a new block, and after release(). An iterator does not count as a
// sharing handle, so all write iterators of an unshared array refer to the same block. Do not write
// through an iterator after the array has been copied: the copy shares the block and would change.
//
// Moving an iterator is pointer arithmetic without bounds checks. Copying costs one atomic
// increment, so use a pointer in hot loops: `&*it`, or std::to_address(it), which is also valid for
// an array without elements.
template <class T>
  requires ArrayElement<std::remove_const_t<T>>
class TypedIterator {
 public:
  using iterator_concept = std::contiguous_iterator_tag;
  using iterator_category = std::random_access_iterator_tag;
  using value_type = std::remove_const_t<T>;
  using difference_type = std::ptrdiff_t;
  using pointer = T*;
  using reference = T&;

  // An iterator without an element or a block.
  TypedIterator() noexcept = default;

  // For the library only. `element` points into the block of `hold`.
  TypedIterator(T* element, velmar::data::impl::BlockHold hold) noexcept
      : m_current(element), m_hold(std::move(hold)) {}

  // Converts a write iterator to a read iterator.
  template <class Other>
    requires std::same_as<T, const Other>
  TypedIterator(const TypedIterator<Other>& other) noexcept
      : m_current(other.m_current), m_hold(other.m_hold) {}

  // The element, which must exist. The result is valid while any iterator, array or other owner
  // holds the block.
  reference operator*() const noexcept { return *m_current; }
  pointer operator->() const noexcept { return m_current; }
  reference operator[](difference_type n) const noexcept { return m_current[n]; }

  // Gives the hold on the block to the caller, who releases it with the deleter that createBuffer
  // and release() return. From the first element and that deleter a second array can be made before
  // the first one is given up. The two do not know of each other: destroy one before any write.
  void giveUpHold() noexcept { m_hold.giveUp(); }

  // Operators that return a new iterator copy the hold; the others keep it.
  TypedIterator& operator+=(difference_type n) noexcept {
    m_current += n;
    return *this;
  }
  TypedIterator& operator-=(difference_type n) noexcept {
    m_current -= n;
    return *this;
  }
  TypedIterator& operator++() noexcept { return *this += 1; }
  TypedIterator& operator--() noexcept { return *this -= 1; }
  TypedIterator operator++(int) noexcept {
    TypedIterator before(*this);
    ++*this;
    return before;
  }
  TypedIterator operator--(int) noexcept {
    TypedIterator before(*this);
    --*this;
    return before;
  }
  friend TypedIterator operator+(TypedIterator it, difference_type n) noexcept { return it += n; }
  friend TypedIterator operator+(difference_type n, TypedIterator it) noexcept { return it += n; }
  friend TypedIterator operator-(TypedIterator it, difference_type n) noexcept { return it -= n; }

  // Distance and order compare the pointers. Both iterators must belong to the same array; read and
  // write iterators can be mixed.
  template <class Other>
    requires std::same_as<std::remove_const_t<Other>, value_type>
  difference_type operator-(const TypedIterator<Other>& other) const noexcept {
    return m_current - other.m_current;
  }
  template <class Other>
    requires std::same_as<std::remove_const_t<Other>, value_type>
  bool operator==(const TypedIterator<Other>& other) const noexcept {
    return m_current == other.m_current;
  }
  template <class Other>
    requires std::same_as<std::remove_const_t<Other>, value_type>
  std::strong_ordering operator<=>(const TypedIterator<Other>& other) const noexcept {
    return std::compare_three_way{}(m_current, other.m_current);
  }

 private:
  template <class Other>
    requires ArrayElement<std::remove_const_t<Other>>
  friend class TypedIterator;

  T* m_current = nullptr;
  velmar::data::impl::BlockHold m_hold;
};

}  // namespace foundation::velmardata
