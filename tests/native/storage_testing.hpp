// What the tests of writes share: elements as the array and as the mirror hold them, scarce memory.
#pragma once

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cstdint>
#include <fstream>
#include <type_traits>
#include <vector>

#include "python_testing.hpp"

namespace python_testing {

using velmardata_testing::samples;

// A value that is not sample number i.
template <class T>
T otherThanSample(std::size_t i) {
  if constexpr (std::is_same_v<T, bool>) {
    return !sample<bool>(i);
  } else {
    return sample<T>(i + 25);
  }
}

template <class T>
std::vector<T> arrayElements(const MDArrayWrapper& wrapper) {
  return velmardata_testing::elementsOf(foundation::velmardata::TypedArray<T>(wrapper.array()));
}

// This is a look at the mirror: it is filled afterwards.
template <class T>
std::vector<T> mirrorElements(const MDArrayWrapper& wrapper) {
  const auto* first = reinterpret_cast<const T*>(wrapper.buf());
  return std::vector<T>(first, first + wrapper.getNumberOfElements());
}

// The elements, which it is a failure for the mirror not to agree on.
template <class T>
std::vector<T> storedElements(const MCppPyArray& view) {
  const WrapperAccess storage = view.wrapper();
  std::vector<T> elements = arrayElements<T>(*storage);
  EXPECT_EQ(mirrorElements<T>(*storage), elements) << "the mirror differs from the array";
  return elements;
}

// No more memory than a little for as long as it lives.
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
