// Computation of strides.
#include "storage/array_description.hpp"

#include <algorithm>

#include "module/python.hpp"

void ArrayDescription::assign(std::span<const std::int64_t> shape, std::int64_t elementSize,
                              char order) {
  const std::size_t count = shape.size();
  std::unique_ptr<std::int64_t[]> outside;
  if (count > mostInside) outside = std::make_unique<std::int64_t[]>(2 * count);
  std::int64_t* numbers = outside != nullptr ? outside.get() : m_inside.data();
  std::copy(shape.begin(), shape.end(), numbers);
  PyBuffer_FillContiguousStrides(static_cast<int>(count), numbers, numbers + count,
                                 static_cast<int>(elementSize), order);
  m_outside = std::move(outside);
  m_count = count;
}
