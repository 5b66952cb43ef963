// Snapshots of views, and clones.
#include "operations/materialisation.hpp"

#include <utility>

#include "construct/final_constructor_parser.hpp"
#include "construct/layout_conversion.hpp"
#include "elements/transfer.hpp"
#include "module/apply_visitor.hpp"
#include "module/dimensions.hpp"
#include "module/py_ref.hpp"
#include "module/support.hpp"
#include "operations/nested_lists.hpp"
#include "storage/mcpy_array.hpp"

namespace vd = foundation::velmardata;

namespace {

// A copy of the view's elements as they are, without Python objects. Empty, with no error set, when
// it cannot be made so; the way through Python values then decides.
std::optional<vd::Array> tryCopyContents(const MCppPyArray& view) {
  if (PyErr_Occurred() != nullptr) return std::nullopt;
  const std::optional<Box> box = findBox(view);
  if (!box) return std::nullopt;
  UntypedBuffer buffer = tryCreateBuffer(box->type, static_cast<std::uint64_t>(box->count));
  const auto elementSize = static_cast<std::size_t>(view.findWrapper()->getElementSizeInBytes());
  const Lanes lanes = denseLanes(box->lanes, elementSize, true);
  if (buffer == nullptr || !tryTransfer(*box, Purpose::Assignment, box->type, lanes,
                                        static_cast<std::byte*>(buffer.get()))) {
    return std::nullopt;
  }
  Lengths dimensions;
  for (const Lane& lane : box->lanes) dimensions.push_back(lane.count);
  makeTwoDimensional(dimensions);
  return makeArrayFromBuffer(box->type, std::move(buffer), spanOf(dimensions));
}

// The way through Python values: the same that a construction takes from nested values to an array.
struct MDAFromIndexedArrayVisitor {
  const MCppPyArray& view;

  template <class T>
  std::optional<vd::Array> operator()(const vd::TypedArray<T>& array) const {
    FinalConstructorParser<T> parser;
    if (!flattenContents(parser)) return std::nullopt;
    ConstructionShape& shape = parser.shape();
    shape.makeTwoDimensional();
    ElementBuffer<T> buffer = parser.getFilledBuffer();
    if (buffer == nullptr) return std::nullopt;
    const std::int64_t count = shape.calculateNumberOfElements();
    const std::span<const std::int64_t> calculated = shape.getCalculatedDimensions();
    Lengths dimensions(calculated.begin(), calculated.end());
    if (count == 0) {
      // Deliberate: without elements the dimensions are those of the whole storage, because the
      // list tells only the lengths before the first 0.
      const std::vector<unsigned long> all = array.getDimensions();
      if (all.empty()) {
        setError(PyExc_RuntimeError, "dimensions are unexpectedly empty.");
        return std::nullopt;
      }
      dimensions.assign(all.begin(), all.end());
      dimensions.front() = 0;
    }
    return makeTypedArrayFromBuf(std::move(buffer), false, spanOf(dimensions), count);
  }

 private:
  // The list is freed before the elements are reordered. False with an error set.
  template <class T>
  bool flattenContents(FinalConstructorParser<T>& parser) const {
    const PyRef list = PyRef::steal(getAllContentsAsPyList<T>(view));
    return list && PyErr_Occurred() == nullptr &&
           parser.flattenWithUnspecifiedDimensions(list.get(), false);
  }
};

}  // namespace

std::optional<vd::Array> getIndexedArrayAsMDA(MCppPyArray& view) {
  if (view.caches().indexedArrayAsMDA()) return view.caches().indexedArrayAsMDA();
  std::optional<vd::Array> made = tryCopyContents(view);
  if (!made) {
    vd::Array stored;
    {
      const WrapperAccess storage = view.wrapper();
      if (!storage) return std::nullopt;
      stored = storage->array();  // a handle of its own, because the walk makes objects
    }
    made = applyVisitor(std::as_const(stored), MDAFromIndexedArrayVisitor{view});
  }
  if (made && !view.caches().indexedArrayAsMDA()) view.setIndexedArrayAsMDA(std::move(*made));
  return view.caches().indexedArrayAsMDA();
}

void updateIndexRestrictedMCppPyArrayIfNecessary(MCppPyArray& view) {
  if (view.indicesAreEmpty() || view.caches().indexRestrictedMCppPyArray() != nullptr) return;
  view.caches().keepIndexRestrictedMCppPyArray(cloneAsMCppPyArrayUniquePtr(view, Contents::Frozen));
}

std::unique_ptr<MCppPyArray> cloneAsMCppPyArrayUniquePtr(MCppPyArray& view, Contents contents) {
  std::optional<vd::Array> array = getIndexedArrayAsMDA(view);
  if (!array) return nullptr;
  const MDArrayWrapper* storage = view.borrowWrapper();  // may be gone: a snapshot outlives it
  if (storage == nullptr || PyErr_Occurred() != nullptr) return nullptr;
  return makeNewView(std::move(*array), view.getSupportedArrayEnum(), view.isComplex(), contents,
                     storage->getOrder() == 'F');
}

PyObject* cloneAsMCPyArray(MCppPyArray& view) {
  PyRef record = PyRef::steal(allocMCPyArrayFromMCppPyArray(view));
  if (!record) return nullptr;
  MCppPyArray* clone = cloneAsMCppPyArrayUniquePtr(view, Contents::Copied).release();
  if (clone == nullptr && view.caches().indexedArrayAsMDA()) return nullptr;
  getMCPyArrayFromPyObject(record.get())->mcppPyArray = clone;
  return record.release();
}
