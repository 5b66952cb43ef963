// Index items: normalisation against the length of a dimension, and the values of a run.
#include "storage/index_items.hpp"

#include <string>

#include "module/support.hpp"

namespace {

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
  return false;
}

void SliceIndexItem::makeCanonicalEmpty() {
  m_start = 0;
  m_stop = 0;
  m_step = 1;
  m_slice_len = 0;
}

bool SliceIndexItem::normalizeAgainstLength(std::int64_t length) {
  const bool hasStart = m_start.has_value();
  const bool hasStop = m_stop.has_value();
  const bool hasLength = m_slice_len.has_value();
  const bool isKnownEmpty = hasLength && *m_slice_len == 0;

  // Deliberate: without start and stop the run is empty and not the whole dimension, since nothing
  // says where it lies.
  const bool isEmpty =
      (!hasStart && !hasStop) || (hasStart && hasStop && *m_start == *m_stop) || isKnownEmpty;
  if (isEmpty) {
    makeCanonicalEmpty();
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
  // A truncated quotient and not the number of positions. Items made of slice objects bring their
  // length, so they do not come here.
  if (!hasLength) m_slice_len = (*m_stop - *m_start) / *m_step;
  m_isNormalized = true;
  return true;
}

std::int64_t SliceIndexItem::numberOfValues() const {
  assert(m_isNormalized);
  // Unsigned arithmetic: the distance of two extreme ends does not fit a signed number.
  const auto start = static_cast<std::uint64_t>(*m_start);
  const auto stop = static_cast<std::uint64_t>(*m_stop);
  const auto step = static_cast<std::uint64_t>(*m_step);
  if (*m_step > 0) {
    return *m_start >= *m_stop ? 0 : static_cast<std::int64_t>((stop - start - 1) / step + 1);
  }
  if (*m_start <= *m_stop || *m_step == 0) return 0;
  return static_cast<std::int64_t>((start - stop - 1) / (0 - step) + 1);
}
