// ClientArrayFactory: the only source of libzrfoundation_velmardata_standalone.
#include "velmardata/client_array_factory.hpp"

namespace foundation::velmardata::standalone {

// Defined here, not defaulted in the class, because the library exports these two symbols.
ClientArrayFactory::ClientArrayFactory() noexcept {}

ClientArrayFactory::~ClientArrayFactory() {}

}  // namespace foundation::velmardata::standalone
