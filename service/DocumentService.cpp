#include "service/DocumentService.h"

#include <string>

#include "service/ServiceError.h"

namespace Nimra {

namespace {

ServiceError refusal(const std::string& what) {
    return {Reason::Refused, "this service does not " + what};
}

}  // namespace

DocumentService::~DocumentService() = default;

Document DocumentService::create(const Document&, ContentSource*, const Progress&) {
    throw refusal("create documents");
}

Document DocumentService::move(const Document&) { throw refusal("move documents"); }

void DocumentService::remove(const Document&) { throw refusal("remove documents"); }

Document DocumentService::rename(const Document&) { throw refusal("rename documents"); }

OpenedDocument DocumentService::openStreams(const Document&) {
    throw refusal("open the content of documents");
}

Document DocumentService::saveMetaData(const Document&) { throw refusal("save metadata"); }

DocumentSession DocumentService::openSession(unsigned long, unsigned long, unsigned long) {
    throw refusal("give sessions");
}

void DocumentService::releaseSession(const DocumentSession&) { throw refusal("give sessions"); }

}  // namespace Nimra
