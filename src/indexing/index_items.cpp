// Index items: normalisation against a dimension's length, and the values of a run.
#include "indexing/index_items.hpp"

#include <string>

#include "module/support.hpp"

namespace {

void makeCanonicalEmpty(SliceIndexItem& item) {
  item.m_start = 0;
  item.m_stop = 0;
  item.m_step = 1;
  item.m_slice_len = 0;
}

std::int64_t clampedStart(std::int64_t start, std::int64_t length) {
  if (start >= length) start = length - 1;
  if (start < 0) start += length;
  return start < 0 ? 0 : start;
}

}  // namespace

bool IntegerIndexItem::refuse(std::int64_t length) const {
  if (length < 0) {
    setError(PyExc_RuntimeError,
             "len is invalid (" + std::to_string(length) + "); must be nonnegative.");
  } else if (m_index >= length) {
    setError(PyExc_RuntimeError, "index is too large: (" + std::to_string(m_index) +
                                     "; maximum: " + std::to_string(length - 1) + ").");
  }
  // Deliberate: an index that is too small sets no error here; each caller sets its own.
  return false;
}

bool SliceIndexItem::normalizeAgainstLength(std::int64_t length) {
  const bool hasStart = m_start.has_value();
  const bool hasStop = m_stop.has_value();
  const bool hasLength = m_slice_len.has_value();
  const bool isKnownEmpty = hasLength && *m_slice_len == 0;

  // Deliberate: neither start nor stop means an empty run and not the whole dimension.
  const bool isEmpty =
      (!hasStart && !hasStop) || (hasStart && hasStop && *m_start == *m_stop) || isKnownEmpty;
  if (isEmpty) {
    makeCanonicalEmpty(*this);
    m_isNormalized = true;
    return true;
  }
  m_start = hasStart ? clampedStart(*m_start, length) : 0;
  if (!hasStop) m_stop = length;
  if (!m_step.has_value()) m_step = 1;
  if (*m_step == 0) {
    setError(PyExc_ValueError, messages::zeroStep);
    return false;
  }
  // A plain quotient and not the number of positions; items from slice objects bring theirs along.
  if (!hasLength) m_slice_len = (*m_stop - *m_start) / *m_step;
  m_isNormalized = true;
  return true;
}

std::int64_t SliceIndexItem::numberOfValues() const {
  // In unsigned arithmetic, since the distance of two extreme ends does not fit a signed number.
  const auto start = static_cast<std::uint64_t>(*m_start);
  const auto stop = static_cast<std::uint64_t>(*m_stop);
  const auto step = static_cast<std::uint64_t>(*m_step);
  if (*m_step > 0) {
    return *m_start >= *m_stop ? 0 : static_cast<std::int64_t>((stop - start - 1) / step + 1);
  }
  if (*m_start <= *m_stop || *m_step == 0) return 0;
  return static_cast<std::int64_t>((start - stop - 1) / (0 - step) + 1);
}

std::vector<std::int64_t> SliceIndexItem::getIntegerIndexValues(std::int64_t length,
                                                                bool& success) const {
  success = m_isNormalized;
  if (!success) {
    setError(PyExc_RuntimeError,
             "getIntegerIndexValues(" + std::to_string(length) +
                 ", &success) was called before the slice item was normalized.");
    return {};
  }
  std::vector<std::int64_t> values(static_cast<std::size_t>(numberOfValues()));
  for (std::size_t k = 0; k < values.size(); ++k) values[k] = valueAt(static_cast<std::int64_t>(k));
  return values;
}

bool getSliceData(PyObject* slice, std::int64_t length, SliceIndexItem& item) {
  Py_ssize_t start = 0;
  Py_ssize_t stop = 0;
  Py_ssize_t step = 0;
  const bool isReadable = PySlice_Unpack(slice, &start, &stop, &step) >= 0;
  const Py_ssize_t count = isReadable ? PySlice_AdjustIndices(length, &start, &stop, step) : 0;
  if (step == 0) {
    setError(PyExc_ValueError, messages::zeroStep);
    return false;
  }
  item.m_start = start;
  item.m_stop = stop;
  item.m_step = step;
  item.m_slice_len = count;
  if (length < 0) {
    setError(PyExc_ValueError, "index has an invalid value: (" + std::to_string(start) + ":" +
                                   std::to_string(stop) + ":" + std::to_string(step) + ")");
    return false;
  }
  item.normalizeAgainstLength(length);  // cannot fail: the step is not zero
  return isReadable;
}
