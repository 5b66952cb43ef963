// Buffers of other objects as data of a construction: their formats.
#pragma once

#include <string>

#include "module/python.hpp"

namespace external_buffer {

inline constexpr const char* doesNotFit = "input does not fit evenly into output type.";

// Sets BufferError and returns false.
bool refuse(const std::string& message);

// Whether the buffer's format suits elements whose part has the given letter. Only letters count:
// prefixes of the struct module are not understood, and what follows the letter is not read. False
// with BufferError set.
bool formatMatches(const Py_buffer& view, char outputLetter, bool isComplex);

}  // namespace external_buffer

// Whether two different letters of the buffer protocol denote the same representation in an item of
// that many bytes. That is so for a long and the integer of its width, and for a byte and a bool.
bool areDifferentButCompatible(char input, char output, long itemsize);
