#include "model/XmlNamespaces.h"

namespace Ormek {

const std::string XmlNamespaces::ATOM = "http://www.w3.org/2005/Atom";
const std::string XmlNamespaces::OS = "http://a9.com/-/spec/opensearch/1.1/";
const std::string XmlNamespaces::DC = "urn:ormek:directory";
const std::string XmlNamespaces::NI = "urn:ormek:no-index";

}  // namespace Ormek
