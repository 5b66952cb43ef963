// Calls of the data library's factory.
#include "storage/element_buffer.hpp"

#include <new>
#include <vector>

namespace vd = foundation::velmardata;

namespace {

// One for all calls: it has no state, and making one crosses into another library.
const vd::ArrayFactory& factory() {
  static const vd::standalone::ClientArrayFactory instance;
  return instance;
}

}  // namespace

UntypedBuffer tryCreateBuffer(vd::ArrayType type, std::uint64_t count) {
  void* block = nullptr;
  void (*deleter)(void*) = nullptr;
  factory().createBuffer(&block, &deleter, static_cast<int>(type), count);
  return UntypedBuffer(block, deleter);
}

std::optional<vd::Array> tryCreateArrayOfZeros(vd::ArrayType type, std::uint64_t count) {
  try {
    return factory().createArray(type, {1, count});
  } catch (const std::bad_alloc&) {
    return std::nullopt;
  }
}

vd::Array makeArrayFromBuffer(vd::ArrayType type, UntypedBuffer&& buffer,
                              std::span<const std::int64_t> dimensions) {
  return factory().createArrayFromBuffer(
      std::vector<unsigned long>(dimensions.begin(), dimensions.end()), type, std::move(buffer),
      velmar::data::MemoryLayout::Default);
}
