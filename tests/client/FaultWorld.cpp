#include "tests/client/FaultWorld.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <algorithm>
#include <future>
#include <utility>
#include <variant>

namespace Ormek::Testing {

FaultWorld::FaultWorld() : _client(open()), client(*_client) {
    queries.reserve(16);
    actions.reserve(16);
    _told.reserve(64);
    // Allocates nothing: the client's faults are to be seen, not those of a listener.
    client.subscribe([this](const Event& event) {
        if (const auto* outcome = std::get_if<Outcome>(&event)) {
            _told.push_back(outcome->operationId);
        }
    });
    shown(Root);
    shown(Music);
    client.collect();
}

FaultWorld::~FaultWorld() { service.release(); }

std::unique_ptr<Client> FaultWorld::open() {
    service.addFolder(Music, Root, "music");
    service.addFolder(Texts, Root, "texts");
    service.addDocument(20, Root, "a");
    service.addDocument(21, Root, "b");
    service.addDocument(30, Music, "song");
    service.addDocument(31, Texts, "letter");
    service.addTag(20, Root, "colour", "red");
    return std::make_unique<Client>(std::move(_owned));
}

void FaultWorld::awaitAnswer() {
    pollfd readable{client.fd(), POLLIN, 0};
    EXPECT_EQ(::poll(&readable, 1, 20000), 1);
}

bool FaultWorld::isFree() {
    auto looked = std::async(std::launch::async, [this] { client.read([] {}); });
    return looked.wait_for(Patience) == std::future_status::ready;
}

void FaultWorld::settle() {
    service.release();
    client.setOnline(true);
    EXPECT_TRUE(client.waitUntilIdle(Patience));
}

std::vector<std::string> FaultWorld::shown(unsigned long folderId, const ListOptions& options) {
    const Answer answer = client.wait(client.list(folderId, options), Patience);
    EXPECT_EQ(answer.state, AnswerState::Answered) << (answer.error ? answer.error->what() : "");
    std::vector<std::string> names;
    for (const auto& entry : answer.entries) {
        names.push_back(entry->name());
    }
    return names;
}

unsigned long FaultWorld::timesTold(const Action& action) const {
    return static_cast<unsigned long>(std::count(_told.begin(), _told.end(), action.operationId()));
}

bool FaultWorld::toldOfStrangers() const {
    return std::any_of(_told.begin(), _told.end(), [this](unsigned long operationId) {
        return std::none_of(actions.begin(), actions.end(), [=](const Action& action) {
            return action.operationId() == operationId;
        });
    });
}

}  // namespace Ormek::Testing
