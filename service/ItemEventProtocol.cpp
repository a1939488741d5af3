#include "service/ItemEventProtocol.h"

namespace Nimra {

ItemEventProtocol::~ItemEventProtocol() = default;

void ItemEventProtocol::pageLoaded(unsigned long, const ItemFilter&, Page&) {}

void ItemEventProtocol::finished(unsigned long, const Document&) {}

void ItemEventProtocol::streamsOpened(unsigned long, const Document&,
                                      std::shared_ptr<DocumentStream>) {}

void ItemEventProtocol::sessionOpened(unsigned long, const DocumentSession&) {}

void ItemEventProtocol::failed(unsigned long, const ServiceError&) {}

void ItemEventProtocol::progress(unsigned long, unsigned long, unsigned long) {}

}  // namespace Nimra
