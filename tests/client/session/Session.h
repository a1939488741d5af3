#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "backend/Worker.h"
#include "client/Client.h"
#include "tests/client/session/ActionBook.h"
#include "tests/client/session/Contents.h"
#include "tests/client/session/Crowd.h"
#include "tests/client/session/Figures.h"
#include "tests/client/session/Picture.h"
#include "tests/client/session/Step.h"
#include "tests/client/session/Supervisor.h"
#include "tests/client/session/World.h"

namespace Ormek::Testing {

/// A front end, its client, the service and whoever else changes the tree, doing what the steps
/// say. What a client promises is checked all the time; and whenever things have settled,
/// everything that it lists is compared with what is really there. Throws Broken, with what was
/// done so far, as soon as something does not hold.
class Session {
  public:
    enum class Place { Disk, Memory };
    enum class Manner {
        InTurns,  ///< The service works when a step says so: a session repeats itself exactly.
        Freely,   ///< It works when it likes.
        Crowded,  ///< The same, and other threads ask the same client for things.
    };

    Session(Place place, Manner manner, Figures& figures);
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
    ~Session();

    void run(const std::vector<Step>& steps);

  private:
    struct Question {
        Query query;
        std::string text;
    };
    struct Page {
        unsigned long folderId;
        ListOptions options;
    };

    // --- Steps ---------------------------------------------------------------------------------

    void take(const Step& step);
    void createDocument(const Step& step);
    void createFolder(const Step& step);
    void rename(const Step& step);
    void move(const Step& step);
    void remove(const Step& step);
    void saveMetaData(const Step& step);
    void open(const Step& step, ActionKind kind);
    void releaseSession(const Step& step);
    void cancel(const Step& step);
    void list(const Step& step);
    void tags(const Step& step);
    void find(const Step& step);
    void look(const Step& step);
    void serve(const Step& step);
    void collect();
    void goOffline(bool offline);
    void fail(const Step& step);
    void changeElsewhere(const Step& step);
    void feed(std::size_t count);
    void doubt(const Step& step);
    void dropHandles(const Step& step);
    void settle(const Step& step);
    void end();

    // --- What steps are about ------------------------------------------------------------------

    unsigned long anyEntry(std::uint32_t number);
    unsigned long anyFolder(std::uint32_t number);
    Target targetOf(unsigned long id, std::uint32_t number);
    static Nimra::KeyValues keyValues(std::uint32_t number);
    static ListOptions options(const Step& step);
    void note(const std::string& text);
    void asked(const Action& action, ActionBook::Asked asked, const std::string& text);

    // --- Checks --------------------------------------------------------------------------------

    void hear(const Event& event);
    void drain();
    void know(unsigned long id);
    void checkPresent();
    void checkWanted();
    void checkAnswer(const Answer& answer, const std::string& text);
    void checkListing(const Page& page, const Answer& answer);
    void checkArrivals(unsigned long folderId, const Answer& answer);
    void lookAt(const Page& page);
    void checkOutcome(const Outcome& outcome);
    void checkHandles();
    void checkStream(const Nimra::DocumentStream& stream);

    struct Compared {
        std::set<unsigned long> ids;
        std::map<unsigned long, unsigned long> contents;  // How many documents have each.
    };
    void settleDown();
    void compareAsHeld(unsigned long folderId, const Tree& tree, const Step& step);
    bool compareAnswer(const Page& page, const Answer& answer, const Tree& tree);
    void compareTags(unsigned long folderId, Freshness freshness, const Tree& tree);
    void refresh(unsigned long folderId, const Step& step);
    void compare(unsigned long folderId, const std::string& path, const Tree& tree,
                 const Step& step, Compared& compared);
    void compareListing(const Page& page, const Tree& tree);
    void compareEntry(unsigned long folderId, const std::string& path, const Tree& tree,
                      const std::shared_ptr<Item>& item);
    std::vector<std::shared_ptr<Item>> listed(const Page& page);
    Answer answerTo(const Query& query);

    Contents _contents;
    Supervisor _supervisor;
    Manner _manner;
    Figures& _figures;
    std::unique_ptr<World> _world;
    std::unique_ptr<Client> _client;
    Nimra::Worker* _worker = nullptr;
    Crowd _crowd;

    unsigned long _caller = 0;  // The subscription of a listener that calls the client.
    std::mutex _eventsMutex;
    std::vector<Event> _events;
    Picture _picture;
    ActionBook _book;
    std::set<unsigned long> _ids;  // All that were ever seen.
    std::vector<Question> _questions;
    std::vector<Nimra::DocumentSession> _sessions;
    unsigned long _loadsCollected = 0;
    std::vector<std::string> _log;
};

}  // namespace Ormek::Testing
