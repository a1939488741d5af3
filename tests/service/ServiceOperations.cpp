#include "tests/service/ServiceOperations.h"

#include <stdexcept>
#include <utility>

#include "service/DataLoaderOperation.h"
#include "service/FileOperation.h"
#include "service/LocalIds.h"
#include "tests/support/StateText.h"

namespace Ormek::Testing {

namespace {

using W = ServiceWorld;

constexpr unsigned int Create = 2;
constexpr unsigned int Move = 4;
constexpr unsigned int Rename = 6;

constexpr unsigned long User = 5;
constexpr unsigned long Folder = 7;
constexpr unsigned long Document = 30;
constexpr unsigned long LocalFolder = Nimra::FirstLocalId + 1;
constexpr unsigned long LocalDocument = Nimra::FirstLocalId + 2;

std::unique_ptr<Nimra::Operation> file(unsigned long id, unsigned int kind, unsigned long document,
                                       unsigned long folder, unsigned long user) {
    Nimra::Document record(document, folder, user, "a document with a rather long name");
    record.oldParentId = kind == Move ? Folder : 0;
    return std::make_unique<Nimra::FileOperation>(id, record, kind, nullptr);
}

std::unique_ptr<Nimra::Operation> load(unsigned long id, std::vector<unsigned long> folders) {
    Nimra::ItemFilter filter;
    filter.userId = User;
    filter.dataId = std::move(folders);
    return std::make_unique<Nimra::DataLoaderOperation>(id, filter, nullptr);
}

std::unique_ptr<Nimra::Operation> session(unsigned long id) {
    Nimra::ItemFilter filter;
    filter.url = "/v1/documents/" + std::to_string(LocalFolder) + "/" + std::to_string(Document) +
                 "/session";
    return std::make_unique<Nimra::DataLoaderOperation>(id, filter, nullptr);
}

std::string idsOf(const std::vector<Nimra::Operation*>& operations) {
    std::string ids;
    for (const Nimra::Operation* operation : operations) {
        ids += std::to_string(operation->id()) + ' ';
    }
    return ids;
}

std::string idsOf(const QueuedOperationsManager::Operations& operations) {
    std::string ids;
    for (const auto& operation : operations) {
        ids += std::to_string(operation->id()) + ' ';
    }
    return ids;
}

std::string idOf(const std::unique_ptr<Nimra::Operation>& operation) {
    return operation ? std::to_string(operation->id()) : "none";
}

template <class Call>
std::string refusal(Call call) {
    try {
        call();
    } catch (const std::invalid_argument& error) {
        return error.what();
    }
    return "not refused";
}

std::vector<ServiceOperation> handlerOperations() {
    return {
        {"queueOperation",
         [](W& w) {
             w.handler.queueOperation(w.newOperation().release());
             return std::string();
         }},
        {"operations", [](W& w) { return idsOf(w.handler.operations()); }},
        {"take", [](W& w) { return idOf(w.handler.take()); }},
        {"take, by id", [](W& w) { return idOf(w.handler.take(2)); }},
        {"take, by unknown id", [](W& w) { return idOf(w.handler.take(99)); }},
        {"createId",
         [](W&) { return std::string(Nimra::OperationHandler::createId() != 0 ? "id" : "none"); }},
    };
}

std::vector<ServiceOperation> parkingOperations() {
    return {
        {"push",
         [](W& w) {
             w.parked.push(w.newOperation().release());
             return std::string();
         }},
        {"size", [](W& w) { return std::to_string(w.parked.size()); }},
        {"operations, parked", [](W& w) { return idsOf(w.parked.operations()); }},
        {"waiting", [](W& w) { return std::to_string(w.parked.waiting().size()); }},
        {"idKnown",
         [](W& w) {
             w.parked.idKnown(LocalFolder, Folder);
             return std::string();
         }},
        {"idKnown, again",
         [](W& w) {
             w.parked.idKnown(LocalDocument, Document);
             return std::string();
         }},
        {"idKnown, no local id",
         [](W& w) { return refusal([&w] { w.parked.idKnown(Folder, Document); }); }},
        {"idKnown, no server id",
         [](W& w) { return refusal([&w] { w.parked.idKnown(LocalFolder, LocalDocument); }); }},
        {"idGone",
         [](W& w) {
             w.parked.idGone(Document);
             return std::string();
         }},
        {"userKnown",
         [](W& w) {
             w.parked.userKnown(User);
             return std::string();
         }},
        {"userKnown, nobody", [](W& w) { return refusal([&w] { w.parked.userKnown(0); }); }},
        {"takeReady", [](W& w) { return idsOf(w.parked.takeReady()); }},
        {"takeWaitingFor", [](W& w) { return idsOf(w.parked.takeWaitingFor(LocalFolder)); }},
        {"takeWaitingFor, unknown id",
         [](W& w) { return idsOf(w.parked.takeWaitingFor(LocalFolder + 9)); }},
        {"takeFirst", [](W& w) { return idOf(w.parked.takeFirst()); }},
        {"cancel", [](W& w) { return idOf(w.parked.cancel(12)); }},
        {"cancel, unknown id", [](W& w) { return idOf(w.parked.cancel(99)); }},
    };
}

}  // namespace

ServiceWorld::ServiceWorld() {
    for (unsigned long id = 1; id <= 3; ++id) {
        handler.queueOperation(file(id, Rename, Document + id, Folder, User).release());
    }
    parked.idKnown(LocalDocument, Document);
    std::unique_ptr<Nimra::Operation> all[] = {file(11, Create, LocalFolder + 2, LocalFolder, User),
                                               file(12, Rename, LocalFolder + 2, LocalFolder, User),
                                               file(13, Move, Document + 1, LocalFolder, User),
                                               file(14, Rename, Document + 2, Folder, 0),
                                               file(15, Rename, Document + 3, Folder, User),
                                               load(16, {LocalFolder, Folder}),
                                               load(17, {Folder + 1, Folder + 2}),
                                               load(18, {}),
                                               session(19)};
    for (auto& operation : all) {
        parked.push(operation.release());
    }
}

std::unique_ptr<Nimra::Operation> ServiceWorld::newOperation() const {
    return file(20, Move, LocalDocument, LocalFolder, 0);
}

std::string ServiceWorld::state() const {
    StateText text;
    for (const Nimra::Operation* operation : handler.operations()) {
        text.operation("queued " + std::to_string(operation->id()), *operation);
    }
    for (const Nimra::Operation* operation : parked.operations()) {
        text.operation("parked " + std::to_string(operation->id()), *operation);
    }
    for (const unsigned long id : {LocalDocument, LocalFolder}) {
        text.line(std::to_string(id) + " is " + std::to_string(parked.serverId(id)));
    }
    for (const QueuedOperationsManager::Waiting& waiting : parked.waiting()) {
        text.line("waits for " + std::to_string(waiting.localIds.size()) + " ids" +
                  (waiting.forUser ? " user" : "") + (waiting.forLackingId ? " id" : "") +
                  (waiting.forEarlier ? " another" : ""));
    }
    return text.text();
}

std::vector<ServiceOperation> serviceOperations() {
    std::vector<ServiceOperation> all = handlerOperations();
    const std::vector<ServiceOperation> more = parkingOperations();
    all.insert(all.end(), more.begin(), more.end());
    return all;
}

}  // namespace Ormek::Testing
