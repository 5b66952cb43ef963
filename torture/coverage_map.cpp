// Counters for the fuzzer: how often each place of the instrumented libraries runs. The compiler
// inserts a call of the function below at each place.
#include <cstdint>

namespace {
constexpr std::uint32_t slots = 1 << 16;
}

extern "C" {
std::uint8_t coverage_counters[slots];
std::uintptr_t coverage_places[2 * slots];  // address and flags of each counter

void __sanitizer_cov_trace_pc() {
  // A library is loaded at another address in each process; use only the offset within 16 MB.
  const auto place =
      reinterpret_cast<std::uintptr_t>(__builtin_return_address(0)) & std::uintptr_t{0xffffff};
  ++coverage_counters[static_cast<std::uint32_t>(place * 2654435761U) >> 16];
}
}
