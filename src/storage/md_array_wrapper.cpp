// Construction of the shared storage, its mirror and its index arithmetic.
#include "storage/md_array_wrapper.hpp"

#include <sys/mman.h>

#include <cstdlib>
#include <cstring>
#include <utility>

#include "module/apply_visitor.hpp"
#include "module/element_to_number.hpp"
#include "module/element_types.hpp"

namespace vd = foundation::velmardata;

namespace {

constexpr std::int64_t outOfRangeMarker = -999;
constexpr std::size_t hugePage = std::size_t{2} << 20;

struct ElementSizeVisitor {
  template <class T>
  std::int64_t operator()(const vd::TypedArray<T>&) const {
    return sizeof(T);
  }
};

// Reads in place through the iterator's pointer: nothing is copied before and nothing is unshared.
struct CopyElementsVisitor {
  std::byte* target;
  std::size_t size;

  template <class T>
  void operator()(const vd::TypedArray<T>& array) const {
    const auto first = array.begin();
    std::memcpy(target, &*first, size);
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

MDArrayWrapper::MDArrayWrapper(vd::Array&& array, char order)
    : m_array(std::move(array)), m_order(order) {
  const std::vector<unsigned long> dimensions = m_array.getDimensions();
  m_shape.assign(dimensions.begin(), dimensions.end());
  m_nDim = static_cast<std::int32_t>(dimensions.size());
  m_elemSizeInBytes = applyVisitor(m_array, ElementSizeVisitor{});
  setBytewiseStrides();
  m_numElems = static_cast<std::int64_t>(m_array.getNumberOfElements());
  m_bufferSizeInBytes = m_numElems * m_elemSizeInBytes;
  m_buf = allocateMirror(static_cast<std::size_t>(m_bufferSizeInBytes));
  m_isMirrorFilled = m_buf == nullptr || m_bufferSizeInBytes == 0;
}

MDArrayWrapper::~MDArrayWrapper() {
  std::free(m_buf);
}

char* MDArrayWrapper::format() const {
  return classid2format(m_array.getType());
}

void MDArrayWrapper::setBytewiseStrides() {
  m_bytewiseStrides.assign(static_cast<std::size_t>(m_nDim), 0);
  PyBuffer_FillContiguousStrides(m_nDim, m_shape.data(), m_bytewiseStrides.data(),
                                 static_cast<int>(m_elemSizeInBytes), m_order);
}

void MDArrayWrapper::fillMirror() const {
  m_isMirrorFilled = true;
  applyVisitor(m_array, CopyElementsVisitor{m_buf, static_cast<std::size_t>(m_bufferSizeInBytes)});
}

std::int64_t MDArrayWrapper::normalizedIndex(std::int64_t index, std::int64_t dimension) const {
  assert(dimension >= 0 && dimension < m_nDim);
  const std::int64_t length = m_shape[static_cast<std::size_t>(dimension)];
  if (index < 0) return length + index;
  return index < length ? index : outOfRangeMarker;
}

PyObject* MDArrayWrapper::getElementAsPyObjectFromElementOffset(std::int64_t offset) const {
  if (offset < 0 || offset >= m_numElems) return nullptr;
  return applyVisitor(m_array, ElementAtOffsetVisitor{offset});
}
