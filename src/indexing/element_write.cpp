// Assignments.
#include "indexing/element_write.hpp"

#include <algorithm>
#include <complex>
#include <span>
#include <string>

#include "construct/element_conversion_impl.hpp"
#include "construct/final_constructor_parser.hpp"
#include "indexing/run_writer.hpp"
#include "indexing/subscripts.hpp"
#include "indexing/view_composition.hpp"
#include "module/support.hpp"
#include "storage/mcpy_array.hpp"

namespace {

int fail(PyObject* exceptionType, const std::string& message) {
  setError(exceptionType, message);
  return -1;
}

// False with an error set unless the write stored all. T is the element type of the storage.
template <class T>
bool report(WriteStatus status, const MDArrayWrapper& storage) {
  if (status == WriteStatus::Stored) return true;
  setErrorOfWrite(status, storage.getNumberOfElements(), typeWord<T>);
  return false;
}
template <class T>
int resultOf(WriteStatus status, const MDArrayWrapper& storage) {
  return report<T>(status, storage) ? 0 : -1;
}

// Reads a value completely, before anything is written. False with an error set.
template <class T>
bool flatten(FinalConstructorParser<T>& parser, PyObject* value) {
  return parser.flattenWithUnspecifiedDimensions(value, false);
}

template <class T>
std::span<const T> elementsOf(const FinalConstructorParser<T>& parser) {
  return {parser.getFlattenedElements(),
          static_cast<std::size_t>(parser.getNumberOfFlattenedElements())};
}

}  // namespace

template <class T>
int setItemViaFinalIntegerIndex(MCppPyArray& view, std::int64_t index, PyObject* value) {
  if (value == nullptr) return fail(PyExc_RuntimeError, messages::nullDataPointer);
  const auto element = convertPyObjectToElement<T>(value, false);
  if (!element.value) return fail(element.failure->exceptionClass, element.failure->message);
  const WrapperAccess storage = view.wrapper();
  if (!storage) return -1;
  const auto integers = view.chain().integers();
  const std::int64_t offset = storage->getElementOffset(integers.size() + 1, [&](std::size_t k) {
    return k < integers.size() ? integers[k].m_index : index;
  });
  const WriteStatus status = ElementWriter<T>(*storage).write(offset, *element.value);
  return resultOf<T>(status, *storage);
}

template <class T>
int setMultipleElementsFromNonFinalIntegerIndex(MCppPyArray& view, std::int64_t index,
                                                PyObject* value) {
  const IndexChain part(view.chain(), IntegerIndexItem{index, true});
  if (MDArrayWrapper* storage = view.findWrapper()) {
    if (const auto status = tryStoreArray<T>(*storage, part, value)) {
      return resultOf<T>(*status, *storage);
    }
  }
  FinalConstructorParser<T> parser;
  if (!flatten(parser, value)) return -1;
  const WrapperAccess storage = view.wrapper();
  if (!storage) return -1;
  const std::span<const std::int64_t> shape = storage->shape();
  const std::span<const std::int64_t> given = parser.shape().getCalculatedDimensions();
  const std::size_t first = view.chain().integers().size() + 1;
  if (first > shape.size() || !std::equal(shape.begin() + static_cast<std::ptrdiff_t>(first),
                                          shape.end(), given.begin(), given.end())) {
    return fail(PyExc_ValueError, messages::unequalShapes);
  }
  const auto elements = elementsOf(parser);
  if (const auto status = tryStoreDense(*storage, part, elements)) {
    return resultOf<T>(*status, *storage);
  }
  Position position = view.getIntegerIndicesSoFar();
  position.push_back(index);
  position.resize(shape.size(), 0);
  return resultOf<T>(storeAlong(*storage, view.chain(), std::move(position), elements).status,
                     *storage);
}

template <class T>
int setMultipleElementsFromNonFinalSliceIndex(MCppPyArray& view, SliceIndexItem& slice,
                                              PyObject* value) {
  const bool isEmpty = slice.m_slice_len == 0;
  if (const SliceIndexItem* parent = view.chain().finalSlice()) {
    getReplacementIndexForSliceAndSlice(*parent, slice);
  }
  const IndexChain part(view.chain(), slice);
  // Deliberate: a weak view has no storage to write slices to, as its slices have none to read.
  const MCppPyArray target(view, false);
  if (MDArrayWrapper* storage = target.findWrapper()) {
    if (const auto status = tryStoreArray<T>(*storage, part, value)) {
      return resultOf<T>(*status, *storage);
    }
  }
  FinalConstructorParser<T> parser;
  if (!flatten(parser, value)) return -1;
  if (parser.shape().calculateNumberOfElements() == 0) {
    if (isEmpty) return 0;
    return fail(PyExc_ValueError, "slice is nonempty but values are empty.");
  }
  if (isEmpty) {
    return fail(PyExc_ValueError,
                "slice is empty, but number of elements assigned is greater than zero.");
  }
  const WrapperAccess storage = target.wrapper();
  if (!storage) return -1;
  const auto elements = elementsOf(parser);
  if (const auto status = tryStoreDense(*storage, part, elements)) {
    return resultOf<T>(*status, *storage);
  }
  const auto dimensions = static_cast<std::int64_t>(storage->shape().size());
  const RunResult result =
      storeAlong(*storage, part, getStartElement(storage->shape(), part, dimensions), elements);
  if (!report<T>(result.status, *storage)) return -1;
  if (!result.moved && result.stored == static_cast<std::int64_t>(elements.size())) return 0;
  return fail(PyExc_ValueError, "length of slice does not match number of elements.");
}

template <class T>
int setIndividualElementsFromFlatSeqOfMultipleIntegerIndices(MCppPyArray& view,
                                                             const SliceIndexItem& slice,
                                                             PyObject* value) {
  const IndexChain part(view.chain(), slice);
  if (MDArrayWrapper* storage = view.findWrapper()) {
    if (const auto status = tryStoreArray<T>(*storage, part, value)) {
      return resultOf<T>(*status, *storage);
    }
  }
  FinalConstructorParser<T> parser;
  if (!flatten(parser, value)) return -1;
  const auto elements = elementsOf(parser);
  if (parser.shape().getCalculatedDimensions().size() != 1 ||
      static_cast<std::int64_t>(elements.size()) != slice.numberOfValues()) {
    return fail(PyExc_ValueError, messages::unequalShapes);
  }
  if (elements.empty()) return 0;  // also when reading the value has dropped the storage
  const WrapperAccess storage = view.wrapper();
  if (!storage) return -1;
  if (const auto status = tryStoreDense(*storage, part, elements)) {
    return resultOf<T>(*status, *storage);
  }
  return resultOf<T>(storeEach(*storage, view.getIntegerIndicesSoFar(), slice, elements), *storage);
}

template <class T>
int setItemsFromFinalOrNonFinalIntegerIndex(MCppPyArray& view, std::int64_t index,
                                            std::int64_t length, PyObject* value) {
  IntegerIndexItem item{index, false};
  if (!item.normalizeAgainstLength(length)) {
    return fail(PyExc_IndexError, messages::invalidIndex + std::to_string(index));
  }
  const SliceIndexItem* slice = view.chain().finalSlice();
  if (slice != nullptr && !getReplacementIndexForSliceAndInt(*slice, item)) return -1;
  return view.getNumberOfIntegerIndicesSoFar() == view.getNumberOfDimensions() - 1
             ? setItemViaFinalIntegerIndex<T>(view, item.m_index, value)
             : setMultipleElementsFromNonFinalIntegerIndex<T>(view, item.m_index, value);
}

namespace {

// 0, or -1 with an error set. T is the element type itself, complex or not.
template <class T>
int setViaSlice(MCppPyArray& view, SliceIndexItem& slice, PyObject* value, bool isLastDimension) {
  if (!isLastDimension) return setMultipleElementsFromNonFinalSliceIndex<T>(view, slice, value);
  // Deliberate: these positions are coordinates of the storage, whatever slice the view ends in,
  // just as the length is the storage's.
  return setIndividualElementsFromFlatSeqOfMultipleIntegerIndices<T>(view, slice, value);
}

template <class T>
int setViaIndex(MCppPyArray& view, PyObject* index, PyObject* value) {
  const std::int64_t fixed = view.getNumberOfIntegerIndicesSoFar();
  std::int64_t length = 0;
  int dimensions = -1;
  if (const MDArrayWrapper* storage = view.borrowWrapper()) {
    dimensions = storage->getNumberOfDimensions();
    // Deliberate: the length in the storage, whatever slice the view ends in. Reads use the slice's
    // length; writes have always counted in the storage.
    if (dimensions > fixed) length = storage->shape()[static_cast<std::size_t>(fixed)];
  }
  // As for reads: the check replaces the error of expired storage, and keeps that of a slice of a
  // weak view.
  if (dimensions < 0 && !view.hasWeakPtrToWrapper()) return -1;
  if (dimensions <= fixed) return fail(PyExc_RuntimeError, messages::tooManyIndices);
  if (const auto integer = getIntegerIndexFromIndexObject(index)) {
    return setItemsFromFinalOrNonFinalIntegerIndex<T>(view, *integer, length, value);
  }
  if (Py_TYPE(index) != &PySlice_Type) {
    return fail(PyExc_RuntimeError, messages::indexIsNoIndex);
  }
  std::optional<SliceIndexItem> item = getSliceData(index, length);
  if (!item) return -1;
  return setViaSlice<T>(view, *item, value, fixed == dimensions - 1);
}

}  // namespace

template <class T>
int MCPyArray_SetViaIndex(PyObject* self, PyObject* index, PyObject* value) {
  MCppPyArray* view = getInitializedView(self);
  if (view == nullptr) return -1;
  if constexpr (!std::is_same_v<T, bool>) {
    if (view->isComplex()) return setViaIndex<std::complex<T>>(*view, index, value);
  }
  return setViaIndex<T>(*view, index, value);
}

#define X(name, number, enumerator, type, ...) \
  template int MCPyArray_SetViaIndex<type>(PyObject*, PyObject*, PyObject*);
VELMARDATA_FOR_EACH_CLASS_TYPE(X)
#undef X
#define X(name, number, type)                                                                 \
  template int setItemsFromFinalOrNonFinalIntegerIndex<type>(MCppPyArray&, std::int64_t,      \
                                                             std::int64_t, PyObject*);        \
  template int setItemViaFinalIntegerIndex<type>(MCppPyArray&, std::int64_t, PyObject*);      \
  template int setMultipleElementsFromNonFinalIntegerIndex<type>(MCppPyArray&, std::int64_t,  \
                                                                 PyObject*);                  \
  template int setMultipleElementsFromNonFinalSliceIndex<type>(MCppPyArray&, SliceIndexItem&, \
                                                               PyObject*);                    \
  template int setIndividualElementsFromFlatSeqOfMultipleIntegerIndices<type>(                \
      MCppPyArray&, const SliceIndexItem&, PyObject*);
VELMARDATA_FOR_EACH_CLASS_ELEMENT_TYPE(X)
#undef X
