// Counts which places of the instrumented libraries run, where the fuzzer looks for it. The
// compiler calls the one function at each of them.
#include <cstdint>

namespace {
constexpr std::uint32_t slots = 1 << 16;
}

extern "C" {
std::uint8_t coverage_counters[slots];
std::uintptr_t coverage_places[2 * slots];  // an address and flags for each counter

void __sanitizer_cov_trace_pc() {
  // The pages of a library lie elsewhere in each process; the places within 16 MB do not.
  const auto place =
      reinterpret_cast<std::uintptr_t>(__builtin_return_address(0)) & std::uintptr_t{0xffffff};
  ++coverage_counters[static_cast<std::uint32_t>(place * 2654435761U) >> 16];
}
}
