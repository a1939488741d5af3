#include "backend/StorageService.h"

namespace Nimra {

StorageService::~StorageService() = default;

Folder StorageService::root() {
    throw ServiceError(Reason::Refused, "this service does not tell its root folder");
}

}  // namespace Nimra
