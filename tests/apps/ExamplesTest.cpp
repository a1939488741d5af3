#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/apps/Files.h"
#include "tests/apps/Program.h"
#include "tests/support/TemporaryFolder.h"

namespace Ormek::Testing {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

std::string source(const std::string& name) { return contentOf(ORMEK_SOURCE_DIR "/" + name); }

TEST(ListFolderExample, LoadsTheFirstTimeAndRemembersTheSecond) {
    const TemporaryFolder folder;
    for (int i = 0; i < 60; ++i) {
        folder.writeFile("file");
        folder.writeFile("file " + std::to_string(i));
    }
    const Outcome outcome = runProgram({ORMEK_EXAMPLE_DIR "/list_folder", folder.path()});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "");
    std::vector<std::string> remarks;
    for (const std::string& line : linesOf(outcome.out)) {
        if (line.starts_with("--")) {
            remarks.push_back(line);
        }
    }
    EXPECT_THAT(remarks, ElementsAre("-- 50 of 61 entries, loaded", "-- 11 of 61 entries, loaded",
                                     "-- 50 of 61 entries, from memory",
                                     "-- 11 of 61 entries, from memory"));
    EXPECT_EQ(linesOf(outcome.out).size(), 2U * 61 + remarks.size());
}

TEST(ListFolderExample, SaysWhatIsWrong) {
    const Outcome outcome = runProgram({ORMEK_EXAMPLE_DIR "/list_folder", "/none/such"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(linesOf(outcome.err), ElementsAre(StartsWith("list_folder: ")));
}

TEST(ListFolderExample, IsShort) {
    EXPECT_LT(linesOf(source("examples/list_folder.cpp")).size(), 80U);
}

TEST(FirstListingExample, IsTheOneOfTheReadme) {
    const std::string example = source("examples/first_listing.cpp");
    EXPECT_LE(linesOf(example).size(), 20U);
    EXPECT_THAT(source("README.md"), HasSubstr("```cpp\n" + example + "```\n"));
}

TEST(FirstListingExample, SaysWhereTheListingsComeFrom) {
    const Outcome outcome = runProgram({ORMEK_EXAMPLE_DIR "/first_listing"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.out, HasSubstr("(loaded)\n"));
    EXPECT_TRUE(outcome.out.ends_with("(from memory)\n"));
}

TEST(ActOfflineExample, ShowsWhatIsDoneBeforeTheServiceKnowsIt) {
    const TemporaryFolder temporary;
    const Outcome outcome =
        runProgram({ORMEK_EXAMPLE_DIR "/act_offline"}, "", {{"TMPDIR", temporary.path()}});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(linesOf(outcome.out),
                ElementsAre("-- 4 actions wait, /letters/letter shows already",
                            "-- the service knows /letters by now",
                            "-- the service knows /letters/letter by now",
                            "-- one was refused: cannot make the folder 'letters': File exists"));
    EXPECT_TRUE(std::filesystem::is_empty(temporary.path()));
    EXPECT_LT(linesOf(source("examples/act_offline.cpp")).size(), 80U);
}

/// The demonstration, with the program of this build.
class DemoTest : public testing::Test {
  protected:
    Outcome run(const Arguments& arguments = {}) const {
        Arguments command{ORMEK_SOURCE_DIR "/script/demo"};
        command.insert(command.end(), arguments.begin(), arguments.end());
        return runProgram(command, "",
                          {{"ORMEK_PROGRAM", ORMEK_PROGRAM}, {"TMPDIR", temporary.path()}});
    }

    /// Somebody else changes the tree in the middle of the session, before a step of the script.
    Outcome runTampered(const std::string& change, const std::string& step) const {
        std::string script = source("script/demo");
        const std::size_t place = script.find(step);
        EXPECT_NE(place, std::string::npos) << step;
        script.insert(place, change + "\n");
        const TemporaryFolder copy;
        copy.makeFolder("script");
        const std::string tampered = copy.writeFile("script/demo", script);
        return runProgram({"bash", tampered}, "",
                          {{"ORMEK_PROGRAM", ORMEK_PROGRAM}, {"TMPDIR", temporary.path()}});
    }

    void expectNothingButTheTrace(const Outcome& outcome) const {
        std::vector<std::string> left;
        for (const auto& entry : std::filesystem::directory_iterator(temporary.path())) {
            left.push_back(entry.path());
        }
        ASSERT_EQ(left.size(), 1U);
        EXPECT_TRUE(outcome.out.ends_with(": " + left[0] + "\n")) << outcome.out;
        EXPECT_THAT(contentOf(left[0]), HasSubstr("Ormek::DirectoryCache::"));
    }

    TemporaryFolder temporary;
};

TEST_F(DemoTest, ShowsASessionOnATreeOfItsOwn) {
    const Outcome outcome = run();
    EXPECT_EQ(outcome.status, 0) << outcome.out << outcome.err;
    std::vector<std::string> said;
    for (const std::string& line : linesOf(outcome.out)) {
        if (line.find(" entries, ") != std::string::npos) {
            said.push_back(line);
        }
    }
    ASSERT_GE(said.size(), 5U) << outcome.out;
    EXPECT_THAT(said[0], HasSubstr(" entries, loaded, "));
    EXPECT_THAT(said[1], HasSubstr(" entries, from memory, "));
    EXPECT_THAT(said[2], HasSubstr("5 of 3000 entries, loaded, "));
    EXPECT_THAT(said[3], HasSubstr("5 of 3000 entries, loaded, "));
    EXPECT_THAT(said[4], HasSubstr("5 of 3000 entries, from memory, "));
    EXPECT_THAT(outcome.out, testing::Not(HasSubstr("ormek: ")));
    expectNothingButTheTrace(outcome);
}

TEST_F(DemoTest, ShowsActionsAndComparesWhatTheyLeave) {
    const Outcome outcome = run();
    EXPECT_EQ(outcome.status, 0) << outcome.out << outcome.err;
    EXPECT_EQ(outcome.err, "");
    const auto lines = linesOf(outcome.out);
    for (const char* line :
         {"[0-9]+: renaming 'with spaces.txt' to 'spaces.txt'",
          "[0-9]+: making the folder '/letters'", "[0-9]+: putting '.*' to '/letters/letter'",
          "Dear reader,", "13 bytes of 'letter' are in '.*'",
          "[0-9]+: failed: .*; '-leading dash.txt' is 'it's quoted.txt' again",
          "[0-9]+: failed: .*; 'letters' is back in '/'",
          "event: changed file .*; name 'letter' -> .*",
          "[0-9]+: making the folder '/journey', waits for the service",
          "[0-9]+: removing 'IMG_1.jpg', waits for the service",
          "[0-9]+: cancelled; 'IMG_1.jpg' is back in '/photos'",
          "The folder on disk is what the session says and prints: 301[0-9] entries in 5 folders, "
          "the same by name, kind, size and content\\."}) {
        EXPECT_THAT(lines, testing::Contains(MatchesRegex(line)));
    }
    EXPECT_THAT(outcome.out, testing::Not(HasSubstr(": lost: ")));
}

TEST_F(DemoTest, FindsOutWhenTheFolderIsNotWhatItsListingSays) {
    const std::string beforeTheListings = "    for folder in ";
    for (const char* change : {"rm \"$tree/trip/diary\"", "echo more >>\"$tree/trip/diary\"",
                               "rm \"$tree/trip/diary\"; mkdir \"$tree/trip/diary\""}) {
        const Outcome outcome = runTampered(change, beforeTheListings);
        EXPECT_EQ(outcome.status, 1) << change;
        EXPECT_EQ(outcome.err, "demo: $'/trip/' is not what its listing says\n") << change;
    }
}

TEST_F(DemoTest, FindsOutWhenAFileIsNotWhatTheSessionPrinted) {
    const Outcome outcome =
        runTampered("echo 'DEAR READER,' >\"$tree/trip/diary\"", "    diff -r -- ");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err,
                testing::EndsWith("demo: the files are not what the session printed\n"));
}

TEST_F(DemoTest, ShowsASessionOnAnyFolder) {
    const TemporaryFolder folder;
    const std::filesystem::path awkward = folder.makeFolder("-a 'folder'\n");
    for (int i = 0; i < 30; ++i) {
        folder.writeFile(awkward / std::to_string(i));
    }
    const Outcome outcome = run({awkward});
    EXPECT_EQ(outcome.status, 0) << outcome.out << outcome.err;
    EXPECT_THAT(outcome.out, HasSubstr("10 of 30 entries, loaded, "));
    EXPECT_THAT(outcome.out, HasSubstr("10 of 30 entries, from memory, "));
    EXPECT_THAT(outcome.out, HasSubstr("20 of 30 entries, from memory, "));
    EXPECT_THAT(outcome.out, HasSubstr("queries answered from memory"));
    EXPECT_EQ(namesIn(awkward).size(), 30U) << "it is only looked at";
    expectNothingButTheTrace(outcome);
}

}  // namespace
}  // namespace Ormek::Testing
