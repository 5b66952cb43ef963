// ClientArrayFactory: the factory of programs that stand on their own, in a library of its own.
#pragma once

#include "velmardata/array_factory.hpp"
#include "velmardata/export.hpp"

namespace foundation::velmardata::standalone {

// An ArrayFactory that any program may make on the stack wherever it needs one, at any time after
// load; making and destroying one does no work. What it makes does not depend on it and outlives
// it. Use from several threads needs no lock.
class VELMARDATA_EXPORT ClientArrayFactory : public ArrayFactory {
 public:
  ClientArrayFactory() noexcept;
  ClientArrayFactory(const ClientArrayFactory&) = delete;
  ClientArrayFactory& operator=(const ClientArrayFactory&) = delete;
  ~ClientArrayFactory();
};

}  // namespace foundation::velmardata::standalone
