#include "service/DataService.h"

#include "service/ServiceError.h"

namespace Nimra {

DataService::~DataService() = default;

Page DataService::load(const ItemFilter& /*filter*/) {
    throw ServiceError(Reason::Refused, "this service does not load listings");
}

}  // namespace Nimra
