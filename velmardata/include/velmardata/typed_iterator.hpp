// TypedIterator: a pointer to an element that keeps the block of elements alive.
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

// A contiguous iterator over the elements of one array in storage order; T is an element type, or
// a const one for an iterator that only reads. An element of a complex type is its real part
// followed by its imaginary part.
//
// An iterator keeps the block that it was made on: the elements stay readable through it after the
// array has gone, after the array was given a block of its own by a write, and after release(). It
// does not count as sharing: as long as one handle owns the contents, iterators made for writing
// all walk the same block. Write through an iterator only until its array is next copied: the copy
// shares the block, and an old iterator does not know.
//
// Moving is pointer arithmetic, and as with pointers no bound is checked. Copying adds one atomic
// increment, so hot loops take the pointer instead: `&*it`, or std::to_address(it) which is fine
// for an array without elements too.
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

  // An iterator that points nowhere.
  TypedIterator() noexcept = default;

  // For the library: an iterator at `element`, which lies in the block held.
  TypedIterator(T* element, velmar::data::impl::BlockHold hold) noexcept
      : m_current(element), m_hold(std::move(hold)) {}

  // An iterator that reads, from one that may write.
  template <class Other>
    requires std::same_as<T, const Other>
  TypedIterator(const TypedIterator<Other>& other) noexcept
      : m_current(other.m_current), m_hold(other.m_hold) {}

  // The element, which must exist. A reference that an iterator gave stays good as long as any
  // iterator, array or owner keeps the block.
  reference operator*() const noexcept { return *m_current; }
  pointer operator->() const noexcept { return m_current; }
  reference operator[](difference_type n) const noexcept { return m_current[n]; }

  // Moving forwards or backwards keeps the hold that the iterator has; the forms that give another
  // iterator copy it.
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

  // Distance and order are those of the pointers: meaningful within one array, reading and writing
  // iterators mixed as one likes.
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
