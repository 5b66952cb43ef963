// What a failed write reports.
#include "storage/element_writer.hpp"

#include "module/support.hpp"

bool reportUnlessStored(WriteStatus status) {
  if (status == WriteStatus::Stored) return true;
  if (status == WriteStatus::OutsideStorage) {
    setError(PyExc_RuntimeError, "unable to set value.");
  } else {
    setError(PyExc_MemoryError, "unable to allocate memory for the elements.");
  }
  return false;
}
