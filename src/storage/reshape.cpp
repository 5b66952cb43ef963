// Reshaping of live storage.
#include <algorithm>
#include <new>
#include <utility>

#include "module/apply_visitor.hpp"
#include "module/dimensions.hpp"
#include "storage/element_buffer.hpp"
#include "storage/md_array_wrapper.hpp"

namespace vd = foundation::velmardata;

namespace {

// Moves the block from the old array, which `stored` was moved into, to a new one in `stored`.
// False when the contents are shared and cannot be copied; the old array is then back in `stored`.
struct ReshapeVisitor {
  std::span<const std::int64_t> dimensions;
  vd::Array& stored;

  template <class T>
  bool operator()(vd::TypedArray<T>&& array) const {
    ElementBuffer<T> block = noElementBuffer<T>();
    try {
      block = array.release();
    } catch (const std::bad_alloc&) {
      stored = std::move(array);
      return false;
    }
    stored = makeArrayFromBuffer(std::move(block), dimensions);
    return true;
  }
};

}  // namespace

bool MDArrayWrapper::reshape(std::span<const std::int64_t> dimensions, char order) {
  assert(exactProduct(dimensions) == static_cast<std::uint64_t>(m_numElems));
  m_writable = {};  // new contents may be allocated where the old ones were
  if (!applyVisitor(std::move(m_array), ReshapeVisitor{dimensions, m_array})) return false;
  if (m_isDescriptionKept) {
    m_keptDescriptions.push_back({std::move(m_shape), std::move(m_bytewiseStrides)});
  }
  m_nDim = static_cast<std::int32_t>(dimensions.size());
  m_shape.assign(dimensions.begin(), dimensions.end());
  m_order = order;
  setBytewiseStrides();
  // A shape that comes back uses the numbers that went out before. What is kept therefore grows
  // only with the number of different shapes.
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
