// What a failed write reports.
#include "storage/element_writer.hpp"

#include "module/support.hpp"

bool reportUnlessStored(WriteStatus status) {
  switch (status) {
    case WriteStatus::Stored:
      return true;
    case WriteStatus::OutsideStorage:
      setError(PyExc_RuntimeError, "unable to set value.");
      return false;
    case WriteStatus::OutOfMemory:
      setError(PyExc_MemoryError, "unable to allocate memory for the elements.");
      return false;
  }
  return false;
}
