// Reshaping of live storage.
#include <algorithm>
#include <cstring>
#include <memory>
#include <utility>

#include "module/apply_visitor.hpp"
#include "module/dimensions.hpp"
#include "storage/element_buffer.hpp"
#include "storage/md_array_wrapper.hpp"

namespace vd = foundation::velmardata;

namespace {

// A copy of the elements of the array; null when memory is short.
struct CopyVisitor {
  template <class T>
  UntypedBuffer operator()(const vd::TypedArray<T>& array) const {
    const std::uint64_t count = array.getNumberOfElements();
    UntypedBuffer copy = tryCreateBuffer(vd::arrayTypeOf<T>, count);
    if (copy == nullptr) return copy;
    if (count > 0) {
      const auto first = array.begin();
      std::memcpy(copy.get(), &*first, count * sizeof(T));
    }
    return copy;
  }
};

// Another data library may have iterators that cannot give up their hold.
template <class Iterator>
concept GivesUpHold = requires(Iterator iterator) { iterator.giveUpHold(); };
constexpr bool canHoldTwice =
    GivesUpHold<decltype(std::declval<const vd::TypedArray<double>&>().begin())>;

// One more hold on the elements of the array, as a buffer that another array can take over.
struct SecondHoldVisitor {
  template <class T>
  UntypedBuffer operator()(const vd::TypedArray<T>& array) const {
    auto first = array.begin();
    if constexpr (GivesUpHold<decltype(first)>) {
      const auto deleter = tryCreateBuffer(vd::arrayTypeOf<T>, 0).get_deleter();
      UntypedBuffer buffer(const_cast<T*>(&*first), deleter);
      first.giveUpHold();
      return buffer;
    } else {
      return CopyVisitor{}(array);
    }
  }
};

}  // namespace

bool MDArrayWrapper::reshape(std::span<const std::int64_t> dimensions, char order) {
  assert(exactProduct(dimensions) == static_cast<std::uint64_t>(m_numElems));
  // Everything that needs memory comes first, so that a failure changes nothing. The new array is
  // made beside the old one, around the same elements.
  auto description = std::make_unique<ArrayDescription>();
  description->assign(dimensions, m_elemSizeInBytes, order);
  if (m_isDescriptionExported && m_later == nullptr) {
    m_later = std::make_unique<LaterDescriptions>();
    m_later->current = &m_firstDescription;
  }
  if (m_later != nullptr) m_later->all.reserve(m_later->all.size() + 1);
  const bool holdsTwice = canHoldTwice && isSoleOwner();
  UntypedBuffer elements = holdsTwice ? applyVisitor(m_array, SecondHoldVisitor{})
                                      : applyVisitor(m_array, CopyVisitor{});
  if (elements == nullptr) return false;
  m_array = makeArrayFromBuffer(m_type, std::move(elements), dimensions);
  // After a copy, the block that was shown is a mirror.
  if (!holdsTwice) m_showsArray = false;
  m_nDim = static_cast<std::int32_t>(dimensions.size());
  m_order = order;
  if (m_later != nullptr) {
    takeUpDescription(std::move(description));
  } else {
    currentDescription().swap(*description);
  }
  m_strides = currentDescription().strides().data();
  return true;
}

void MDArrayWrapper::takeUpDescription(std::unique_ptr<ArrayDescription> description) {
  // What went out stays. A shape that comes back uses the numbers that went out before, so that
  // what is kept grows only with the number of different shapes.
  const auto isSame = [&](const ArrayDescription& kept) { return kept == *description; };
  const auto found = std::find_if(m_later->all.begin(), m_later->all.end(),
                                  [&](const auto& kept) { return isSame(*kept); });
  ArrayDescription* same = isSame(m_firstDescription)    ? &m_firstDescription
                           : found != m_later->all.end() ? found->get()
                                                         : nullptr;
  if (same == m_later->current) return;
  if (same != nullptr) {
    // The current one is the last of them if it did not go out.
    if (!m_isDescriptionExported) m_later->all.pop_back();
    m_later->current = same;
    m_isDescriptionExported = true;
  } else if (m_isDescriptionExported) {
    m_later->current = description.get();
    m_later->all.push_back(std::move(description));
    m_isDescriptionExported = false;
  } else {
    m_later->current->swap(*description);
  }
}
