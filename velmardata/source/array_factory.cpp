// ArrayFactory: blocks and arrays whose element type is known only at run time.
#include "velmardata/array_factory.hpp"

#include <cstring>
#include <new>
#include <optional>
#include <stdexcept>
#include <utility>

#include "array_record.hpp"
#include "block.hpp"
#include "element_size.hpp"
#include "velmardata/exceptions.hpp"

namespace foundation::velmardata {
namespace {

using velmar::data::impl::allocateBlock;
using velmar::data::impl::ArrayRecord;
using velmar::data::impl::blockOf;
using velmar::data::impl::deleteElements;
using velmar::data::impl::elementSize;
using velmar::data::impl::elementsOf;
using velmar::data::impl::multiply;
using velmar::data::impl::OwnedBlock;
using velmar::data::impl::productOf;

using UntypedBuffer = std::unique_ptr<void, void (*)(void*)>;

// The number of elements of an array and their size.
struct Extent {
  std::uint64_t elements;
  std::uint64_t bytes;
};

// Empty if the number of elements or bytes does not fit 64 bits. Throws EArrayUnknownDataType.
std::optional<Extent> extentOf(ArrayType type, const std::vector<unsigned long>& dimensions) {
  const std::optional<std::uint64_t> elements = productOf(dimensions);
  // Any type number is allowed without elements, because their size does not matter then.
  if (elements != 0 && elementSize(type) == 0) throw EArrayUnknownDataType("");
  if (!elements) return std::nullopt;
  const std::optional<std::uint64_t> bytes = multiply(*elements, elementSize(type));
  if (!bytes) return std::nullopt;
  return Extent{*elements, *bytes};
}

// The block for an array of `bytes` bytes: the buffer itself if this library allocated it (its
// deleter shows that), otherwise a copy. Throws std::invalid_argument and std::bad_alloc.
OwnedBlock blockFromBuffer(UntypedBuffer buffer, std::uint64_t bytes) {
  if (buffer != nullptr && buffer.get_deleter() == &deleteElements) {
    OwnedBlock block(blockOf(buffer.release()));
    if (block->m_bytes < bytes) throw std::invalid_argument("buffer is too small for dimensions.");
    return block;
  }
  if (buffer == nullptr && bytes != 0) throw std::invalid_argument("buffer is null.");
  OwnedBlock copy = allocateBlock(bytes);
  if (!copy) throw std::bad_alloc();
  if (bytes != 0) std::memcpy(elementsOf(copy.get()), buffer.get(), bytes);
  return copy;
}

}  // namespace

void ArrayFactory::createBuffer(void** buffer, void (**deleter)(void*), int arrayType,
                                unsigned long count) const noexcept {
  *buffer = nullptr;
  *deleter = &deleteElements;
  const std::uint64_t size = elementSize(static_cast<ArrayType>(arrayType));
  const std::optional<std::uint64_t> bytes = multiply(count, size);
  if (!bytes || (size == 0 && count != 0)) return;
  OwnedBlock block = allocateBlock(*bytes);
  if (block) *buffer = elementsOf(block.release());
}

Array ArrayFactory::createArray(ArrayType type, std::vector<unsigned long> dimensions) const {
  const std::optional<Extent> extent = extentOf(type, dimensions);
  if (!extent) throw std::bad_alloc();
  OwnedBlock block = allocateBlock(extent->bytes, velmar::data::impl::Fill::Zeros);
  if (!block) throw std::bad_alloc();
  return Array(new ArrayRecord(type, std::move(dimensions), extent->elements, std::move(block)));
}

Array ArrayFactory::createArrayFromBuffer(std::vector<unsigned long> dimensions, ArrayType type,
                                          UntypedBuffer buffer,
                                          velmar::data::MemoryLayout layout) const {
  if (layout != velmar::data::MemoryLayout::Default) {
    throw std::invalid_argument("buffer is not in the storage layout.");
  }
  const std::optional<Extent> extent = extentOf(type, dimensions);
  if (!extent) throw std::invalid_argument("buffer is too small for dimensions.");
  OwnedBlock block = blockFromBuffer(std::move(buffer), extent->bytes);
  return Array(new ArrayRecord(type, std::move(dimensions), extent->elements, std::move(block)));
}

}  // namespace foundation::velmardata
