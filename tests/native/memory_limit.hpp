// A limit on memory, for tests of code that runs out of it.
#pragma once

#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <fstream>

namespace python_testing {

// While it lives, the process can take only 16 MiB more. It is not set where the process cannot
// read its own size from /proc, may not set the limit, or runs in an emulator, which ignores it;
// the tests that need it are skipped there.
class MemoryLimit {
 public:
  MemoryLimit() {
    getrlimit(RLIMIT_AS, &m_before);
    std::int64_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    rlimit limit = m_before;
    limit.rlim_cur = static_cast<rlim_t>(pages * sysconf(_SC_PAGESIZE)) + more;
    m_isSet = pages > 0 && setrlimit(RLIMIT_AS, &limit) == 0 && !canMap(2 * more);
  }
  MemoryLimit(const MemoryLimit&) = delete;
  MemoryLimit& operator=(const MemoryLimit&) = delete;
  ~MemoryLimit() { setrlimit(RLIMIT_AS, &m_before); }
  bool isSet() const { return m_isSet; }

 private:
  static constexpr std::size_t more = std::size_t{16} << 20;

  static bool canMap(std::size_t bytes) {
    void* const mapped = mmap(nullptr, bytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return mapped != MAP_FAILED && munmap(mapped, bytes) == 0;
  }

  rlimit m_before = {};
  bool m_isSet = false;
};

}  // namespace python_testing
