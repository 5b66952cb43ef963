// Stores past the caches, for memory that is too large to stay in a cache until it is read.
//
// An ordinary store fetches the line that it changes first. A streaming store of a whole line does
// not, which saves a third of the traffic of a copy.
#pragma once

#include <cstddef>
#include <cstring>

#ifdef __SSE2__
#  include <emmintrin.h>
#endif

namespace streaming {

inline constexpr std::size_t lineSize = 64;

#ifdef __SSE2__

inline constexpr bool isPossible = true;

// Copies a line to an address that is a multiple of the size of a line.
inline void storeLine(std::byte* to, const std::byte* line) {
  auto* target = reinterpret_cast<__m128i*>(to);
  const auto* source = reinterpret_cast<const __m128i*>(line);
  for (int k = 0; k < 4; ++k) _mm_stream_si128(target + k, _mm_loadu_si128(source + k));
}

// To be called after the last line: other threads see the lines before all that is stored later.
inline void finish() {
  _mm_sfence();
}

#else

// On other processors the functions work, but ordinary walks are faster.
inline constexpr bool isPossible = false;
inline void storeLine(std::byte* to, const std::byte* line) {
  std::memcpy(to, line, lineSize);
}
inline void finish() {}

#endif

}  // namespace streaming
