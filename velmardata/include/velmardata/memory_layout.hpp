// The order in which a buffer holds its elements.
#pragma once

#include <cstdint>

namespace velmar::data {

// Default is the library's own storage order and the only one that it takes: the first dimension
// varies fastest. Whoever has elements in another order reorders them before handing them over.
// createArrayFromBuffer refuses any other value.
enum class MemoryLayout : std::int32_t { Default = 0 };

}  // namespace velmar::data
