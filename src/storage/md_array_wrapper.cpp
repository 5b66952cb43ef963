// Construction of the shared storage, its mirror and its index arithmetic.
#include "storage/md_array_wrapper.hpp"

#include <sys/mman.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "module/apply_visitor.hpp"
#include "module/element_to_number.hpp"
#include "module/element_types.hpp"
#include "storage/element_buffer.hpp"

namespace vd = foundation::velmardata;

namespace {

constexpr std::int64_t outOfRangeMarker = -999;
constexpr std::size_t hugePage = std::size_t{2} << 20;

// The address of the library's elements, which `owner` then keeps alive. Nothing is unshared.
template <class Owner>
struct FirstElementVisitor {
  Owner& owner;

  template <class T>
  std::byte* operator()(const vd::TypedArray<T>& array) const {
    auto first = array.begin();
    auto* address = const_cast<std::byte*>(reinterpret_cast<const std::byte*>(&*first));
    owner = std::move(first);
    return address;
  }
};

struct ElementAtOffsetVisitor {
  std::int64_t offset;

  template <class T>
  PyObject* operator()(const vd::TypedArray<T>& array) const {
    const T element = array.begin()[offset];
    return makeNumber(element);
  }
};

std::span<const std::int64_t> signedNumbers(const std::vector<unsigned long>& numbers) {
  static_assert(sizeof(unsigned long) == sizeof(std::int64_t));
  return {reinterpret_cast<const std::int64_t*>(numbers.data()), numbers.size()};
}

// Memory for free(). Large blocks fill whole huge pages, because the page faults of small pages
// take longer than the copy.
std::byte* allocateMirror(std::size_t size) {
  if (size < 2 * hugePage) return static_cast<std::byte*>(std::malloc(size));
  const std::size_t rounded = (size + hugePage - 1) / hugePage * hugePage;
  void* block = std::aligned_alloc(hugePage, rounded);
  if (block != nullptr) madvise(block, rounded, MADV_HUGEPAGE);
  return static_cast<std::byte*>(block);
}

}  // namespace

MDArrayWrapper::MDArrayWrapper(vd::Array&& array, char order, Contents contents,
                               std::span<const std::int64_t> dimensions)
    : m_array(std::move(array)),
      m_type(m_array.getType()),
      m_contents(contents),
      m_order(order),
      m_elemSizeInBytes(sizeOfElement(m_type)) {
  m_numElems = static_cast<std::int64_t>(m_array.getNumberOfElements());
  std::vector<unsigned long> found;
  // A caller that gives them only saves the copy, so no test detects a change of the condition to
  // `true`.
  if (dimensions.empty()) {
    found = m_array.getDimensions();
    dimensions = signedNumbers(found);
  }
  assert(std::ranges::equal(dimensions, signedNumbers(m_array.getDimensions())));
  m_firstDescription.assign(dimensions, m_elemSizeInBytes, m_order);
  m_strides = m_firstDescription.strides().data();
  m_nDim = static_cast<std::int32_t>(dimensions.size());
  m_bufferSizeInBytes = m_numElems * m_elemSizeInBytes;
  if (needsMirror()) m_mirror = allocateMirror(static_cast<std::size_t>(m_bufferSizeInBytes));
  // All arrays without elements share one block of the library. Their addresses differ all the
  // same.
  if (m_numElems == 0) m_buf = m_mirror;
}

MDArrayWrapper::~MDArrayWrapper() {
  std::free(m_mirror);
}

void MDArrayWrapper::look() const {
  assert(hasMirror());
  m_showsArray = canShowArray();
  BlockOwner owner;
  std::byte* elements = applyVisitor(m_array, FirstElementVisitor<BlockOwner>{owner});
  if (m_showsArray) {
    m_buf = elements;
    m_shown = std::move(owner);
    std::free(std::exchange(m_mirror, nullptr));  // the snapshot that a clone shared has gone
  } else {
    std::memcpy(m_mirror, elements, static_cast<std::size_t>(m_bufferSizeInBytes));
    m_buf = m_mirror;
  }
}

velmar::data::impl::ArrayImpl* MDArrayWrapper::tryHandOut() {
  if (m_showsArray) {
    UntypedBuffer copy = tryCreateBuffer(m_type, static_cast<std::uint64_t>(m_numElems));
    if (copy == nullptr) return nullptr;
    std::memcpy(copy.get(), m_buf, static_cast<std::size_t>(m_bufferSizeInBytes));
    m_array = makeArrayFromBuffer(m_type, std::move(copy), shape());
    m_showsArray = false;
  } else if (m_mirror == nullptr) {
    m_mirror = allocateMirror(static_cast<std::size_t>(m_bufferSizeInBytes));
    if (m_mirror == nullptr) return nullptr;
  }
  m_contents = Contents::Client;
  return velmar::data::impl::addReference(m_array.impl());
}

std::int64_t MDArrayWrapper::normalizedIndex(std::int64_t index, std::int64_t dimension) const {
  assert(dimension >= 0 && dimension < m_nDim);
  const std::int64_t length = shape()[static_cast<std::size_t>(dimension)];
  if (index < 0) return length + index;
  return index < length ? index : outOfRangeMarker;
}

PyObject* MDArrayWrapper::getElementAsPyObjectFromElementOffset(std::int64_t offset) const {
  if (offset < 0 || offset >= m_numElems) return nullptr;
  return applyVisitor(m_array, ElementAtOffsetVisitor{offset});
}
