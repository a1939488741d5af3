#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>

#include <chrono>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "client/Client.h"
#include "model/Object.h"
#include "service/LocalIds.h"
#include "tests/support/ScriptedActions.h"
#include "tests/support/TextSource.h"

namespace Ormek::Testing {

/// Content that says when it is gone.
class Mortal : public TextSource {
  public:
    explicit Mortal(bool& gone) : TextSource("content"), _gone(gone) {}
    ~Mortal() override { _gone = true; }

  private:
    bool& _gone;
};

/// A client on a scripted service, what it is asked to do in a line each, and what it tells.
class ActingTest : public ::testing::Test {
  protected:
    static constexpr unsigned long Root = ScriptedService::RootId;
    static constexpr unsigned long Given = ScriptedActions::FirstGivenId;
    static constexpr std::chrono::seconds Patience{20};

    ActingTest() { std::cout.setstate(std::ios::failbit); }
    ~ActingTest() override {
        closeClient();
        std::cout.clear();
    }

    Client& client() {
        if (!_client) {
            _client = std::make_unique<Client>(std::move(_owned));
            _client->subscribe([this](const Event& event) { hear(event); });
        }
        return *_client;
    }
    virtual void hear(const Event& event) { events.push_back(event); }
    /// The service goes with it.
    void closeClient() {
        if (_client) {
            service.release();
            destroyClient();
        }
    }
    void destroyClient() { _client.reset(); }

    // --- What the service has. ----------------------------------------------------------

    void addDocuments(unsigned long firstId, const std::vector<std::string>& names,
                      unsigned long folderId = Root) {
        for (const std::string& name : names) {
            service.addDocument(firstId++, folderId, name);
        }
    }

    // --- Questions, until they are answered. ----------------------------------------------

    Answer list(unsigned long folderId, const ListOptions& options = {}) {
        return client().wait(client().list(folderId, options), Patience);
    }
    static std::vector<std::string> namesOf(const Answer& answer) {
        std::vector<std::string> names;
        for (const auto& entry : answer.entries) {
            names.push_back(entry->name());
        }
        return names;
    }
    std::vector<std::string> listed(unsigned long folderId, const ListOptions& options = {}) {
        return namesOf(list(folderId, options));
    }
    /// What is held of a listing, without asking the service.
    std::vector<std::string> held(unsigned long folderId, ListOptions options = {}) {
        const bool wasOnline = client().online();
        client().setOnline(false);
        options.freshness = Freshness::Cached;
        const Answer answer = client().poll(client().list(folderId, options));
        client().setOnline(wasOnline);
        EXPECT_NE(answer.state, AnswerState::Pending);
        return namesOf(answer);
    }
    Answer find(const std::string& path) { return client().wait(client().find(path), Patience); }
    unsigned long idAt(const std::string& path) {
        const Answer answer = find(path);
        return answer.entries.empty() ? 0 : answer.entries.front()->id();
    }

    Nimra::KeyValues keyValuesOf(unsigned long id) {
        const auto* object = dynamic_cast<const Object*>(client().item(id).get());
        return object ? object->keyValues() : Nimra::KeyValues();
    }

    static ListOptions descending() {
        ListOptions options;
        options.order = ListOrder::Descending;
        return options;
    }
    static ListOptions searching(const std::string& text) {
        ListOptions options;
        options.search = text;
        return options;
    }
    static ListOptions only(ListKind kind) {
        ListOptions options;
        options.kind = kind;
        return options;
    }
    static ListOptions page(std::uint32_t offset, std::uint32_t count) {
        ListOptions options;
        options.offset = offset;
        options.count = count;
        return options;
    }
    static ListOptions reloaded(ListOptions options = {}) {
        options.freshness = Freshness::Reload;
        return options;
    }

    // --- Actions, until their outcome. ------------------------------------------------------

    Outcome outcomeOf(const Action& action) { return client().wait(action, Patience); }
    void expectDone(const Action& action) {
        EXPECT_NE(action.operationId(), 0U);
        const Outcome outcome = outcomeOf(action);
        EXPECT_EQ(outcome.state, ActionState::Done)
            << (outcome.error ? outcome.error->what() : "no error");
        EXPECT_EQ(outcome.operationId, action.operationId());
        EXPECT_FALSE(outcome.error);
    }
    void expectFailed(const Action& action, Nimra::Reason reason) {
        EXPECT_NE(action.operationId(), 0U);
        const Outcome outcome = outcomeOf(action);
        EXPECT_EQ(outcome.state, ActionState::Failed);
        EXPECT_EQ(outcome.operationId, action.operationId());
        ASSERT_TRUE(outcome.error);
        EXPECT_EQ(outcome.error->reason(), reason) << outcome.error->what();
    }
    void expectRefusedAtOnce(const Action& action, Nimra::Reason reason) {
        EXPECT_EQ(action.operationId(), 0U);
        const Outcome outcome = client().poll(action);
        EXPECT_EQ(outcome.state, ActionState::Failed);
        EXPECT_EQ(outcome.operationId, 0U);
        ASSERT_TRUE(outcome.error);
        EXPECT_EQ(outcome.error->reason(), reason) << outcome.error->what();
    }
    bool isPending(const Action& action) {
        return client().poll(action).state == ActionState::Pending;
    }
    void settle() { EXPECT_TRUE(client().waitUntilIdle(Patience)); }
    /// Until an answer has come that was not taken in yet.
    void awaitAnswer() {
        pollfd ready{client().fd(), POLLIN, 0};
        EXPECT_EQ(::poll(&ready, 1, 20'000), 1);
    }
    /// Until the service has begun with so many calls.
    void awaitLog(std::size_t lines) {
        const auto deadline = std::chrono::steady_clock::now() + Patience;
        while (service.log().size() < lines && std::chrono::steady_clock::now() < deadline) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        EXPECT_GE(service.log().size(), lines);
    }

    // --- What was told. ---------------------------------------------------------------------

    template <class Kind>
    std::vector<Kind> told() const {
        std::vector<Kind> all;
        for (const Event& event : events) {
            if (const auto* one = std::get_if<Kind>(&event)) {
                all.push_back(*one);
            }
        }
        return all;
    }
    template <class Kind>
    Kind lastTold() const {
        const auto all = told<Kind>();
        EXPECT_FALSE(all.empty());
        return all.empty() ? Kind() : all.back();
    }
    /// How many outcomes of that operation were told.
    std::size_t outcomesOf(const Action& action) const {
        const auto all = told<Outcome>();
        return static_cast<std::size_t>(std::count_if(
            all.begin(), all.end(),
            [&](const Outcome& outcome) { return outcome.operationId == action.operationId(); }));
    }

  private:
    std::unique_ptr<ScriptedActions> _owned = std::make_unique<ScriptedActions>();

  protected:
    ScriptedActions& service = *_owned;
    std::vector<Event> events;

  private:
    std::unique_ptr<Client> _client;
};

}  // namespace Ormek::Testing
