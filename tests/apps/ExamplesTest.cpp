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

/// The demonstration, with the program of this build.
class DemoTest : public testing::Test {
  protected:
    Outcome run(const Arguments& arguments = {}) const {
        Arguments command{ORMEK_SOURCE_DIR "/script/demo"};
        command.insert(command.end(), arguments.begin(), arguments.end());
        return runProgram(command, "",
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
    expectNothingButTheTrace(outcome);
}

}  // namespace
}  // namespace Ormek::Testing
