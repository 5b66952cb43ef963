// Assignment through element references, for the 21 writable types.
#include "velmardata/element_reference.hpp"

#include <stdexcept>
#include <utility>

#include "reference_impl.hpp"

namespace foundation::velmardata::detail {

template <WritableElement T>
void setElement(std::shared_ptr<velmar::data::detail::ReferenceImpl> reference, T value) {
  const auto target = std::move(reference);
  if (target == nullptr || target->m_type != arrayTypeOf<T>) {
    throw std::invalid_argument("element reference is null or of another element type.");
  }
  *static_cast<T*>(target->m_element) = value;
}

#define X(name, number, type) \
  template void setElement(std::shared_ptr<velmar::data::detail::ReferenceImpl>, type);
VELMARDATA_FOR_EACH_CLASS_ELEMENT_TYPE(X)
#undef X

}  // namespace foundation::velmardata::detail
