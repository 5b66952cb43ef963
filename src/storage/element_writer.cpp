// What a failed write reports.
#include "storage/element_writer.hpp"

#include <cassert>

#include "module/support.hpp"

void setErrorOfWrite(WriteStatus status, std::int64_t count, const char* typeWord) {
  assert(status != WriteStatus::Stored);
  if (status == WriteStatus::OutsideStorage) {
    setError(PyExc_RuntimeError, "unable to set value.");
  } else {
    setOutOfMemory(static_cast<std::uint64_t>(count), typeWord);
  }
}
