// Lifetime of views, and what they forward to their storage.
#include "storage/mcpp_py_array.hpp"

#include <utility>

#include "module/support.hpp"
#include "module/type_objects.hpp"
#include "storage/mcpy_array.hpp"

namespace vd = foundation::velmardata;

namespace {

char orderLetter(bool isColumnMajor) {
  return isColumnMajor ? 'F' : 'C';
}

}  // namespace

MCppPyArray::MCppPyArray(vd::Array&& array, SupportedArrayEnum type, bool isComplex,
                         bool isColumnMajor)
    : m_wrapper(std::make_shared<MDArrayWrapper>(std::move(array), orderLetter(isColumnMajor))),
      m_supportedArrayEnum(type),
      m_isComplex(isComplex) {}

MCppPyArray::MCppPyArray(const vd::Array& array, SupportedArrayEnum type, bool isComplex,
                         bool isColumnMajor)
    : m_wrapper(std::make_shared<MDArrayWrapper>(array, orderLetter(isColumnMajor))),
      m_supportedArrayEnum(type),
      m_isComplex(isComplex) {}

MCppPyArray::MCppPyArray(MCppPyArray& other, bool useWeakPtr)
    : m_hasWeakPtrToWrapper(useWeakPtr),
      m_supportedArrayEnum(other.m_supportedArrayEnum),
      m_isComplex(other.m_isComplex),
      m_indices(other.m_indices),
      m_numberOfIntegerIndicesSoFar(other.m_numberOfIntegerIndicesSoFar) {
  takePointerOf(other);
}

MCppPyArray::MCppPyArray(MCppPyArray& other, const Position& indices, bool useWeakPtr)
    : m_hasWeakPtrToWrapper(useWeakPtr),
      m_supportedArrayEnum(other.m_supportedArrayEnum),
      m_isComplex(other.m_isComplex) {
  takePointerOf(other);
  for (std::int64_t index : indices) {
    IntegerIndexItem item{index, false};
    appendIndexItem(item);  // cannot fail: no slice is in the chain
  }
}

MCppPyArray::~MCppPyArray() {
  m_indexRestrictedMCppPyArray.reset();  // a materialised copy goes before the view it was made of
}

void MCppPyArray::takePointerOf(const MCppPyArray& other) {
  if (!m_hasWeakPtrToWrapper) {
    m_wrapper = other.m_wrapper;
  } else if (other.m_hasWeakPtrToWrapper) {
    m_weakWrapper = other.m_weakWrapper;
    m_borrowedWrapper = other.m_borrowedWrapper;
  } else {
    m_weakWrapper = other.m_wrapper;
    m_borrowedWrapper = other.m_wrapper.get();
  }
}

PyObject* MCppPyArray::allocMCPyArrayFromMCppPyArray() const {
  return allocMCPyArray(typeObjectOf(m_supportedArrayEnum));
}

PyObject* MCppPyArray::shallowCopyToMCPyArray() {
  PyObject* record = allocMCPyArrayFromMCppPyArray();
  if (record != nullptr) {
    getMCPyArrayFromPyObject(record)->mcppPyArray = new MCppPyArray(*this, true);
  }
  return record;
}

WrapperAccess MCppPyArray::lockWrapper() const {
  std::shared_ptr<MDArrayWrapper> locked = m_weakWrapper.lock();
  if (locked == nullptr) setError(PyExc_RuntimeError, messages::expiredStorage);
  return WrapperAccess(std::move(locked));
}

std::byte* MCppPyArray::buf() const {
  const WrapperAccess storage = wrapper();
  return storage ? storage->buf() : nullptr;
}

const std::vector<std::int64_t>& MCppPyArray::shape() const {
  static const std::vector<std::int64_t> noShape;
  const WrapperAccess storage = wrapper();
  return storage ? storage->shape() : noShape;
}

char MCppPyArray::getOrder() const {
  const WrapperAccess storage = wrapper();
  return storage ? storage->getOrder() : static_cast<char>(-1);
}

std::int64_t* MCppPyArray::bytewiseStrides() const {
  const WrapperAccess storage = wrapper();
  return storage ? storage->bytewiseStrides() : nullptr;
}

std::int64_t MCppPyArray::getBufferSizeInBytes() const {
  const WrapperAccess storage = wrapper();
  return storage ? storage->getBufferSizeInBytes() : -1;
}

std::int64_t MCppPyArray::getElementSizeInBytes() const {
  const WrapperAccess storage = wrapper();
  return storage ? storage->getElementSizeInBytes() : -1;
}

int MCppPyArray::isReadOnly() const {
  const WrapperAccess storage = wrapper();
  return storage ? storage->isReadOnly() : -1;
}

std::int64_t* MCppPyArray::suboffsets() const {
  const WrapperAccess storage = wrapper();
  return storage ? storage->suboffsets() : nullptr;
}

std::int64_t MCppPyArray::getNumberOfElements() const {
  const WrapperAccess storage = wrapper();
  return storage ? storage->getNumberOfElements() : -1;
}

const vd::Array& MCppPyArray::array() const {
  static const vd::Array noArray;
  const WrapperAccess storage = wrapper();
  return storage ? storage->array() : noArray;
}

char* MCppPyArray::format() const {
  const WrapperAccess storage = wrapper();
  return storage ? storage->format() : nullptr;
}

void MCppPyArray::setIndexedArrayAsMDA(vd::Array&& array) {
  m_indexedArrayAsMDA = std::move(array);
}
