// Instances of the nested lists, and the list of a run-time element type.
#include "operations/nested_lists_impl.hpp"

#include "indexing/element_read_impl.hpp"
#include "module/apply_visitor.hpp"

namespace vd = foundation::velmardata;

namespace {

struct PyObjListFromIndicesVisitor {
  const MCppPyArray& view;
  Position& indices;
  std::int64_t dimension;

  template <class T>
  PyObject* operator()(const vd::TypedArray<T>&) const {
    return view.getContentsAsPyList<T>(indices, static_cast<std::uint64_t>(dimension));
  }
};

}  // namespace

PyObject* MCppPyArray::getPyListFromNormalizedIntIndicesWithoutTemplate(Position& indices,
                                                                        std::int64_t dimension) {
  vd::Array array;
  {
    const WrapperAccess storage = wrapper();
    if (!storage) return nullptr;
    array = storage->array();  // of its own, since the walk makes objects
  }
  return applyVisitor(std::as_const(array), PyObjListFromIndicesVisitor{*this, indices, dimension});
}

#define X(type)                                                                              \
  template PyObject* MCppPyArray::getContentsAsPyList<type>(Position&, std::uint64_t) const; \
  template PyObject* MCppPyArray::getAllContentsAsPyList<type>() const;
#define X_REAL_AND_COMPLEX(name, number, enumerator, type, ...) X(type) X(std::complex<type>)
VELMARDATA_FOR_EACH_CLASS_TYPE(X_REAL_AND_COMPLEX)
X(char16_t)
#undef X_REAL_AND_COMPLEX
#undef X
