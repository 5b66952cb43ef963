// Comparison of the elements of two boxes, without Python objects.
#pragma once

#include "elements/box.hpp"

// Whether all elements are equal as Python compares the numbers that they are read as. NaN is never
// equal. Both boxes have the same dimensions and are of one class; one may be complex and the other
// not. Linear in the number of elements; ends soon after the first difference.
bool areEqual(const Box& a, const Box& b);
