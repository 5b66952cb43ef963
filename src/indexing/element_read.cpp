// Bodies of the reads, and their instances.
#include "indexing/element_read.hpp"

#include <complex>
#include <memory>
#include <span>
#include <string>
#include <type_traits>

#include "indexing/subscripts.hpp"
#include "indexing/view_composition.hpp"
#include "module/py_ref.hpp"
#include "module/support.hpp"
#include "module/type_objects.hpp"

namespace {

const std::byte* orNullDataPointer(const std::byte* address) {
  if (address == nullptr) [[unlikely]]
    setError(PyExc_RuntimeError, messages::nullDataPointer);
  return address;
}

// The element at the positions of the integers and one more index. Null, with no error set, when it
// lies outside the storage.
const std::byte* findElementBehind(const MDArrayWrapper& storage,
                                   std::span<const IntegerIndexItem> integers, std::int64_t index) {
  return storage.findElement(integers.size() + 1, [&](std::size_t k) {
    return k < integers.size() ? integers[k].m_index : index;
  });
}

// A view of `parent` with one subscript more, which takes the place of a slice at the end of the
// chain. The item is in coordinates of the storage. Null with RuntimeError set.
template <class T, class Item>
PyObject* makeView(const MCppPyArray& parent, const Item& item, bool useWeakPtr) {
  PyRef record = PyRef::steal(allocMCPyArray(typeObjectOf(classOf<T>)));
  if (!record) return nullptr;
  getMCPyArrayFromPyObject(record.get())->mcppPyArray =
      std::make_unique<MCppPyArray>(parent, item, useWeakPtr).release();
  return record.release();
}

}  // namespace

const std::byte* getAddressOfElementFromNormalizedIntIndices(const MCppPyArray& view,
                                                             const Position& position) {
  const MDArrayWrapper* storage = view.borrowWrapper();
  return storage != nullptr ? orNullDataPointer(findElement(*storage, position)) : nullptr;
}

extern "C" Py_ssize_t MCPyArray_NumElemsInFirstDim(PyObject* self) {
  const MCppPyArray* view = getInitializedView(self);
  return view != nullptr ? getLengthOfActiveDimension(*view) : -1;
}

template <class T>
PyObject* MCPyArray_GetItem(PyObject* self, Py_ssize_t index) {
  const MCppPyArray* view = getInitializedView(self);
  if (view == nullptr) return nullptr;
  const SliceIndexItem* slice = view->chain().finalSlice();
  const auto integers = view->chain().integers();
  const MDArrayWrapper* storage = view->borrowWrapper();
  // If the storage has expired, the check below replaces the error. Without a slice, and for a
  // slice of a weak view, which never had storage, the error that is set stays.
  if (storage == nullptr && (slice == nullptr || !view->hasWeakPtrToWrapper())) return nullptr;
  const std::size_t dimensions = storage != nullptr ? storage->shape().size() : 0;
  if (dimensions <= integers.size()) {
    setError(PyExc_RuntimeError, messages::tooManyIndices);
    return nullptr;
  }
  const std::int64_t length =
      slice != nullptr ? *slice->m_slice_len : storage->shape()[integers.size()];
  IntegerIndexItem item{index, false};
  if (!item.normalizeAgainstLength(length)) {
    setError(PyExc_IndexError, messages::invalidIndex + std::to_string(index));
    return nullptr;
  }
  if (slice != nullptr && !getReplacementIndexForSliceAndInt(*slice, item)) return nullptr;
  // In the last dimension the element is read without making a view of it.
  if (integers.size() == dimensions - 1) {
    const std::byte* address = findElementBehind(*storage, integers, item.m_index);
    if (orNullDataPointer(address) == nullptr) return nullptr;
    if constexpr (!std::is_same_v<T, bool>) {
      if (view->isComplex()) return makeNumberAt<std::complex<T>>(address);
    }
    return makeNumberAt<T>(address);
  }
  return makeView<T>(*view, item, view->hasWeakPtrToWrapper());
}

template <class T>
PyObject* MCPyArray_GetViaIndex(PyObject* self, PyObject* index) {
  const MCppPyArray* view = getInitializedView(self);
  if (view == nullptr) return nullptr;
  if (const auto integer = getIntegerIndexFromIndexObject(index)) {
    return MCPyArray_GetItem<T>(self, *integer);
  }
  if (Py_TYPE(index) != &PySlice_Type) {
    setError(PyExc_RuntimeError, messages::indexIsNoIndex);
    return nullptr;
  }
  const std::int64_t length = getLengthOfActiveDimension(*view);
  if (length < 0) return nullptr;
  std::optional<SliceIndexItem> item = getSliceData(index, length);
  if (!item) return nullptr;
  if (const SliceIndexItem* slice = view->chain().finalSlice()) {
    getReplacementIndexForSliceAndSlice(*slice, *item);
  }
  // Deliberate: strong even for a weak parent, so that a slice keeps its storage alive; the slice
  // of a weak view has no storage at all.
  return makeView<T>(*view, *item, false);
}

#define X(name, number, enumerator, type, ...)                       \
  template PyObject* MCPyArray_GetItem<type>(PyObject*, Py_ssize_t); \
  template PyObject* MCPyArray_GetViaIndex<type>(PyObject*, PyObject*);
VELMARDATA_FOR_EACH_CLASS_TYPE(X)
#undef X
