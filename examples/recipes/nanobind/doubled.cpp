// A native client that uses nanobind: functions take and return vd::Array.
#include <velmar/client.hpp>  // first: it includes Python.h

#include <nanobind/nanobind.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <utility>

namespace nb = nanobind;
namespace vd = foundation::velmardata;

namespace {

std::optional<velmar::Client> client;  // set when the module is imported

}  // namespace

namespace nanobind::detail {

// Converts arguments and results. Copy it into your client.
template <>
struct type_caster<vd::Array> {
  NB_TYPE_CASTER(vd::Array, const_name("velmar array"))

  // False for an object that is not an array, and for one that cannot be read: nanobind tries the
  // next overload, or raises TypeError. The function may not throw or leave an error pending.
  bool from_python(handle object, std::uint8_t, cleanup_list*) noexcept {
    if (!client->isArray(object.ptr())) return false;
    value = client->fromPython(object.ptr());
    if (value.impl() == nullptr) PyErr_Clear();
    return value.impl() != nullptr;
  }

  static handle from_cpp(vd::Array array, rv_policy, cleanup_list*) noexcept {
    return client->toPython(std::move(array));
  }
};

}  // namespace nanobind::detail

namespace {

vd::Array doubled(vd::Array array) {
  if (array.getType() != vd::ArrayType::DOUBLE) throw nb::type_error("expected real doubles");
  vd::TypedArray<double> numbers(std::move(array));
  const std::uint64_t count = numbers.getNumberOfElements();
  double* element = std::to_address(numbers.begin());
  for (std::uint64_t i = 0; i < count; ++i) element[i] *= 2;
  return numbers;
}

}  // namespace

NB_MODULE(doubled, module) {
  client = velmar::Client::load();
  if (!client) throw nb::python_error();
  module.def("doubled", doubled);
}
