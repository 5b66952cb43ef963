// ElementReference: assigns to a single element of an array.
#pragma once

#include <memory>
#include <utility>

#include "velmardata/element_concepts.hpp"
#include "velmardata/export.hpp"

namespace velmar::data::detail {

// A pointer to one element and a hold on its block; private to the library.
struct ReferenceImpl;

}  // namespace velmar::data::detail

namespace foundation::velmardata {
namespace detail {

// Stores the value in the referenced element. Throws std::invalid_argument if the reference is null
// or the element has another type. The write goes to the block for which the reference was made,
// even if the array has been copied since.
template <WritableElement T>
VELMARDATA_EXPORT void setElement(std::shared_ptr<velmar::data::detail::ReferenceImpl> reference,
                                  T value);

#define X(name, number, type)                        \
  extern template VELMARDATA_EXPORT void setElement( \
      std::shared_ptr<velmar::data::detail::ReferenceImpl>, type);
VELMARDATA_FOR_EACH_CLASS_ELEMENT_TYPE(X)
#undef X

}  // namespace detail

// The result of TypedArray<T>::operator[]. It assigns to one element and keeps the block alive.
// Each one costs an allocation; use an iterator in loops.
template <ArrayElement T>
class ElementReference {
 public:
  // For the library only. Clients get references from operator[].
  explicit ElementReference(std::shared_ptr<velmar::data::detail::ReferenceImpl> impl) noexcept
      : m_impl(std::move(impl)) {}
  ElementReference(const ElementReference&) = default;
  ElementReference(ElementReference&&) = default;
  // Deleted: assignment from a reference could mean either the element or the reference.
  ElementReference& operator=(const ElementReference&) = delete;
  ElementReference& operator=(ElementReference&&) = delete;
  ~ElementReference() = default;

  // Assigns to the element.
  ElementReference& operator=(T value)
    requires WritableElement<T>
  {
    detail::setElement<T>(m_impl, value);
    return *this;
  }

  // The argument for setElement. Null only after a move.
  const std::shared_ptr<velmar::data::detail::ReferenceImpl>& impl() const noexcept {
    return m_impl;
  }

 private:
  std::shared_ptr<velmar::data::detail::ReferenceImpl> m_impl;
};

}  // namespace foundation::velmardata
