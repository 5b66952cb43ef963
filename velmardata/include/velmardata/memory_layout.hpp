// MemoryLayout: the element order of a buffer.
#pragma once

#include <cstdint>

namespace velmar::data {

// Default is the library's storage order: the first dimension varies fastest. It is the only order
// that createArrayFromBuffer accepts; callers reorder other data first.
enum class MemoryLayout : std::int32_t { Default = 0 };

}  // namespace velmar::data
