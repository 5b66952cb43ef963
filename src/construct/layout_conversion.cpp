// Arrays of buffers: adopted or reordered.
#include "construct/layout_conversion.hpp"

#include "construct/transposition.hpp"
#include "module/dimensions.hpp"
#include "module/support.hpp"

namespace vd = foundation::velmardata;

std::optional<vd::Array> makeTypedArrayFromBuf(const ElementFacts& element, UntypedBuffer&& buffer,
                                               bool bufferInStorageOrder,
                                               std::span<const std::int64_t> dimensions,
                                               std::int64_t numberOfElements) {
  if (numberOfElements < 2 || bufferInStorageOrder || isSameInBothOrders(dimensions)) {
    return makeArrayFromBuffer(element.type, std::move(buffer), dimensions);
  }
  const UntypedBuffer source = std::move(buffer);
  return convertRowMajorBufferToColumnMajor(element, source.get(), dimensions, numberOfElements);
}

std::optional<vd::Array> convertRowMajorBufferToColumnMajor(
    const ElementFacts& element, const void* source, std::span<const std::int64_t> dimensions,
    std::int64_t numberOfElements) {
  const auto count = static_cast<std::uint64_t>(numberOfElements);
  UntypedBuffer target = tryCreateBuffer(element.type, count);
  if (target == nullptr) {
    setOutOfMemory(count, element.word);
    return std::nullopt;
  }
  transposition::transpose(transposition::makeTransposition(dimensions), element.size, source,
                           target.get());
  return makeArrayFromBuffer(element.type, std::move(target), dimensions);
}
