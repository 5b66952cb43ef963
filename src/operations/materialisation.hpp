// Views as arrays of their own.
#pragma once

#include <memory>
#include <optional>
#include <velmardata/velmardata.hpp>

#include "storage/mcpp_py_array.hpp"

// All of these read the elements once and keep the result in the view's caches: later writes do not
// reach it. A single open dimension n becomes 1 by n. Linear in the number of elements the first
// time.

// The contents of the view as a library array. Empty with an error set.
std::optional<foundation::velmardata::Array> getIndexedArrayAsMDA(MCppPyArray& view);

// A new array with these contents. Frozen contents are for an array that nobody writes to. Null
// with an error set.
std::unique_ptr<MCppPyArray> cloneAsMCppPyArrayUniquePtr(MCppPyArray& view, Contents contents);

// The same in a record. Null with an error set when there is no record, or when the contents could
// be read but the array could not be made. When the contents cannot be read, a record without a
// view and with the error still set.
PyObject* cloneAsMCPyArray(MCppPyArray& view);

// Makes the array whose memory a view exports, unless it exists or the view is a whole array. A
// failure leaves the cache empty and the error set.
void updateIndexRestrictedMCppPyArrayIfNecessary(MCppPyArray& view);
