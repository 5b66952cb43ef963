// The storage that an array and all its views share.
#pragma once

#include <atomic>
#include <bit>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <memory>
#include <span>
#include <variant>
#include <vector>
#include <velmardata/velmardata.hpp>

#include "module/export.hpp"
#include "module/python.hpp"
#include "storage/array_description.hpp"
#include "storage/index_items.hpp"

// Where the contents of an array come from, which decides whether reads may use the library's
// block.
enum class Contents {
  Own,     // made here; no other handle exists
  Copied,  // of a clone, which shares them with the snapshot that it was made of
  Frozen,  // of an export, which shares them with its snapshot; nobody writes to either
  Client,  // a native client has or had a handle, and may write
};

// A library array, its description in the form of the buffer protocol, and the memory that reads
// and exports use.
//
// That memory is buf(), which the first look fixes for the life of the wrapper: exported addresses
// never move. It is one of two:
// - The library's own block (m_showsArray), when nobody else has the contents. Array and buf() are
//   then one memory, and writes go there once.
// - The mirror, a copy of the elements, otherwise. Whoever writes an element writes both
//   (ElementWriter).
// handOut() is the only way for a native client to get the contents. Before a look it makes the
// first look take the mirror; after a look at the block, the array gets a copy, and the block that
// was shown stays as the mirror. Neither is undone.
//
// Ownership. The wrapper owns its handle on the library array, the mirror, a hold on the block that
// it shows, and the numbers of the description. Views own the wrapper together (shared_ptr); it
// dies with the last strong one. Borrowed: buf(), shape() and bytewiseStrides() are valid until
// Python code may run, because that can reshape or drop the storage. An export keeps the wrapper
// alive through its view, and what exportedDescription() gives stays as long as the wrapper lives.
//
// Invariants. The current description has m_nDim dimensions. m_numElems is their product and never
// changes, nor does the element type. Once buf() has been looked at, it holds the
// elements of the array.
//
// Kept for clients: m_isReadOnly is 1 for every array, because exports are read-only while writes
// by subscript are not, and its value goes out in Py_buffer.
class MDArrayWrapper {
 public:
  // order: 'F' for column-major, which is the order of the library, or 'C'. Throws
  // EArrayUnknownDataType for an array of an unsupported type. When memory for a mirror that may be
  // needed is short, hasMirror() is false and the caller reports that. Constant time.
  // dimensions: those of the array. A caller that knows them saves a copy of them. If the span is
  // empty, the library is asked.
  MDArrayWrapper(foundation::velmardata::Array&& array, char order, Contents contents,
                 std::span<const std::int64_t> dimensions = {});
  MDArrayWrapper(const MDArrayWrapper&) = delete;
  MDArrayWrapper& operator=(const MDArrayWrapper&) = delete;
  ~MDArrayWrapper();

  const foundation::velmardata::Array& array() const { return m_array; }
  foundation::velmardata::ArrayType getType() const { return m_type; }
  // A reference to the contents for a native client, which may write to them. Null, with nothing
  // changed and no error set, when memory is short; std::bad_alloc likewise. Linear in the number
  // of elements after a look at the library's block, constant time otherwise.
  velmar::data::impl::ArrayImpl* tryHandOut();

  // The elements in storage order. The first call fixes the address; it is linear in the number of
  // elements if they have to be copied to a mirror, and cannot fail.
  std::byte* buf() const {
    if (m_buf == nullptr) [[unlikely]]
      look();
    assert(m_buf != nullptr);
    return m_buf;
  }
  // False when memory was short at construction; the wrapper must not be used then.
  bool hasMirror() const { return m_mirror != nullptr || !needsMirror(); }
  std::int64_t getBufferSizeInBytes() const { return m_bufferSizeInBytes; }
  std::int64_t getNumberOfElements() const { return m_numElems; }
  std::int64_t getElementSizeInBytes() const { return m_elemSizeInBytes; }
  int isReadOnly() const { return m_isReadOnly; }
  int getNumberOfDimensions() const { return m_nDim; }
  std::span<const std::int64_t> shape() const { return currentDescription().shape(); }
  std::span<const std::int64_t> bytewiseStrides() const { return currentDescription().strides(); }
  char getOrder() const { return m_order; }
  // Shape and strides at addresses that stay good as long as the wrapper lives, reshaped or not.
  // What is kept grows with the number of different shapes that were exported.
  ArrayDescription& exportedDescription() {
    m_isDescriptionExported = true;
    return currentDescription();
  }

  // The offset of an element, counted in elements. Missing trailing indices count as 0. Indices are
  // not tested against the shape. -1, with no error set, for more indices than dimensions and for
  // an offset beyond 64 bits.
  std::int64_t getElementOffsetFromIndices(const Position& indices) const {
    return getElementOffset(indices.size(), [&](std::size_t i) { return indices[i]; });
  }
  // The same for a position whose entry i is indexAt(i).
  template <class IndexAt>
  std::int64_t getElementOffset(std::size_t count, IndexAt indexAt) const {
    std::int64_t bytes = 0;
    if (!findByteOffset(count, indexAt, bytes)) return -1;
    return bytes >> std::countr_zero(static_cast<std::uint64_t>(m_elemSizeInBytes));
  }
  // A negative index counted from the end, which can still be negative; -999 for an index past the
  // end. The dimension must exist. Kept as part of the interface.
  std::int64_t normalizedIndex(std::int64_t index, std::int64_t dimension) const;
  // The address in the mirror of the element whose index in dimension i is indexAt(i). Null, with
  // no error set, when there is no such element.
  template <class IndexAt>
  const std::byte* findElement(std::size_t count, IndexAt indexAt) const;
  // A Python number made of element `offset` of the library array. Null, with no error set, when
  // there is no such element. Kept as part of the interface.
  PyObject* getElementAsPyObjectFromElementOffset(std::int64_t offset) const;

  // Gives the elements another shape, whose product must be the number of elements. No element and
  // no mirror moves. False, with nothing changed and no error set, when contents that are shared
  // with another handle could not be copied. Constant time otherwise. Throws std::bad_alloc, with
  // nothing changed.
  bool reshape(std::span<const std::int64_t> dimensions, char order);
  // Labelled lines of everything above, for debugging. Throws EArrayUnknownDataType for an array of
  // an unsupported type.
  MODULE_EXPORT std::ostream& writeToOstream(std::ostream& os) const;

 private:
  template <class T>
  friend class ElementWriter;

#define X(name, number, type) , foundation::velmardata::TypedIterator<const type>
  // A hold on a block of elements; the position of the iterator means nothing.
  using BlockOwner = std::variant<std::monostate VELMARDATA_FOR_EACH_ARRAY_TYPE(X)>;
#undef X

  // The distance in bytes from the first element to the one at a position. False for more indices
  // than dimensions and for a distance beyond 64 bits; no error is set.
  template <class IndexAt>
  bool findByteOffset(std::size_t count, IndexAt indexAt, std::int64_t& bytes) const;
  bool isSoleOwner() const {
    return m_array.impl()->m_referenceCount.load(std::memory_order_acquire) == 1;
  }
  // Whether the first look may have to copy.
  bool needsMirror() const {
    return m_contents == Contents::Client || m_contents == Contents::Copied || m_numElems == 0;
  }
  // Whether a first look would show the library's block.
  bool canShowArray() const {
    return m_contents == Contents::Own || m_contents == Contents::Frozen ||
           (m_contents == Contents::Copied && isSoleOwner());
  }
  void look() const;
  // Makes a description the current one, beside those that went out. m_later has room.
  void takeUpDescription(std::unique_ptr<ArrayDescription> description);
  ArrayDescription& currentDescription() {
    return m_later == nullptr ? m_firstDescription : *m_later->current;
  }
  const ArrayDescription& currentDescription() const {
    return const_cast<MDArrayWrapper*>(this)->currentDescription();
  }
  // Whether writes go to buf() alone. Looks, if that makes it so.
  bool writesInPlace() const {
    if (m_buf == nullptr && canShowArray()) look();
    return m_showsArray;
  }

  foundation::velmardata::Array m_array;
  foundation::velmardata::ArrayType m_type;
  Contents m_contents;
  char m_order;
  mutable bool m_showsArray = false;
  bool m_isDescriptionExported = false;  // of the current one
  std::int32_t m_isReadOnly = 1;
  std::int32_t m_nDim;
  std::int64_t m_numElems;
  std::int64_t m_bufferSizeInBytes;
  std::int64_t m_elemSizeInBytes;
  mutable std::byte* m_buf = nullptr;     // null before the first look
  mutable std::byte* m_mirror = nullptr;  // from malloc, owned; null when no mirror is needed
  mutable BlockOwner m_shown;             // the block that was shown
  const std::int64_t* m_strides;          // of the current description
  ArrayDescription m_firstDescription;
  // Of later shapes, when earlier ones were exported; null while the first one is current.
  struct LaterDescriptions {
    std::vector<std::unique_ptr<ArrayDescription>> all;
    ArrayDescription* current = nullptr;  // in `all`, or the first one
  };
  std::unique_ptr<LaterDescriptions> m_later;
};

// In the header because every read and every write of an element comes through here.
template <class IndexAt>
bool MDArrayWrapper::findByteOffset(std::size_t count, IndexAt indexAt, std::int64_t& bytes) const {
  if (count > static_cast<std::size_t>(m_nDim)) return false;
  bytes = 0;
  for (std::size_t i = 0; i < count; ++i) {
    std::int64_t step = 0;
    if (__builtin_mul_overflow(indexAt(i), m_strides[i], &step) ||
        __builtin_add_overflow(bytes, step, &bytes)) {
      return false;
    }
  }
  return true;
}

template <class IndexAt>
const std::byte* MDArrayWrapper::findElement(std::size_t count, IndexAt indexAt) const {
  const std::byte* elements = buf();
  std::int64_t offset = 0;
  if (!findByteOffset(count, indexAt, offset)) return nullptr;
  if (offset < 0 || offset > m_bufferSizeInBytes - m_elemSizeInBytes) return nullptr;
  return elements + offset;
}

// The same for the element at a position.
inline const std::byte* findElement(const MDArrayWrapper& storage, const Position& position) {
  return storage.findElement(position.size(), [&](std::size_t i) { return position[i]; });
}
