// TypedArray<T>: the function bodies and the 22 instantiations.
#include "velmardata/typed_array.hpp"

#include <stdexcept>
#include <utility>

#include "array_record.hpp"
#include "reference_impl.hpp"

namespace foundation::velmardata {
namespace {

using velmar::data::impl::ArrayImpl;
using velmar::data::impl::ArrayRecord;
using velmar::data::impl::BlockHeader;
using velmar::data::impl::BlockHold;
using velmar::data::impl::recordOf;

// Returns its argument. Throws std::invalid_argument if the handle is empty or of another type.
template <class Handle>
Handle&& checked(Handle&& array, ArrayType type) {
  if (array.getType() != type) {
    throw std::invalid_argument("array is empty or of another element type.");
  }
  return std::forward<Handle>(array);
}

// An iterator to the element at `index`; a default-constructed one if `impl` is null.
template <class Iterator>
Iterator iteratorAt(const ArrayImpl* impl, std::uint64_t index) noexcept {
  if (impl == nullptr) return Iterator();
  BlockHeader* const block = static_cast<const ArrayRecord*>(impl)->m_block.get();
  auto* const first = static_cast<typename Iterator::pointer>(elementsOf(block));
  return Iterator(first + index, BlockHold(block));
}

}  // namespace

template <ArrayElement T>
TypedArray<T>::TypedArray(const Array& other) : Array(checked(other, arrayTypeOf<T>)) {}

template <ArrayElement T>
TypedArray<T>::TypedArray(Array&& other) : Array(checked(std::move(other), arrayTypeOf<T>)) {}

template <ArrayElement T>
TypedIterator<T> TypedArray<T>::begin()
  requires WritableElement<T>
{
  unshare(m_impl);
  return iteratorAt<TypedIterator<T>>(m_impl, 0);
}

template <ArrayElement T>
TypedIterator<const T> TypedArray<T>::begin() const {
  return iteratorAt<TypedIterator<const T>>(m_impl, 0);
}

template <ArrayElement T>
TypedIterator<const T> TypedArray<T>::end() const {
  return iteratorAt<TypedIterator<const T>>(m_impl, getNumberOfElements());
}

template <ArrayElement T>
ElementReference<T> TypedArray<T>::operator[](unsigned long index)
  requires WritableElement<T>
{
  if (index >= getNumberOfElements()) throw std::out_of_range("array has no such element.");
  unshare(m_impl);
  BlockHeader* const block = recordOf(m_impl)->m_block.get();
  void* const element = static_cast<T*>(elementsOf(block)) + index;
  using velmar::data::detail::ReferenceImpl;
  // Braces, because clang++ before 16 cannot initialise an aggregate with parentheses.
  return ElementReference<T>(
      std::make_shared<ReferenceImpl>(ReferenceImpl{arrayTypeOf<T>, element, BlockHold(block)}));
}

template <ArrayElement T>
std::unique_ptr<T[], void (*)(void*)> TypedArray<T>::release() {
  BlockHeader* const block = takeElements(m_impl).release();
  T* const elements = block == nullptr ? nullptr : static_cast<T*>(elementsOf(block));
  return {elements, &velmar::data::impl::deleteElements};
}

#define X(name, number, type) template class TypedArray<type>;
VELMARDATA_FOR_EACH_ARRAY_TYPE(X)
#undef X

}  // namespace foundation::velmardata
