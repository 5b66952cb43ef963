// ClientArrayFactory: all that the library of its own holds.
#include "velmardata/client_array_factory.hpp"

namespace foundation::velmardata::standalone {

ClientArrayFactory::ClientArrayFactory() noexcept = default;

ClientArrayFactory::~ClientArrayFactory() = default;

}  // namespace foundation::velmardata::standalone
