// Iteration over arrays and views.
#include "operations/iterator.hpp"

#include <memory>

#include "elements/traversal.hpp"
#include "indexing/element_read.hpp"
#include "module/apply_visitor.hpp"
#include "module/py_ref.hpp"
#include "module/support.hpp"
#include "module/type_objects.hpp"
#include "operations/handlers.hpp"
#include "storage/mcpy_array.hpp"

namespace vd = foundation::velmardata;

namespace {

constexpr std::int64_t prefetchedElements = 8;

// A walk along a row goes from column to column, with one cache line for each, at a distance that
// the processor does not predict. Prefetching an address without an element does no harm.
template <class T>
PyObject* readNumber(const MCppPyArray& view, const Position& position, std::int64_t ahead) {
  const std::byte* address = getAddressOfElementFromNormalizedIntIndices(view, position);
  if (address == nullptr) return nullptr;
  __builtin_prefetch(address + ahead);
  return makeNumberAt<T>(address);
}

// The distance in bytes from an element of the walked dimension to one that is read soon after; 0
// if the storage is too short.
std::int64_t prefetchDistance(MDArrayWrapper& storage, std::int64_t dimension, std::int64_t step) {
  if (dimension >= storage.getNumberOfDimensions()) return 0;
  const std::int64_t stride = storage.bytewiseStrides()[static_cast<std::size_t>(dimension)];
  const std::int64_t size = storage.getBufferSizeInBytes();
  std::int64_t distance = 0;
  if (__builtin_mul_overflow(stride, prefetchedElements, &distance) ||
      __builtin_mul_overflow(distance, step, &distance) || distance >= size || distance <= -size) {
    return 0;
  }
  return distance;
}

// One dispatch for each iterator, because the element type of an array never changes.
struct NumberReaderVisitor {
  template <class T>
  auto operator()(const vd::TypedArray<T>&) const {
    return &readNumber<T>;
  }
};

}  // namespace

MCppPyIter::MCppPyIter(const MCppPyArray* source)
    : m_arrayView(*source, true), m_activeDimension(source->getNumberOfIntegerIndicesSoFar()) {
  const WrapperAccess storage = source->wrapper();
  if (!storage) return;
  const IndexChain& chain = m_arrayView.chain();
  const std::span<const std::int64_t> shape = storage->shape();
  m_currentIndices = getStartElement(shape, chain, m_activeDimension + 1);
  m_range = traversal::rangeOf(m_activeDimension, shape, chain);
  m_isFinished = !containsElementWithIndices(m_currentIndices, m_activeDimension + 1, shape, chain);
  m_yieldsViews = storage->getNumberOfDimensions() - m_activeDimension > 1;
  if (m_yieldsViews) return;
  m_readNumber = applyVisitor(storage->array(), NumberReaderVisitor{});
  m_ahead = prefetchDistance(*storage, m_activeDimension, m_range.step);
}

PyObject* MCppPyIter::makeRow() {
  PyRef row = PyRef::steal(allocMCPyArrayFromMCppPyArray(m_arrayView));
  if (row) {
    getMCPyArrayFromPyObject(row.get())->mcppPyArray =
        std::make_unique<MCppPyArray>(m_arrayView, m_currentIndices, true).release();
  }
  return row.release();
}

PyObject* MCppPyIter::increment() {
  if (m_isFinished) {
    PyErr_SetNone(PyExc_StopIteration);
    return nullptr;
  }
  PyObject* item = m_yieldsViews ? makeRow() : m_readNumber(m_arrayView, m_currentIndices, m_ahead);
  m_isFinished = traversal::takeStep(m_currentIndices.back(), m_range) != traversal::Step::Taken;
  return item;
}

PyObject* MCPyArray_GetIter(PyObject* self) {
  const MCppPyArray* view = getInitializedView(self);
  if (view == nullptr) return nullptr;
  const auto alloc =
      MCPyIterTypeObj == nullptr
          ? nullptr
          : reinterpret_cast<allocfunc>(PyType_GetSlot(MCPyIterTypeObj, Py_tp_alloc));
  PyRef record = PyRef::steal(alloc == nullptr ? nullptr : alloc(MCPyIterTypeObj, 0));
  if (!record) {
    setError(PyExc_RuntimeError, messages::cannotInitializeObject);
    return nullptr;
  }
  reinterpret_cast<MCPyIter*>(record.get())->mcppPyIter =
      std::make_unique<MCppPyIter>(view).release();
  return PyErr_Occurred() == nullptr ? record.release() : nullptr;
}

PyObject* MCPyIter_GetIter(PyObject* self) {
  return PyRef::borrow(self).release();
}

PyObject* MCPyIter_GetIterNext(PyObject* self) {
  MCppPyIter* iterator = reinterpret_cast<MCPyIter*>(self)->mcppPyIter;
  if (iterator == nullptr) {
    setError(PyExc_RuntimeError, messages::objectNotInitialized);
    return nullptr;
  }
  return iterator->increment();
}

// Deliberate: the reference on the class is not given back, as for arrays.
void MCPyIter_Delete(PyObject* self) noexcept {
  delete reinterpret_cast<MCPyIter*>(self)->mcppPyIter;
  PyObject_Free(self);
}
