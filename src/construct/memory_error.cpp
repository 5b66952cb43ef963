// The text of the MemoryError.
#include "construct/memory_error.hpp"

#include <limits>
#include <string>

#include "module/support.hpp"

void setOutOfMemory(std::optional<std::uint64_t> count, const char* word) {
  const std::uint64_t printed = count.value_or(std::numeric_limits<std::uint64_t>::max());
  setError(PyExc_MemoryError, "unable to allocate memory for array with number of elements = " +
                                  std::to_string(printed) + "; type = " + word);
}
