// ClientArrayFactory: the array factory for clients, exported by a separate library.
#pragma once

#include "velmardata/array_factory.hpp"
#include "velmardata/export.hpp"

namespace foundation::velmardata::standalone {

// An ArrayFactory that any program can create on the stack, at any time after loading. Construction
// and destruction do no work. Arrays and blocks do not depend on their factory and may outlive it.
// Several threads may use one factory without a lock.
class VELMARDATA_EXPORT ClientArrayFactory : public ArrayFactory {
 public:
  ClientArrayFactory() noexcept;
  ClientArrayFactory(const ClientArrayFactory&) = delete;
  ClientArrayFactory& operator=(const ClientArrayFactory&) = delete;
  ~ClientArrayFactory();
};

}  // namespace foundation::velmardata::standalone
