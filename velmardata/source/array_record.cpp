// Sharing of contents: counting references, copying on write, moving elements out.
#include "array_record.hpp"

#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "element_size.hpp"

namespace velmar::data::impl {
namespace {

// Acquire: what other owners did to the contents before they left is seen by the one that stays.
bool isShared(const ArrayRecord& record) noexcept {
  return record.m_referenceCount.load(std::memory_order_acquire) > 1;
}

}  // namespace

void releaseReference(ArrayImpl* impl) noexcept {
  if (impl == nullptr) return;
  if (impl->m_referenceCount.fetch_sub(1, std::memory_order_acq_rel) == 1) delete recordOf(impl);
}

OwnedBlock copyElements(const ArrayRecord& record) {
  const std::uint64_t bytes = record.m_numberOfElements * elementSize(record.m_type);
  OwnedBlock copy = allocateBlock(bytes);
  if (!copy) throw std::bad_alloc();
  std::memcpy(elementsOf(copy.get()), elementsOf(record.m_block.get()), bytes);
  return copy;
}

void unshare(ArrayImpl*& impl) {
  if (impl == nullptr || !isShared(*recordOf(impl))) return;
  const ArrayRecord& record = *recordOf(impl);
  OwnedBlock copy = copyElements(record);
  auto own = std::make_unique<ArrayRecord>(record.m_type, record.m_dimensions,
                                           record.m_numberOfElements, std::move(copy));
  releaseReference(std::exchange(impl, own.release()));
}

OwnedBlock takeElements(ArrayImpl*& impl) {
  if (impl == nullptr) return nullptr;
  ArrayRecord& record = *recordOf(impl);
  OwnedBlock block = isShared(record) ? copyElements(record) : std::move(record.m_block);
  releaseReference(std::exchange(impl, nullptr));
  return block;
}

}  // namespace velmar::data::impl
