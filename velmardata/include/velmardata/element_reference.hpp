// References to single elements, and the operation that assigns through one.
#pragma once

#include <memory>
#include <utility>

#include "velmardata/element_concepts.hpp"
#include "velmardata/export.hpp"

namespace velmar::data::detail {

// One element of one block, which it keeps alive; known to the library only.
struct ReferenceImpl;

}  // namespace velmar::data::detail

namespace foundation::velmardata {
namespace detail {

// Stores the value in the element that the reference stands for. Throws std::invalid_argument if
// the reference is null or stands for an element of another type. Like an iterator, a reference
// writes into the block that it was made on, whether or not the array has since been copied.
template <WritableElement T>
VELMARDATA_EXPORT void setElement(std::shared_ptr<velmar::data::detail::ReferenceImpl> reference,
                                  T value);

#define X(name, number, type)                        \
  extern template VELMARDATA_EXPORT void setElement( \
      std::shared_ptr<velmar::data::detail::ReferenceImpl>, type);
VELMARDATA_FOR_EACH_CLASS_ELEMENT_TYPE(X)
#undef X

}  // namespace detail

// What TypedArray<T>::operator[] gives: a value that stands for an element and assigns to it. It
// costs an allocation, so it is for scalars; loops take an iterator.
template <ArrayElement T>
class ElementReference {
 public:
  // For the library. A client gets its references from operator[].
  explicit ElementReference(std::shared_ptr<velmar::data::detail::ReferenceImpl> impl) noexcept
      : m_impl(std::move(impl)) {}
  ElementReference(const ElementReference&) = default;
  ElementReference(ElementReference&&) = default;
  // Assigning one reference to another could mean the element or the reference: it is left out.
  ElementReference& operator=(const ElementReference&) = delete;
  ElementReference& operator=(ElementReference&&) = delete;
  ~ElementReference() = default;

  // Assigns to the element, at once and for good.
  ElementReference& operator=(T value)
    requires WritableElement<T>
  {
    detail::setElement<T>(m_impl, value);
    return *this;
  }

  // What setElement takes; never null.
  const std::shared_ptr<velmar::data::detail::ReferenceImpl>& impl() const noexcept {
    return m_impl;
  }

 private:
  std::shared_ptr<velmar::data::detail::ReferenceImpl> m_impl;
};

}  // namespace foundation::velmardata
