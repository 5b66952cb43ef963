// Real copies of the elements, or of one part of each, in storage order.
#pragma once

#include <optional>
#include <velmardata/velmardata.hpp>

#include "storage/mcpp_py_array.hpp"

enum class OutputEnum {
  Noncomplex = 0,  // the elements of a real array
  Real = 1,        // the real parts of a complex array
  Imag = 2,        // the imaginary parts of a complex array
};

// A real 1-by-N array of its own. An empty handle, with no error set, when memory is short. Throws
// std::runtime_error for an output that the elements do not have. Linear in the number of elements.
foundation::velmardata::Array tryExtractContents(const foundation::velmardata::Array& array,
                                                 OutputEnum output);

// The same for the whole storage of a view, whatever the view shows. Empty with an error set.
std::optional<foundation::velmardata::Array> noncomplex(const MCppPyArray& view);
std::optional<foundation::velmardata::Array> realOrImag(const MCppPyArray& view, bool wantReal);
