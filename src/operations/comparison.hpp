// Comparison of arrays.
#pragma once

#include <optional>

#include "storage/mcpp_py_array.hpp"

// Whether walks over both arrays yield the same. Empty with an error set; false with an error set
// when the failure is in a row. Linear in the number of elements, with Python objects for each.
std::optional<bool> isEqualTo(const MCppPyArray& self, const MCppPyArray& other);
