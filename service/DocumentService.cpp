#include "service/DocumentService.h"

namespace Nimra {

DocumentService::~DocumentService() = default;

}  // namespace Nimra
