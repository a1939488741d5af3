#pragma once

#include <string>

namespace Ormek {

/// The namespaces of the service's XML, for those who read it. The cache does not.
struct XmlNamespaces {
    /// Atom, RFC 4287.
    static const std::string ATOM;
    /// OpenSearch 1.1.
    static const std::string OS;
    /// The service's directory schema.
    static const std::string DC;
    /// The service's no-index schema.
    static const std::string NI;
};

}  // namespace Ormek
