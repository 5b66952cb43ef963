// The one dispatch from an array's run-time element type to code for that type.
#pragma once

#include <utility>
#include <velmardata/velmardata.hpp>

// Calls visitor(handle) with the typed handle of the array and returns the visitor's result. A
// const lvalue is copied into the handle, so the contents are shared while the visitor runs. An
// rvalue is moved into the handle, so a write in the visitor finds the contents unshared. The
// visitor needs an overload for each of the 22 types: TypedArray<T>, and CharArray for characters.
// Throws EArrayUnknownDataType for an array of any other type.
template <class ArrayRef, class Visitor>
decltype(auto) applyVisitor(ArrayRef&& array, Visitor&& visitor) {
  using namespace foundation::velmardata;
  switch (array.getType()) {
    case ArrayType::CHAR:
      return visitor(CharArray(std::forward<ArrayRef>(array)));
#define X(name, number, type) \
  case ArrayType::name:       \
    return visitor(TypedArray<type>(std::forward<ArrayRef>(array)));
      VELMARDATA_FOR_EACH_CLASS_ELEMENT_TYPE(X)
#undef X
  }
  throw EArrayUnknownDataType("");
}
