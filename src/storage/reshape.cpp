// Another shape over the elements of live storage.
#include <algorithm>
#include <memory>
#include <new>
#include <utility>

#include "module/apply_visitor.hpp"
#include "storage/md_array_wrapper.hpp"

namespace vd = foundation::velmardata;

namespace {

// The block goes from the old array to the new one; the old array comes back, and the flag is set,
// when it was shared and could not be copied.
struct ReshapeVisitor {
  const std::vector<std::int64_t>& dimensions;
  vd::standalone::ClientArrayFactory& factory;
  velmar::data::MemoryLayout layout;
  bool& isOutOfMemory;

  template <class T>
  vd::Array operator()(vd::TypedArray<T>&& array) const {
    std::vector<unsigned long> counts(dimensions.begin(), dimensions.end());
    std::unique_ptr<T[], void (*)(void*)> block(nullptr, [](void*) {});
    try {
      block = array.release();
    } catch (const std::bad_alloc&) {
      isOutOfMemory = true;
      return std::move(array);
    }
    const auto deleter = block.get_deleter();
    return factory.createArrayFromBuffer(
        std::move(counts), vd::arrayTypeOf<T>,
        std::unique_ptr<void, void (*)(void*)>(block.release(), deleter), layout);
  }
};

}  // namespace

bool MDArrayWrapper::reshape(const std::vector<std::int64_t>& dimensions,
                             vd::standalone::ClientArrayFactory& factory, char order,
                             velmar::data::MemoryLayout layout) {
  bool isOutOfMemory = false;
  m_writable = {};  // new contents can come to lie where the old ones did
  m_array =
      applyVisitor(std::move(m_array), ReshapeVisitor{dimensions, factory, layout, isOutOfMemory});
  if (isOutOfMemory) return false;
  if (m_isDescriptionKept) {
    m_keptDescriptions.push_back({std::move(m_shape), std::move(m_bytewiseStrides)});
  }
  setNumberOfDimensions(static_cast<int>(dimensions.size()));
  setShape(dimensions);
  setOrder(order);
  setBytewiseStrides();
  // A shape that comes back is described by the numbers that went out before, so that what is kept
  // grows with the number of different shapes only.
  const auto same = std::find_if(
      m_keptDescriptions.begin(), m_keptDescriptions.end(), [this](const Description& kept) {
        return kept.shape == m_shape && kept.bytewiseStrides == m_bytewiseStrides;
      });
  m_isDescriptionKept = same != m_keptDescriptions.end();
  if (m_isDescriptionKept) {
    m_shape = std::move(same->shape);
    m_bytewiseStrides = std::move(same->bytewiseStrides);
    m_keptDescriptions.erase(same);
  }
  return true;
}
