#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <iostream>
#include <mutex>
#include <sstream>
#include <thread>

#include "apps/Shell.h"
#include "backend/FolderService.h"
#include "tests/apps/Program.h"
#include "tests/apps/Scratch.h"
#include "tests/support/TemporaryFolder.h"

namespace App {
namespace {

using namespace std::chrono_literals;
using Ormek::Testing::actionLinesOf;
using Ormek::Testing::linesOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

/// A folder whose uploads and openings take as long as a test wants.
class SlowService : public Nimra::FolderService {
  public:
    using FolderService::FolderService;

    /// Called instead of what an upload does first, on the worker's thread.
    std::function<void(Nimra::ContentSource* content, const Progress& progress)> beforeUpload =
        [](Nimra::ContentSource*, const Progress&) {};
    std::function<void()> beforeOpening = [] {};

    Nimra::Document create(const Nimra::Document& document, Nimra::ContentSource* content,
                           const Progress& progress) override {
        beforeUpload(content, progress);
        return FolderService::create(document, content, progress);
    }
    Nimra::OpenedDocument openStreams(const Nimra::Document& document) override {
        beforeOpening();
        return FolderService::openStreams(document);
    }
};

/// Lines, each of which is taken when a test lets it.
class LinesInTime : public LineReader {
  public:
    LinesInTime(std::vector<std::string> lines, std::function<void()> before)
        : _lines(std::move(lines)), _before(std::move(before)) {}

    std::optional<std::string> next(const std::string& /*prompt*/, Actions& /*actions*/) override {
        _before();
        return _next < _lines.size() ? std::optional(_lines[_next++]) : std::nullopt;
    }

  private:
    std::vector<std::string> _lines;
    std::function<void()> _before;
    std::size_t _next = 0;
};

class ActionShellTest : public testing::Test {
  protected:
    ActionShellTest() { std::cout.setstate(std::ios::failbit); }
    ~ActionShellTest() override {
        _session.reset();
        _client.reset();
        std::cout.clear();
    }

    bool run(const std::string& commands) {
        const Ormek::Testing::Scratch in(commands);
        PlainLineReader reader(in.fd());
        return Shell(session(), reader).run();
    }
    std::string put(const std::string& name) const {
        return "put '" + local.writeFile(name, "content").string() + "'\n";
    }

    Session& session() {
        if (!_session) {
            _client = std::make_unique<Ormek::Client>(std::move(_owned));
            _session = std::make_unique<Session>(*_client, surroundings);
        }
        return *_session;
    }
    Ormek::Client& client() { return session().client(); }

    /// An upload that reports that it goes on, and takes longer than the limit for an answer.
    void makeUploadsSlow() {
        surroundings.limit = 600ms;
        service.beforeUpload = [](Nimra::ContentSource*, const auto& progress) {
            for (unsigned long done = 1; done <= 20; ++done) {
                progress(done, 20);
                std::this_thread::sleep_for(50ms);
            }
        };
    }
    /// An upload that ends when its content fails.
    void makeUploadsEndless() {
        service.beforeUpload = [this](Nimra::ContentSource* content, const auto&) {
            hasBegun = true;
            char byte = 0;
            while (true) {
                content->read(&byte, 1);
                std::this_thread::sleep_for(1ms);
            }
        };
    }

    Ormek::Testing::TemporaryFolder folder;
    Ormek::Testing::TemporaryFolder local;
    std::ostringstream said;
    Session::Surroundings surroundings{said, said};
    std::atomic<bool> hasBegun = false;

  private:
    std::unique_ptr<SlowService> _owned = std::make_unique<SlowService>(folder.path().string());
    std::unique_ptr<Ormek::Client> _client;
    std::unique_ptr<Session> _session;

  protected:
    SlowService& service = *_owned;
};

TEST_F(ActionShellTest, AnOutcomeIsSaidBeforeTheNextCommand) {
    folder.writeFile("a");
    LinesInTime lines({"rename a b", "pwd"}, [&] { client().waitUntilIdle(10s); });
    EXPECT_TRUE(Shell(session(), lines, Shell::Echo::On).run());
    EXPECT_THAT(actionLinesOf(said.str()),
                ElementsAre("ormek:/> rename a b", "1: renaming 'a' to 'b'", "1: done",
                            "ormek:/> pwd", "/"));
}

TEST_F(ActionShellTest, AnUploadThatGoesOnKeepsNobodyFromItsAnswer) {
    makeUploadsSlow();
    EXPECT_TRUE(run(put("file") + "ls -1 --refresh\n"));
    EXPECT_THAT(linesOf(said.str()), Contains("file"));
    EXPECT_THAT(said.str(), Not(HasSubstr("no answer in time")));
}

TEST_F(ActionShellTest, AnUploadThatStandsStillDoes) {
    surroundings.limit = 100ms;
    makeUploadsEndless();
    surroundings.interrupted = [&] { return said.str().find("no answer") != std::string::npos; };
    EXPECT_FALSE(run(put("file") + "ls -1 --refresh\n"));
    EXPECT_THAT(linesOf(said.str()), Contains("ormek: ls: no answer in time"));
}

TEST_F(ActionShellTest, WhoWaitsSeesHowFarAnUploadIs) {
    makeUploadsSlow();
    surroundings.showProgress = true;
    for (const char* waiting : {"wait", "ls --refresh", ""}) {
        said.str("");
        EXPECT_TRUE(run(put(std::string("file ") + waiting) + waiting));
        EXPECT_THAT(said.str(), HasSubstr(" of 20\r\033[K")) << waiting;
    }
}

TEST_F(ActionShellTest, CtrlCEndsTheWaitAndTheUploadGoesOn) {
    makeUploadsEndless();
    int asked = 0;
    surroundings.interrupted = [&] { return hasBegun && ++asked > 1; };
    EXPECT_FALSE(run(put("file") + "wait\n"));
    EXPECT_THAT(linesOf(said.str()), Contains("ormek: wait: interrupted"));
}

TEST_F(ActionShellTest, CtrlCAtTheEndLosesWhatWasNotBegunAndEndsUploads) {
    folder.writeFile("a");
    makeUploadsEndless();
    std::size_t asked = 0;
    surroundings.interrupted = [&] { return asked == 6 && hasBegun; };
    LinesInTime lines({"info a", put("file"), "rename a b", "mkdir c", "rename c d"},
                      [&] { ++asked; });
    EXPECT_FALSE(Shell(session(), lines).run());
    const auto told = actionLinesOf(said.str());
    EXPECT_THAT(told, Contains("2: lost: renaming 'a' to 'b', was not begun yet"));
    EXPECT_THAT(told, Contains("3: lost: making the folder '/c', was not begun yet"));
    EXPECT_THAT(told, Contains(MatchesRegex("4: lost: renaming 'c' to 'd', waits for .*")));
    EXPECT_EQ(told.back(), "1: failed: the upload was given up; '/file' is gone");
    EXPECT_TRUE(session().actions().hasLost());
    EXPECT_TRUE(std::filesystem::exists(folder / "a"));
    EXPECT_FALSE(std::filesystem::exists(folder / "file"));
    EXPECT_FALSE(std::filesystem::exists(folder / "d"));
}

TEST_F(ActionShellTest, ACatThatIsGivenUpIsCancelled) {
    folder.writeFile("a", "text");
    makeUploadsEndless();
    bool isPressed = false;
    surroundings.interrupted = [&] { return isPressed && hasBegun; };
    EXPECT_TRUE(run("info a\n"));
    LinesInTime lines({put("file"), "cat a", "parked"}, [&] { isPressed = true; });
    said.str("");
    EXPECT_FALSE(Shell(session(), lines).run());
    EXPECT_THAT(linesOf(said.str()), Contains("ormek: cat: interrupted"));
    EXPECT_THAT(said.str(), Not(HasSubstr("text")));
    EXPECT_EQ(client().statistics().parkedOperations, 0U);
}

TEST_F(ActionShellTest, ALaterSessionIsNotBlamedForAnEarlierFailure) {
    folder.writeFile("a");
    folder.writeFile("b");
    EXPECT_FALSE(run("rename a b\n"));
    EXPECT_TRUE(run("rename a c\n"));
    EXPECT_FALSE(session().actions().hasLost());
}

}  // namespace
}  // namespace App
