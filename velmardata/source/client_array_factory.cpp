// ClientArrayFactory: all that the library of its own holds.
#include "velmardata/client_array_factory.hpp"

namespace foundation::velmardata::standalone {

// Empty bodies here, and not defaulted in the class: these two names are what the library exports.
ClientArrayFactory::ClientArrayFactory() noexcept {}

ClientArrayFactory::~ClientArrayFactory() {}

}  // namespace foundation::velmardata::standalone
