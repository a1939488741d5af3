// One client, called by several threads at once. The thread sanitizer makes the most of these.

#include <poll.h>

#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <thread>

#include "tests/client/ActingFixture.h"

namespace Ormek::Testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr int Threads = 4;
constexpr int Rounds = 30;

class ClientThreadsTest : public ActingTest {
  protected:
    /// A folder for each thread, 10 and up, and one that all share, 9.
    void fillRoot() {
        service.addFolder(9, Root, "shared");
        for (unsigned long thread = 0; thread < Threads; ++thread) {
            service.addFolder(10 + thread, Root, "folder " + std::to_string(thread));
            service.addDocument(100 + thread, 10 + thread, "own");
            service.addDocument(200 + thread, 9, "shared " + std::to_string(thread));
        }
        list(Root);
        for (unsigned long folderId = 9; folderId < 10 + Threads; ++folderId) {
            list(folderId);
        }
    }

    /// Runs it on several threads at once, beside others that go on until these have ended.
    static void run(const std::function<void(unsigned long)>& task,
                    const std::vector<std::function<void()>>& beside = {}) {
        std::atomic<bool> over{false};
        std::vector<std::thread> others;
        for (const auto& other : beside) {
            others.emplace_back([&over, &other] {
                while (!over) {
                    other();
                    std::this_thread::sleep_for(std::chrono::microseconds(200));
                }
            });
        }
        std::vector<std::thread> threads;
        for (unsigned long number = 0; number < Threads; ++number) {
            threads.emplace_back([&task, number] { task(number); });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        over = true;
        for (std::thread& thread : others) {
            thread.join();
        }
    }

    void expectServersPicture() {
        settle();
        EXPECT_THAT(client().waiting(), IsEmpty());
        std::vector<unsigned long> folderIds{Root, 9};
        for (unsigned long thread = 0; thread < Threads; ++thread) {
            folderIds.push_back(10 + thread);
        }
        for (const unsigned long folderId : folderIds) {
            EXPECT_EQ(listed(folderId), service.namesIn(folderId)) << folderId;
        }
    }
};

TEST_F(ClientThreadsTest, EveryActionOfEveryThreadHasOneOutcome) {
    fillRoot();
    std::mutex mutex;
    std::map<unsigned long, int> outcomes;
    client().subscribe([&](const Event& event) {
        if (const auto* outcome = std::get_if<Outcome>(&event)) {
            const std::lock_guard lock(mutex);
            ++outcomes[outcome->operationId];
        }
    });
    std::vector<unsigned long> begun;
    const auto note = [&](const Action& action) {
        const std::lock_guard lock(mutex);
        if (action.operationId() != 0) {
            begun.push_back(action.operationId());
        }
        return action;
    };
    run(
        [&](unsigned long thread) {
            const unsigned long own = 10 + thread;
            for (int round = 0; round < Rounds; ++round) {
                // Nobody else's, so that the folder in the middle refuses none.
                const std::string name =
                    std::to_string(thread) + ": document " + std::to_string(round);
                const Action made = note(client().createDocument(
                    own, name, std::make_unique<TextSource>("content of " + name)));
                note(client().rename(made.entryId(), name + "'"));
                note(client().saveMetaData(made.entryId(), {{"round", {name, true}}}));
                if (round % 3 == 0) {
                    note(client().move(made.entryId(), 9));
                    note(client().rename(made.entryId(), name + " that was moved"));
                } else if (round % 3 == 1) {
                    note(client().remove(made.entryId()));
                }
                const Action folder = note(client().createFolder(own, "f" + std::to_string(round)));
                note(client().createDocument(folder.entryId(), "inside"));
                const Action last = note(client().open(100 + thread));
                if (round % 5 == 0) {
                    EXPECT_EQ(client().wait(last, Patience).state, ActionState::Done);
                }
            }
        },
        {
            [&] { client().collect(); },
            [&] {
                for (const WaitingAction& waiting : client().waiting()) {
                    EXPECT_NE(waiting.operationId, 0U);
                }
            },
        });
    expectServersPicture();
    EXPECT_EQ(outcomes.size(), begun.size());
    for (const unsigned long operationId : begun) {
        EXPECT_EQ(outcomes[operationId], 1) << operationId;
    }
    for (unsigned long thread = 0; thread < Threads; ++thread) {
        EXPECT_EQ(service.namesIn(10 + thread).size(), 1U + Rounds + Rounds / 3);
    }
    EXPECT_EQ(service.namesIn(9).size(), std::size_t{Threads} + Threads * Rounds / 3);
}

TEST_F(ClientThreadsTest, ListingsAreWholeWhileOthersAct) {
    fillRoot();
    run(
        [&](unsigned long thread) {
            const std::string name = "shared " + std::to_string(thread);
            for (int round = 0; round < Rounds; ++round) {
                const std::string other = name + (round % 2 == 0 ? " renamed" : "");
                client().rename(200 + thread, other);
                const Answer answer = client().wait(client().list(9), Patience);
                ASSERT_EQ(answer.state, AnswerState::Answered);
                int seen = 0;
                client().read([&] {
                    for (const auto& entry : answer.entries) {
                        seen += entry->name().starts_with("shared ") ? 1 : 0;
                    }
                });
                EXPECT_EQ(seen, Threads);
                EXPECT_EQ(client().pathOf(200 + thread), "/shared/" + other);
                EXPECT_EQ(client().wait(client().find("shared/" + other), Patience).state,
                          AnswerState::Answered);
            }
        },
        {
            [&] { client().list(9, reloaded(descending())); },
            [&] { client().onRemoteDoubt(9); },
            [&] { client().wait(client().find("shared", Freshness::Reload), Patience); },
            [&] { client().statistics(); },
        });
    expectServersPicture();
}

TEST_F(ClientThreadsTest, ServiceIsSwitchedOffAndOnWhileOthersAct) {
    fillRoot();
    run(
        [&](unsigned long thread) {
            for (int round = 0; round < Rounds; ++round) {
                const Action folder =
                    client().createFolder(10 + thread, "f" + std::to_string(round));
                const Action document = client().createDocument(folder.entryId(), "x");
                const Action moved = client().move(document.entryId(), 10 + thread);
                const Action renamed =
                    client().rename(document.entryId(), "d" + std::to_string(round));
                if (round % 4 == 0) {
                    client().cancel(moved.operationId());
                }
                if (round % 4 == 1) {
                    client().cancel(folder.operationId());
                }
                EXPECT_TRUE(client().wait(renamed, Patience).state != ActionState::Pending);
                EXPECT_TRUE(client().wait(folder, Patience).state != ActionState::Pending);
            }
        },
        {[&] { client().setOnline(!client().online()); }});
    client().setOnline(true);
    expectServersPicture();
}

TEST_F(ClientThreadsTest, SubscribersComeAndGoAndCallBackWhileOthersAct) {
    fillRoot();
    std::atomic<int> inside{0};
    std::atomic<bool> overlapped{false};
    std::atomic<unsigned long> heard{0};
    const auto listener = [&](const Event& event) {
        overlapped = overlapped || ++inside != 1;
        if (const auto* outcome = std::get_if<Outcome>(&event)) {
            client().item(outcome->entryId);
            client().poll(client().list(Root));
        }
        ++heard;
        --inside;
    };
    client().subscribe(listener);
    run(
        [&](unsigned long thread) {
            for (int round = 0; round < Rounds; ++round) {
                client().rename(100 + thread, "own " + std::to_string(round));
                const Action last = client().saveMetaData(
                    100 + thread, {{"round", {std::to_string(round), false}}});
                if (round % 10 == 0) {
                    EXPECT_EQ(client().wait(last, Patience).state, ActionState::Done);
                }
            }
        },
        {
            [&] { client().unsubscribe(client().subscribe(listener)); },
            [&] { client().collect(); },
        });
    expectServersPicture();
    EXPECT_FALSE(overlapped);
    EXPECT_GE(heard, 2UL * Threads * Rounds);
}

TEST_F(ClientThreadsTest, FeedTellsOfChangesWhileOthersAct) {
    fillRoot();
    std::atomic<unsigned long> next{5000};
    run(
        [&](unsigned long thread) {
            for (int round = 0; round < Rounds; ++round) {
                const std::string name = "n" + std::to_string(round);
                client().rename(200 + thread, name + " of " + std::to_string(thread));
                client().move(200 + thread, round % 2 == 0 ? 10 + thread : 9);
                client().wait(client().list(9), Patience);
            }
        },
        {
            [&] {
                // No more of them stay than one page holds.
                const unsigned long id = next++;
                const std::string name = "told " + std::to_string(id);
                service.addDocument(id, 9, name);
                client().onRemoteChange(Nimra::Document(id, 9, 1, name));
                if (id % 2 == 0 || id > 5100) {
                    service.drop(id);
                    client().onRemoteRemoval(id);
                }
            },
            [&] {
                for (unsigned long id = 200; id < 200 + Threads; ++id) {
                    if (const auto item = client().item(id)) {
                        std::string name;
                        client().read([&] { name = item->name(); });
                        EXPECT_NE(name, "");
                    }
                }
            },
        });
    client().onRemoteDoubt(9);
    expectServersPicture();
}

TEST_F(ClientThreadsTest, DescriptorWakesTheOneWhoWaitsOnItWhoeverCollects) {
    fillRoot();
    std::atomic<bool> over{false};
    std::thread watcher([&] {
        while (!over) {
            pollfd ready{client().fd(), POLLIN, 0};
            if (::poll(&ready, 1, 50) == 1) {
                client().collect();
            }
        }
    });
    run([&](unsigned long thread) {
        for (int round = 0; round < Rounds; ++round) {
            const Action action = client().rename(100 + thread, "r" + std::to_string(round));
            EXPECT_EQ(client().wait(action, Patience).state, ActionState::Done);
        }
    });
    over = true;
    watcher.join();
    expectServersPicture();
}

}  // namespace
}  // namespace Ormek::Testing
