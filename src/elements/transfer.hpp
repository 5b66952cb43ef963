// Copies and conversions of the elements of a box, without Python objects.
#pragma once

#include <cstddef>

#include "elements/box.hpp"
#include "module/element_types.hpp"

// What a conversion is for. Logical elements can be constructed of floats and complex numbers, but
// not assigned.
enum class Purpose { Construction, Assignment };

// Which dimension of contiguous memory is the densest: the first, as in the storage, or the last,
// as in nested sequences.
enum class Order { Storage, Nesting };

// Whether every element of type `from` becomes an element of type `to` without a remark.
bool alwaysConverts(foundation::velmardata::ArrayType from, foundation::velmardata::ArrayType to);

// Converts the elements of a box into memory of another element type, to the values that reading
// each as a Python number and converting that number gives. `lanes` are those of the target, for
// the same dimensions; the memories must not overlap. False, with any values in the target and no
// error set, when one element would be refused or the pair of types always is: the way through
// Python numbers then finds the element and the words. Linear in the number of elements.
bool tryTransfer(const Box& from, Purpose purpose, foundation::velmardata::ArrayType to,
                 const Lanes& lanes, std::byte* target);

// The same into contiguous memory for elements of another type.
bool tryTransferDense(const Box& from, Purpose purpose, const ElementFacts& to, Order order,
                      void* target);

// Moves elements of one type from one place to another, all bits as they are. The memories must not
// overlap.
void copyElements(const std::byte* from, const Lanes& fromLanes, std::size_t elementSize,
                  const Lanes& lanes, std::byte* target);
