// Reading of slice objects.
#include "indexing/subscripts.hpp"

#include <string>

std::optional<SliceIndexItem> getSliceData(PyObject* slice, std::int64_t length) {
  Py_ssize_t start = 0;
  Py_ssize_t stop = 0;
  Py_ssize_t step = 0;
  const bool isReadable = PySlice_Unpack(slice, &start, &stop, &step) >= 0;
  const Py_ssize_t count = isReadable ? PySlice_AdjustIndices(length, &start, &stop, step) : 0;
  if (step == 0) {
    setError(PyExc_ValueError, messages::zeroStep);
    return std::nullopt;
  }
  if (length < 0) {
    setError(PyExc_ValueError, "index has an invalid value: (" + std::to_string(start) + ":" +
                                   std::to_string(stop) + ":" + std::to_string(step) + ")");
    return std::nullopt;
  }
  if (!isReadable) return std::nullopt;
  SliceIndexItem item = {start, stop, step, count, false};
  item.normalizeAgainstLength(length);  // cannot fail: the step is not zero
  return item;
}
