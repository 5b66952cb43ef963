// What a failed write reports.
#include "storage/element_writer.hpp"

#include "module/support.hpp"

bool reportUnlessStored(WriteStatus status, std::int64_t count, const char* typeWord) {
  if (status == WriteStatus::Stored) return true;
  if (status == WriteStatus::OutsideStorage) {
    setError(PyExc_RuntimeError, "unable to set value.");
  } else {
    setOutOfMemory(static_cast<std::uint64_t>(count), typeWord);
  }
  return false;
}
