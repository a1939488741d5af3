#include "service/DocumentServiceNetwork.h"

namespace Nimra {

DocumentServiceNetwork::~DocumentServiceNetwork() = default;

}  // namespace Nimra
