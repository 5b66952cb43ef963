// Array: the destructor, and the properties that the contents record.
#include "velmardata/array.hpp"

#include "array_record.hpp"

namespace foundation::velmardata {

using velmar::data::impl::recordOf;

Array::~Array() {
  velmar::data::impl::releaseReference(m_impl);
}

ArrayType Array::getType() const noexcept {
  return m_impl == nullptr ? ArrayType{0} : recordOf(m_impl)->m_type;
}

std::vector<unsigned long> Array::getDimensions() const {
  if (m_impl == nullptr) return {};
  return recordOf(m_impl)->m_dimensions;
}

std::uint64_t Array::getNumberOfElements() const noexcept {
  return m_impl == nullptr ? 0 : recordOf(m_impl)->m_numberOfElements;
}

}  // namespace foundation::velmardata
