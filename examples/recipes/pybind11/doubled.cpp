// A native client that uses pybind11: functions take and return vd::Array.
#include <velmar/client.hpp>  // first: it includes Python.h

#include <pybind11/pybind11.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <utility>

namespace py = pybind11;
namespace vd = foundation::velmardata;

namespace {

std::optional<velmar::Client> client;  // set when the module is imported

}  // namespace

namespace pybind11::detail {

// Converts arguments and results. Copy it into your client.
template <>
struct type_caster<vd::Array> {
  PYBIND11_TYPE_CASTER(vd::Array, const_name("velmar array"));

  // False for an object that is not an array: pybind11 tries the next overload, or raises
  // TypeError.
  bool load(handle object, bool) {
    if (!client->isArray(object.ptr())) return false;
    value = client->fromPython(object.ptr());
    if (value.impl() == nullptr) throw error_already_set();
    return true;
  }

  static handle cast(vd::Array array, return_value_policy, handle) {
    PyObject* object = client->toPython(std::move(array));
    if (object == nullptr) throw error_already_set();
    return object;
  }
};

}  // namespace pybind11::detail

namespace {

vd::Array doubled(vd::Array array) {
  if (array.getType() != vd::ArrayType::DOUBLE) throw py::type_error("expected real doubles");
  vd::TypedArray<double> numbers(std::move(array));
  const std::uint64_t count = numbers.getNumberOfElements();
  double* element = std::to_address(numbers.begin());
  for (std::uint64_t i = 0; i < count; ++i) element[i] *= 2;
  return numbers;
}

}  // namespace

PYBIND11_MODULE(doubled, module) {
  client = velmar::Client::load();
  if (!client) throw py::error_already_set();
  module.def("doubled", doubled);
}
