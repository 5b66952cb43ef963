// Sharing of contents: reference counting, copy on write, moving elements out.
#include "array_record.hpp"

#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "element_size.hpp"

namespace velmar::data::impl {
namespace {

// Acquire, so that the last owner sees all writes that other owners made before their release.
bool isShared(const ArrayRecord& record) noexcept {
  return record.m_referenceCount.load(std::memory_order_acquire) > 1;
}

// A new block with the elements of the record. Throws std::bad_alloc.
OwnedBlock copyElements(const ArrayRecord& record) {
  const std::uint64_t bytes = record.m_numberOfElements * elementSize(record.m_type);
  OwnedBlock copy = allocateBlock(bytes);
  if (!copy) throw std::bad_alloc();
  std::memcpy(elementsOf(copy.get()), elementsOf(record.m_block.get()), bytes);
  return copy;
}

}  // namespace

void releaseReference(ArrayImpl* impl) noexcept {
  if (impl == nullptr) return;
  if (impl->m_referenceCount.fetch_sub(1, std::memory_order_acq_rel) == 1) delete recordOf(impl);
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
