#include "backend/StorageService.h"

namespace Nimra {

StorageService::~StorageService() = default;

Folder StorageService::root() {
    throw ServiceError(Reason::Refused, "this service does not tell its root folder");
}

Folder StorageService::makeFolder(const Folder&) {
    throw ServiceError(Reason::Refused, "this service does not make folders");
}

}  // namespace Nimra
