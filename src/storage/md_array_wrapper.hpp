// The storage that an array and all its views share.
#pragma once

#include <atomic>
#include <bit>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <span>
#include <vector>
#include <velmardata/velmardata.hpp>

#include "module/export.hpp"
#include "module/python.hpp"
#include "storage/index_items.hpp"

// A library array, its description in the form of the buffer protocol, and the mirror: a copy of
// the elements for reads that cross no library boundary.
//
// Ownership. The wrapper owns its handle on the library array, the mirror's block and the lists of
// lengths and strides. Views own the wrapper together (shared_ptr); it dies with the last strong
// one. Native clients may hold the library array too; a write then copies the contents first.
// Borrowed: buf(), shape() and bytewiseStrides() are valid until Python code may run, because that
// can reshape or drop the storage. Exports are the exception: the mirror's block never moves, and
// after keepDescription() the lengths and strides that went out stay readable as long as the
// wrapper lives.
//
// Invariants. m_shape and m_bytewiseStrides have m_nDim entries. m_numElems is the product of
// m_shape and never changes, nor does the element type. A filled mirror equals the array: whoever
// writes an element writes both (ElementWriter).
//
// Kept for clients: m_isReadOnly is 1 for every array, because exports are read-only while writes
// by subscript are not, and its value goes out in Py_buffer.
class MDArrayWrapper {
 public:
  // order: 'F' for column-major, which is the order of the library, or 'C'. Throws
  // EArrayUnknownDataType for an array of an unsupported type. When memory for the mirror is short,
  // hasMirror() is false and the caller reports that. Constant time: the first look fills the
  // mirror.
  MDArrayWrapper(foundation::velmardata::Array&& array, char order);
  MDArrayWrapper(const MDArrayWrapper&) = delete;
  MDArrayWrapper& operator=(const MDArrayWrapper&) = delete;
  ~MDArrayWrapper();

  const foundation::velmardata::Array& array() const { return m_array; }
  // The elements in storage order; null when memory for the mirror was short. The memory is taken
  // at construction and filled by the first call, so that an array that only passes through Python
  // is never copied.
  std::byte* buf() const {
    if (!m_isMirrorFilled) fillMirror();
    return m_buf;
  }
  bool hasMirror() const { return m_buf != nullptr || m_bufferSizeInBytes == 0; }
  std::int64_t getBufferSizeInBytes() const { return m_bufferSizeInBytes; }
  std::int64_t getNumberOfElements() const { return m_numElems; }
  std::int64_t getElementSizeInBytes() const { return m_elemSizeInBytes; }
  int isReadOnly() const { return m_isReadOnly; }
  int getNumberOfDimensions() const { return m_nDim; }
  const std::vector<std::int64_t>& shape() const { return m_shape; }
  std::int64_t* bytewiseStrides() { return m_bytewiseStrides.data(); }
  char getOrder() const { return m_order; }
  // The format string of the buffer protocol, valid for the life of the process.
  char* format() const;

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
  const std::byte* findElement(const Position& position) const {
    return findElement(position.size(), [&](std::size_t i) { return position[i]; });
  }
  // A Python number made of element `offset` of the library array. Null, with no error set, when
  // there is no such element. Kept as part of the interface.
  PyObject* getElementAsPyObjectFromElementOffset(std::int64_t offset) const;

  // Gives the elements another shape, whose product must be the number of elements. No element and
  // no mirror moves. False, with nothing changed and no error set, when contents that are shared
  // with another handle could not be copied. Constant time otherwise.
  bool reshape(std::span<const std::int64_t> dimensions, char order);
  // To be called when the addresses of shape and strides go out in an export.
  void keepDescription() { m_isDescriptionKept = true; }

  // Labelled lines of everything above, for debugging. Throws EArrayUnknownDataType for an array of
  // an unsupported type.
  MODULE_EXPORT std::ostream& writeToOstream(std::ostream& os) const;

 private:
  template <class T>
  friend class ElementWriter;

  struct Description {
    std::vector<std::int64_t> shape;
    std::vector<std::int64_t> bytewiseStrides;
  };

  // Where elements were written last. Owns nothing.
  struct WritablePlace {
    const velmar::data::impl::ArrayImpl* contents = nullptr;
    foundation::velmardata::ArrayType type{};
    void* elements = nullptr;

    // Whether the array still has those contents and no other handle shares them.
    bool isGoodFor(const foundation::velmardata::Array& array,
                   foundation::velmardata::ArrayType wanted) const {
      return contents != nullptr && contents == array.impl() && type == wanted &&
             contents->m_referenceCount.load(std::memory_order_acquire) == 1;
    }
  };

  // The distance in bytes from the first element to the one at a position. False for more indices
  // than dimensions and for a distance beyond 64 bits; no error is set.
  template <class IndexAt>
  bool findByteOffset(std::size_t count, IndexAt indexAt, std::int64_t& bytes) const;
  void setBytewiseStrides();
  void fillMirror() const;

  foundation::velmardata::Array m_array;
  WritablePlace m_writable;
  std::vector<std::int64_t> m_shape;            // first dimension first
  std::vector<std::int64_t> m_bytewiseStrides;  // bytes from one index to the next
  char m_order;
  std::int32_t m_isReadOnly = 1;
  std::int32_t m_nDim;
  std::int64_t m_numElems;
  std::int64_t m_bufferSizeInBytes;
  std::int64_t m_elemSizeInBytes;
  std::byte* m_buf;  // the mirror, from malloc, owned
  mutable bool m_isMirrorFilled;
  bool m_isDescriptionKept = false;
  std::vector<Description> m_keptDescriptions;  // went out, and describe an earlier shape
};

// In the header because every read and every write of an element comes through here.
template <class IndexAt>
bool MDArrayWrapper::findByteOffset(std::size_t count, IndexAt indexAt, std::int64_t& bytes) const {
  if (count > static_cast<std::size_t>(m_nDim)) return false;
  bytes = 0;
  for (std::size_t i = 0; i < count; ++i) {
    std::int64_t step = 0;
    if (__builtin_mul_overflow(indexAt(i), m_bytewiseStrides[i], &step) ||
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
  if (elements == nullptr || !findByteOffset(count, indexAt, offset)) return nullptr;
  if (offset < 0 || offset > m_bufferSizeInBytes - m_elemSizeInBytes) return nullptr;
  return elements + offset;
}
