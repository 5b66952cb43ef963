// Counts which places of the instrumented libraries run, where the fuzzer looks for it. The
// compiler calls the one function at each of them.
#include <stdint.h>

enum { slots = 1 << 16 };
uint8_t coverage_counters[slots];
uintptr_t coverage_places[2 * slots];  // an address and flags for each counter

void __sanitizer_cov_trace_pc(void) {
  // The pages of a library lie elsewhere in each process; the places within 16 MB do not.
  const uintptr_t place = (uintptr_t)__builtin_return_address(0) & 0xffffff;
  ++coverage_counters[(uint32_t)(place * 2654435761u) >> 16];
}
