// A limit on memory, for tests of code that runs out of it.
#pragma once

#include <sys/resource.h>

#include <cstddef>
#include <cstdint>
#include <fstream>

namespace python_testing {

// While it lives, the process can take only 16 MiB more. It is not set where the process cannot
// read its own size from /proc or may not set the limit; the tests that need it are skipped there.
class MemoryLimit {
 public:
  MemoryLimit() {
    getrlimit(RLIMIT_AS, &m_before);
    std::int64_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    rlimit limit = m_before;
    limit.rlim_cur = static_cast<rlim_t>(pages) * 4096 + (std::size_t{16} << 20);
    m_isSet = pages > 0 && setrlimit(RLIMIT_AS, &limit) == 0;
  }
  MemoryLimit(const MemoryLimit&) = delete;
  MemoryLimit& operator=(const MemoryLimit&) = delete;
  ~MemoryLimit() { setrlimit(RLIMIT_AS, &m_before); }
  bool isSet() const { return m_isSet; }

 private:
  rlimit m_before = {};
  bool m_isSet = false;
};

}  // namespace python_testing
