// Building the shared storage's description and mirror, and its index arithmetic.
#include "storage/md_array_wrapper.hpp"

#include <sys/mman.h>

#include <cstdlib>
#include <cstring>
#include <utility>

#include "module/apply_visitor.hpp"
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

// A look at the elements in place: the iterator's pointer, with no copy and no unsharing.
struct CopyElementsVisitor {
  std::byte* target;
  std::size_t size;

  template <class T>
  void operator()(const vd::TypedArray<T>& array) const {
    const auto first = array.begin();
    std::memcpy(target, &*first, size);
  }
};

// Memory that free() takes back. Large blocks lie on whole huge pages, since the faults of small
// ones take longer than the copy.
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
  init();
}

MDArrayWrapper::MDArrayWrapper(const vd::Array& array, char order)
    : m_array(array), m_order(order) {
  init();
}

MDArrayWrapper::MDArrayWrapper(const MDArrayWrapper& other)
    : m_array(other.m_array),
      m_shape(other.m_shape),
      m_bytewiseStrides(other.m_bytewiseStrides),
      m_order(other.m_order),
      m_isReadOnly(other.m_isReadOnly),
      m_nDim(other.m_nDim),
      m_numElems(other.m_numElems),
      m_bufferSizeInBytes(other.m_bufferSizeInBytes),
      m_elemSizeInBytes(other.m_elemSizeInBytes),
      m_isMirrorFilled(true) {}

MDArrayWrapper::~MDArrayWrapper() {
  std::free(m_buf);
}

void MDArrayWrapper::init() {
  setNumberOfDimensions();
  setShape();
  setElementSizeInBytes();
  setBytewiseStrides();
  setNumberOfElements();
  setBufferSizeInBytes();
  setBuf();
}

char* MDArrayWrapper::format() const {
  return classid2format(m_array.getType());
}

void MDArrayWrapper::setNumberOfDimensions() {
  m_nDim = static_cast<std::int32_t>(m_array.getDimensions().size());
}

void MDArrayWrapper::setShape() {
  const std::vector<unsigned long> dimensions = m_array.getDimensions();
  m_shape.assign(dimensions.begin(), dimensions.end());
}

void MDArrayWrapper::setNumberOfElements() {
  m_numElems = static_cast<std::int64_t>(m_array.getNumberOfElements());
}

void MDArrayWrapper::setElementSizeInBytes() {
  m_elemSizeInBytes = applyVisitor(m_array, ElementSizeVisitor{});
}

void MDArrayWrapper::setBytewiseStrides() {
  std::vector<std::int64_t> strides(static_cast<std::size_t>(m_nDim), 0);
  PyBuffer_FillContiguousStrides(m_nDim, m_shape.data(), strides.data(),
                                 static_cast<int>(m_elemSizeInBytes), m_order);
  m_bytewiseStrides = std::move(strides);
}

void MDArrayWrapper::setBuf() {
  std::free(m_buf);
  m_buf = allocateMirror(static_cast<std::size_t>(m_bufferSizeInBytes));
  m_isMirrorFilled = m_buf == nullptr || m_bufferSizeInBytes == 0;
}

void MDArrayWrapper::fillMirror() const {
  m_isMirrorFilled = true;
  applyVisitor(m_array, CopyElementsVisitor{m_buf, static_cast<std::size_t>(m_bufferSizeInBytes)});
}

std::int64_t MDArrayWrapper::normalizedIndex(std::int64_t index, std::int64_t dimension) const {
  const std::int64_t length = m_shape[static_cast<std::size_t>(dimension)];
  if (index < 0) return length + index;
  return index < length ? index : outOfRangeMarker;
}
