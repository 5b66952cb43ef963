// The one report of memory for elements that cannot be had.
#pragma once

#include <cstdint>
#include <optional>

// Sets MemoryError. No count stands for one that does not fit 64 bits; the largest is printed then.
// `word` is the type word of the elements.
void setOutOfMemory(std::optional<std::uint64_t> count, const char* word);
