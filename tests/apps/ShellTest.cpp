#include "apps/Shell.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <iostream>
#include <sstream>

#include "apps/Commands.h"
#include "tests/apps/Program.h"
#include "tests/apps/Scratch.h"
#include "tests/support/ScriptedService.h"

namespace App {
namespace {

using namespace std::chrono_literals;
using Ormek::Testing::linesOf;
using Ormek::Testing::ScriptedService;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::SizeIs;

constexpr unsigned long Root = ScriptedService::RootId;

/// A service that is edited behind the back of whoever walks through its pages.
class RestlessService : public ScriptedService {
  public:
    std::function<void(std::size_t loads)> afterLoad = [](std::size_t) {};

    Nimra::Page load(const Nimra::ItemFilter& filter) override {
        Nimra::Page page = ScriptedService::load(filter);
        afterLoad(++_loads);
        return page;
    }

  private:
    std::size_t _loads = 0;
};

/// Takes nothing.
class BrokenPipe : public std::streambuf {};

class ShellTest : public testing::Test {
  protected:
    ShellTest() { std::cout.setstate(std::ios::failbit); }
    ~ShellTest() override {
        service.release();
        _session.reset();
        _client.reset();
        std::cout.clear();
    }

    void addDocuments(unsigned long firstId, const std::vector<std::string>& names) {
        for (const std::string& name : names) {
            service.addDocument(firstId++, Root, name);
        }
    }

    bool run(const std::string& commands, Shell::Echo echo = Shell::Echo::Off) {
        const Ormek::Testing::Scratch in(commands);
        PlainLineReader reader(in.fd());
        return Shell(session(), reader, echo).run();
    }

    Session& session() {
        if (!_session) {
            _client = std::make_unique<Ormek::Client>(std::move(_owned));
            _session = std::make_unique<Session>(*_client, surroundings);
        }
        return *_session;
    }

    std::ostringstream out;
    std::ostringstream err;
    Session::Surroundings surroundings{out, err};

  private:
    std::unique_ptr<RestlessService> _owned = std::make_unique<RestlessService>();
    std::unique_ptr<Ormek::Client> _client;
    std::unique_ptr<Session> _session;

  protected:
    RestlessService& service = *_owned;
};

TEST_F(ShellTest, NoEntryIsMissedWhenOneBeforeItLeavesBetweenTwoPages) {
    addDocuments(10, {"a", "b", "c", "d", "e"});
    service.afterLoad = [&](std::size_t loads) {
        if (loads == 1) {
            service.drop(10);
        }
    };
    EXPECT_TRUE(run("ls -1 --all --count 2\n"));
    EXPECT_THAT(linesOf(out.str()), testing::UnorderedElementsAre("a", "b", "c", "d", "e"));
    EXPECT_THAT(err.str(), HasSubstr("5 of 4 entries, loaded, "));
}

TEST_F(ShellTest, NoEntryIsShownTwiceWhenOneArrivesBetweenTwoPages) {
    addDocuments(10, {"b", "c", "d", "e"});
    service.afterLoad = [&](std::size_t loads) {
        if (loads == 1) {
            service.addDocument(9, Root, "a");
        }
    };
    EXPECT_TRUE(run("ls -1 --all --count 2\n"));
    EXPECT_THAT(linesOf(out.str()), testing::UnorderedElementsAre("a", "b", "c", "d", "e"));
    EXPECT_THAT(err.str(), HasSubstr("5 of 5 entries, loaded, "));
}

TEST_F(ShellTest, AListingThatNeverRestsComesToAnEnd) {
    addDocuments(10, {"a", "b"});
    service.afterLoad = [&](std::size_t loads) {
        service.addDocument(100 + loads, Root, "a" + std::to_string(loads));
    };
    EXPECT_TRUE(run("ls -1 --all --count 2\n"));
    EXPECT_THAT(err.str(), HasSubstr(" entries, loaded, "));
}

TEST_F(ShellTest, AllIsFromMemoryOnlyIfEveryPageIs) {
    addDocuments(10, {"a", "b", "c", "d", "e"});
    EXPECT_TRUE(run("ls --count 2\nls --all --count 2\nls --all --count 2\n"));
    EXPECT_THAT(linesOf(err.str()), ElementsAre(MatchesRegex("2 of 5 entries, loaded, .*"),
                                                MatchesRegex("5 of 5 entries, loaded, .*"),
                                                MatchesRegex("5 of 5 entries, from memory, .*")));
    EXPECT_THAT(service.asked(), SizeIs(3));
}

TEST_F(ShellTest, AllStartsAtTheOffset) {
    addDocuments(10, {"a", "b", "c", "d", "e"});
    EXPECT_TRUE(run("ls -1 --all --count 2 --offset 1\n"));
    EXPECT_THAT(linesOf(out.str()), ElementsAre("b", "c", "d", "e"));
    EXPECT_THAT(err.str(), HasSubstr("4 of 5 entries"));
    EXPECT_TRUE(run("ls -1 --all --offset 4294967295\n"));
    EXPECT_THAT(err.str(), HasSubstr("0 of 5 entries"));
}

TEST_F(ShellTest, AFailureIsToldAndTheNextQueryTriesAgain) {
    addDocuments(10, {"a"});
    session();
    service.failWith(Nimra::ServiceError(Nimra::Reason::NotReachable, "the line is\ndead"));
    EXPECT_FALSE(run("ls\n"));
    EXPECT_EQ(err.str(), "ormek: ls: the line is\\ndead\n");
    service.failWith(std::nullopt);
    EXPECT_TRUE(run("ls -1\n"));
    EXPECT_EQ(out.str(), "a\n");
}

TEST_F(ShellTest, AnAnswerThatDoesNotComeIsNotWaitedForForEver) {
    service.hold();
    surroundings.limit = 20ms;
    EXPECT_FALSE(run("ls\npwd\n"));
    EXPECT_EQ(err.str(), "ormek: ls: no answer in time\n");
    EXPECT_EQ(out.str(), "/\n");
}

TEST_F(ShellTest, AnAnswerThatCameLateIsThereTheNextTime) {
    addDocuments(10, {"a"});
    service.hold();
    surroundings.limit = 200ms;
    EXPECT_FALSE(run("ls\n"));
    service.release();
    // The load goes on, so that the second query joins it or finds its page.
    EXPECT_TRUE(run("ls -1\n"));
    EXPECT_EQ(out.str(), "a\n");
    EXPECT_THAT(service.asked(), SizeIs(1));
}

TEST_F(ShellTest, AWaitCanBeInterrupted) {
    service.hold();
    int asked = 0;
    surroundings.interrupted = [&] { return ++asked == 3; };
    EXPECT_FALSE(run("ls\npwd\n"));
    EXPECT_EQ(err.str(), "ormek: ls: interrupted\n");
    EXPECT_EQ(out.str(), "/\n");
}

TEST_F(ShellTest, ProgressIsShownAndTakenAway) {
    addDocuments(10, {"a", "b", "c"});
    surroundings.showProgress = true;
    EXPECT_TRUE(run("ls -1 --all --count 2\n"));
    EXPECT_THAT(err.str(), MatchesRegex("\r2 of 3\r3 of 3\r\033\\[K3 of 3 entries, .*\n"));
    EXPECT_EQ(out.str(), "a\nb\nc\n");
}

TEST_F(ShellTest, NothingGoesOnOnceTheOutputIsLost) {
    addDocuments(10, {"a"});
    out.setstate(std::ios::badbit);
    EXPECT_TRUE(run("ls\nls\n"));
    EXPECT_EQ(err.str(), "");
    EXPECT_THAT(service.asked(), IsEmpty());
}

TEST_F(ShellTest, TheWalkEndsOnceTheOutputIsLost) {
    addDocuments(10, {"a", "b", "c", "d"});
    BrokenPipe broken;
    static_cast<std::ostream&>(out).rdbuf(&broken);
    EXPECT_FALSE(run("ls --all --count 1\nls\n"));
    EXPECT_EQ(err.str(), "");
    EXPECT_THAT(service.asked(), SizeIs(1));
}

TEST_F(ShellTest, EchoRepeatsLinesBehindThePrompt) {
    service.addFolder(5, Root, "sub\n");
    EXPECT_TRUE(run("# first\ncd $'sub\\n'\npwd\n", Shell::Echo::On));
    EXPECT_EQ(out.str(),
              "ormek:/> # first\n"
              "ormek:/> cd $'sub\\n'\n"
              "ormek:/sub\\n> pwd\n"
              "/sub\\n\n");
}

TEST_F(ShellTest, CommentsAndEmptyLinesAreNothing) {
    EXPECT_TRUE(run("\n  \n# it's a comment\n  # another\n"));
    EXPECT_EQ(out.str() + err.str(), "");
}

TEST_F(ShellTest, TagsAreListedByEntry) {
    service.addFolder(5, Root, "music");
    service.addTag(20, 5, "artist", "A\nB");
    service.addTag(21, 5, "year", "1999");
    EXPECT_TRUE(run("tags music\ncd music\ntags\ntags --refresh\n"));
    const std::string listed = "tag 20  artist=A\\nB\ntag 21  year=1999\n";
    EXPECT_EQ(out.str(), listed + listed + listed);
    EXPECT_THAT(linesOf(err.str()), ElementsAre(MatchesRegex("2 of 2 entries, loaded, .*"),
                                                MatchesRegex("2 of 2 entries, from memory, .*"),
                                                MatchesRegex("2 of 2 entries, loaded, .*")));
}

TEST_F(ShellTest, InfoPrintsEveryField) {
    service.addDocument(10, Root, "a\tb");
    service.editDocument(10, [](Nimra::Document& document) {
        document.length = 77;
        document.mimeType = "text/x-test";
        document.setKeyValue("mood", {"good", false});
        document.setKeyValue("rank", {"1", true});
    });
    EXPECT_TRUE(run("info $'a\\tb'\n"));
    for (const char* line : {"path  +/a\\\\tb",
                             "name  +a\\\\tb",
                             "kind  +file",
                             "type  +4",
                             "id  +10",
                             "id loaded  +(yes|no)",
                             "data loaded  +(yes|no)",
                             "parent id  +1",
                             "old parent id  +0",
                             "owner id  +1",
                             "drive id  +0",
                             "created  +-",
                             "updated  +-",
                             "deleted  +-",
                             "description  +",
                             "first text  +",
                             "second text  +",
                             "third text  +",
                             "access level  +[0-9]+",
                             "shared  +no",
                             "size  +77",
                             "mime type  +text/x-test",
                             "key value  +mood=good",
                             "key value  +rank=1 \\(flagged\\)"}) {
        EXPECT_THAT(linesOf(out.str()), testing::Contains(MatchesRegex(line)));
    }
}

TEST(CommandTable, IsWholeAndExplained) {
    std::vector<std::string> names;
    for (const Command& command : commands()) {
        names.emplace_back(command.name);
        EXPECT_EQ(findCommand(command.name), &command);
        EXPECT_NE(command.run, nullptr);
        EXPECT_FALSE(command.help.empty()) << command.name;
    }
    EXPECT_THAT(names,
                ElementsAre("ls", "cd", "pwd", "info", "tags", "stats", "rename", "mv", "rm",
                            "mkdir", "put", "get", "cat", "set", "session", "events", "offline",
                            "online", "parked", "cancel", "wait", "help", "quit"));
    EXPECT_EQ(findCommand("l"), nullptr);
    EXPECT_EQ(findCommand(""), nullptr);
}

}  // namespace
}  // namespace App
