// Composition: a new subscript is resolved against the slice at the end of a view's chain, so that
// every number in a chain is a coordinate of the storage.
#pragma once

#include <cstdint>

#include "storage/mcpp_py_array.hpp"

// The length that a subscript of the view is normalised against, and that len() reports. -1 with
// RuntimeError set when the storage has expired or was reshaped to too few dimensions.
std::int64_t getLengthOfActiveDimension(const MCppPyArray& view);

// Resolves an integer that counts positions of the parent slice. False with RuntimeError set when
// the slice has fewer positions. The item's flag is then false, because its number is normalised
// against no length.
bool getReplacementIndexForSliceAndInt(const SliceIndexItem& parent, IntegerIndexItem& item);

// Resolves a slice that counts positions of the parent slice. Both need to be normalised.
void getReplacementIndexForSliceAndSlice(const SliceIndexItem& parent, SliceIndexItem& item);
