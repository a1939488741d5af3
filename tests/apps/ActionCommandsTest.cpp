#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <ostream>

#include "tests/apps/Files.h"
#include "tests/apps/Program.h"
#include "tests/support/TemporaryFolder.h"

namespace Ormek::Testing {
namespace {

using namespace std::string_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;
using testing::UnorderedElementsAreArray;

/// The program on a folder, with files of this machine in another one.
class ActionCommandsTest : public testing::Test {
  protected:
    Outcome browse(const std::string& commands, const Arguments& options = {}) const {
        return Testing::browse(folder.path(), commands, options);
    }
    bool hasAttributes() const {
        const std::string probe = local.writeFile("attributes");
        return setxattr(probe.c_str(), "user.probe", "", 0, 0) == 0;
    }
    static std::string attribute(const std::string& file, const char* name) {
        std::string value(100, '\0');
        const ssize_t size = getxattr(file.c_str(), name, value.data(), value.size());
        return size < 0 ? "none" : value.substr(0, static_cast<std::size_t>(size));
    }

    TemporaryFolder folder;
    TemporaryFolder local;
};

// --- rename, mv, rm, mkdir -----------------------------------------------------------------

TEST_F(ActionCommandsTest, RenameSaysWhatItDoesAndThatItIsDone) {
    folder.writeFile("a", "text");
    const Outcome outcome = browse("rename a b\nwait\n");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "");
    EXPECT_THAT(actionLinesOf(outcome.err), ElementsAre("1: renaming 'a' to 'b'", "1: done"));
    EXPECT_THAT(namesIn(folder.path()), ElementsAre("b"));
    EXPECT_EQ(contentOf(folder / "b"), "text");
}

TEST_F(ActionCommandsTest, ARefusedRenameSaysThatTheNameIsTheOldOneAgain) {
    folder.writeFile("a", "of a");
    folder.writeFile("b", "of b");
    const Outcome outcome = browse("rename a b\nwait\nls -1\n");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(actionLinesOf(outcome.err),
                ElementsAre("1: renaming 'a' to 'b'",
                            "1: failed: cannot move 'a' to 'b': File exists; 'b' is 'a' again",
                            StartsWith("2 of 2 entries")));
    EXPECT_EQ(outcome.out, "a\nb\n");
    EXPECT_EQ(contentOf(folder / "b"), "of b");
}

TEST_F(ActionCommandsTest, ARefusedRenameSaysWhatItIsCalledByNow) {
    folder.writeFile("a", "of a");
    folder.writeFile("b", "of b");
    const Outcome outcome = browse("info a\noffline\nrename a b\nrename b c\nonline\nwait\n");
    EXPECT_EQ(outcome.status, 1);
    const auto lines = actionLinesOf(outcome.err);
    EXPECT_THAT(lines, Contains(MatchesRegex("1: failed: .*; it is 'c' now")));
    EXPECT_THAT(lines, Contains("2: done"));
    EXPECT_EQ(contentOf(folder / "b"), "of b");
    EXPECT_EQ(contentOf(folder / "c"), "of a");
}

TEST_F(ActionCommandsTest, MvMovesUnderTheSameName) {
    folder.writeFile("a", "text");
    folder.makeFolder("sub/deep");
    const Outcome outcome =
        browse("mv a sub/deep\nwait\nls -1\nls -1 sub/deep\nmv sub/deep /\nwait\n");
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(outcome.out, "sub\na\n");
    const auto lines = actionLinesOf(outcome.err);
    EXPECT_THAT(lines, Contains("1: moving 'a' to '/sub/deep'"));
    EXPECT_THAT(lines, Contains("1: done"));
    EXPECT_THAT(lines, Contains("2: moving 'deep' to '/'"));
    EXPECT_THAT(namesIn(folder.path()), ElementsAre("deep", "sub"));
    EXPECT_EQ(contentOf(folder / "deep/a"), "text");
}

TEST_F(ActionCommandsTest, ARefusedMoveSaysWhereItIsAgain) {
    folder.writeFile("a", "outside");
    folder.makeFolder("sub");
    folder.writeFile("sub/a", "inside");
    const Outcome outcome = browse("mv a sub\nwait\nls -1\nls -1 sub\n");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(actionLinesOf(outcome.err)[1],
                "1: failed: cannot move 'a' to 'sub/a': File exists; 'a' is in '/' again");
    EXPECT_EQ(outcome.out, "sub\na\na\n");
    EXPECT_EQ(contentOf(folder / "sub/a"), "inside");
}

TEST_F(ActionCommandsTest, ARefusedMoveSaysWhereItIsByNow) {
    folder.writeFile("a", "outside");
    folder.makeFolder("sub");
    folder.writeFile("sub/a", "inside");
    folder.makeFolder("other");
    const Outcome outcome =
        browse("info a\ninfo sub\ninfo other\noffline\nmv a sub\nmv sub/a other\nonline\nwait\n");
    EXPECT_EQ(outcome.status, 1);
    const auto lines = actionLinesOf(outcome.err);
    EXPECT_THAT(lines, Contains(MatchesRegex("1: failed: .*; 'a' is in '/other' now")));
    EXPECT_THAT(lines, Contains("2: done"));
    EXPECT_EQ(contentOf(folder / "sub/a"), "inside");
    EXPECT_EQ(contentOf(folder / "other/a"), "outside");
}

TEST_F(ActionCommandsTest, RmRemovesFilesAndEmptyFolders) {
    folder.writeFile("a");
    folder.makeFolder("empty");
    const Outcome outcome = browse("rm a\nwait\nrm empty\nwait\nls\n");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(actionLinesOf(outcome.err),
                ElementsAre("1: removing 'a'", "1: done", "2: removing 'empty'", "2: done",
                            StartsWith("0 of 0 entries")));
    EXPECT_THAT(namesIn(folder.path()), IsEmpty());
}

TEST_F(ActionCommandsTest, ARefusedRemovalSaysThatItIsBack) {
    folder.makeFolder("full/inside");
    const Outcome outcome = browse("rm full\nwait\nls -1\n");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(
        actionLinesOf(outcome.err)[1],
        "1: failed: cannot remove the folder 'full': it is not empty; 'full' is back in '/'");
    EXPECT_EQ(outcome.out, "full\n");
}

TEST_F(ActionCommandsTest, MkdirMakesFoldersToMakeThingsIn) {
    const Outcome outcome =
        browse("mkdir a\nmkdir a/b/\ncd a\nmkdir b/c\nmkdir /d\nwait\nls -1 b\n");
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    for (const char* path : {"/a", "/a/b", "/a/b/c", "/d"}) {
        EXPECT_THAT(linesOf(outcome.err),
                    Contains(MatchesRegex("[0-9]+: making the folder '"s + path + "'")));
    }
    EXPECT_EQ(outcome.out, "c\n");
    EXPECT_TRUE(std::filesystem::is_directory(folder / "a/b/c"));
    EXPECT_TRUE(std::filesystem::is_directory(folder / "d"));
}

TEST_F(ActionCommandsTest, ARefusedFolderIsGoneAgainAndSoIsWhatWasPutIntoIt) {
    folder.writeFile("a");
    const std::string file = local.writeFile("file", "text");
    const Outcome outcome = browse("offline\nmkdir a\nput " + file + " a/b\nonline\nwait\nls -1\n");
    EXPECT_EQ(outcome.status, 1);
    const auto lines = actionLinesOf(outcome.err);
    ASSERT_THAT(lines, SizeIs(7)) << outcome.err;
    EXPECT_EQ(lines[1], "1: making the folder '/a'");
    EXPECT_EQ(lines[4], "1: failed: cannot make the folder 'a': File exists; '/a' is gone");
    EXPECT_EQ(lines[5],
              "2: failed: what this needs could not be made: cannot make the folder 'a': File "
              "exists; '/a/b' is gone");
    EXPECT_EQ(outcome.out, "a\n");
}

TEST_F(ActionCommandsTest, WhatWasDoneToSomethingThatWasNeverMadeFailsWithIt) {
    folder.makeFolder("sub");
    folder.writeFile("taken", "old");
    const std::string file = local.writeFile("file", "new");
    const Outcome outcome = browse("info sub\noffline\nput " + file +
                                   " taken\nrename taken a\nset a k v\nmv a sub\nrm sub/a\n" +
                                   "online\nwait\nls -1\nls sub\n");
    EXPECT_EQ(outcome.status, 1);
    const auto lines = actionLinesOf(outcome.err);
    EXPECT_THAT(lines, Contains(MatchesRegex("1: failed: .*; '/taken' is gone")));
    EXPECT_THAT(lines, Contains(MatchesRegex("2: failed: .*; 'taken' is gone")));
    EXPECT_THAT(lines, Contains(MatchesRegex("3: failed: .*; 'a' is gone")));
    EXPECT_THAT(lines, Contains(MatchesRegex("4: failed: .*; 'a' is gone")));
    EXPECT_THAT(lines, Contains(MatchesRegex("5: failed: .*; 'a' is gone all the same")));
    EXPECT_TRUE(outcome.out.ends_with("sub\ntaken\n")) << outcome.out;
    EXPECT_EQ(contentOf(folder / "taken"), "old");
}

// --- Refused at once -----------------------------------------------------------------------

struct Refusal {
    const char* line;
    const char* complaint;
};

void PrintTo(const Refusal& refusal, std::ostream* out) { *out << refusal.line; }

class RefusedAtOnce : public testing::TestWithParam<Refusal> {};

TEST_P(RefusedAtOnce, IsOneLineAndTheSessionGoesOn) {
    const TemporaryFolder folder;
    folder.writeFile("file", "text");
    folder.writeFile(folder.makeFolder("sub/deep") / "inside");
    const Outcome outcome = browse(folder.path(), GetParam().line + "\nwait\npwd\n"s);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "/\n");
    EXPECT_THAT(linesOf(outcome.err), ElementsAre(HasSubstr(GetParam().complaint)));
    EXPECT_THAT(outcome.err, StartsWith("ormek: "));
    EXPECT_THAT(namesIn(folder.path()), ElementsAre("file", "sub"));
}

INSTANTIATE_TEST_SUITE_P(
    Each, RefusedAtOnce,
    testing::Values(
        Refusal{"rename file", "rename: an argument is missing"},
        Refusal{"rename file a b", "one argument too many: 'b'"}, Refusal{"rename none a", "none"},
        Refusal{"rename file a/b", "slash"}, Refusal{"rename file ''", "needs a name"},
        Refusal{"rename file ..", "cannot be an entry's name"}, Refusal{"rename / a", "root"},
        Refusal{"mv file", "mv: an argument is missing"}, Refusal{"mv file none", "none"},
        Refusal{"mv file file", "is not a folder"}, Refusal{"mv file .", "in that folder already"},
        Refusal{"mv sub sub/deep", "into itself"}, Refusal{"mv / sub", "root"},
        Refusal{"rm", "rm: an argument is missing"}, Refusal{"rm none", "none"},
        Refusal{"rm /", "root"}, Refusal{"mkdir none/a", "none"},
        Refusal{"mkdir /", "needs a name"}, Refusal{"mkdir file/a", "'file' is not a folder"},
        Refusal{"mkdir sub/..", "\"..\""}, Refusal{"put", "put: an argument is missing"},
        Refusal{"put /none/such", "'/none/such': No such file or directory"},
        Refusal{"put /", "'/' is not a regular file"},
        Refusal{"put /dev/null", "'/dev/null' is not a regular file"},
        Refusal{"put /proc/self/status none/a", "none"},
        Refusal{"put /proc/self/status none/", "there is no folder 'none/'"},
        Refusal{"put /proc/self/status file/a", "'file' is not a folder"},
        Refusal{"get file", "get: an argument is missing"}, Refusal{"get none /tmp/a", "none"},
        Refusal{"get sub /none/a", "cannot open its folder"},
        Refusal{"get file /none/a", "'/none/a': cannot open its folder: No such file"},
        Refusal{"get file /", "not a name"}, Refusal{"get file ''", "not a name"},
        Refusal{"get file /tmp", "'/tmp' exists already"}, Refusal{"cat", "argument is missing"},
        Refusal{"cat none", "none"}, Refusal{"cat sub", "is a folder"}, Refusal{"cat /", "root"},
        Refusal{"set file key", "set: an argument is missing"}, Refusal{"set / key value", "root"},
        Refusal{"set none key value", "none"}, Refusal{"session", "argument is missing"},
        Refusal{"session sub", "sessions are for documents"}, Refusal{"session none", "none"},
        Refusal{"session --release file", "no session was opened on 'file'"},
        Refusal{"events", "argument is missing"}, Refusal{"events maybe", "'maybe' is neither on"},
        Refusal{"offline now", "'now'"}, Refusal{"online now", "'now'"}, Refusal{"parked x", "'x'"},
        Refusal{"cancel", "argument is missing"}, Refusal{"cancel x", "'x' is not a whole number"},
        Refusal{"cancel -- -1", "'-1' is not"},
        Refusal{"cancel 99999999999999999999", "is too large"},
        Refusal{"cancel 7", "7 is over, under way, or was never begun"}, Refusal{"wait 1", "'1'"}));

// --- put, get, cat -------------------------------------------------------------------------

class ContentOfSize : public ActionCommandsTest, public testing::WithParamInterface<std::size_t> {};

TEST_P(ContentOfSize, GoesThereAndComesBackAsItIs) {
    const std::string bytes = randomBytes(GetParam());
    const std::string file = local.writeFile("original", bytes);
    const std::string copy = local / "copy";
    const Outcome outcome =
        browse("put " + file + " stored\nget stored " + copy + "\ncat stored\n");
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_TRUE(contentOf(folder / "stored") == bytes);
    EXPECT_TRUE(contentOf(copy) == bytes);
    EXPECT_TRUE(outcome.out == bytes);
    EXPECT_THAT(linesOf(outcome.err), Contains(std::to_string(bytes.size()) +
                                               " bytes of 'stored' are in '" + copy + "'"));
}

INSTANTIATE_TEST_SUITE_P(Sizes, ContentOfSize,
                         testing::Values(0, 1, 4096, (1 << 20) - 1, 1 << 20, (1 << 20) + 1,
                                         5 * (1 << 20) + 12345));

TEST_F(ActionCommandsTest, PutTakesItsOwnNameInAFolderOrTheOneThatItIsGiven) {
    const std::string file = local.writeFile("file", "text");
    folder.makeFolder("sub/deep");
    const Outcome outcome =
        browse("put " + file + "\nput " + file + " sub\nput " + file + " sub/deep/\nput " + file +
               " /sub/other\ncd sub\nput " + file + " third\nwait\n");
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    for (const char* path : {"/file", "/sub/file", "/sub/deep/file", "/sub/other", "/sub/third"}) {
        EXPECT_EQ(contentOf(folder.path().string() + path), "text") << path;
        EXPECT_THAT(linesOf(outcome.err),
                    Contains(MatchesRegex("[0-9]+: putting '" + file + "' to '" + path + "'")));
    }
}

TEST_F(ActionCommandsTest, PutShowsAtOnceAndNeverOverwrites) {
    const std::string file = local.writeFile("file", "new");
    folder.writeFile("taken", "old");
    const Outcome outcome = browse("ls -1\nput " + file + " taken\nwait\nls -1\n");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(linesOf(outcome.err),
                Contains(MatchesRegex(
                    "[0-9]+: failed: cannot create 'taken': File exists; '/taken' is gone")));
    EXPECT_EQ(outcome.out, "taken\ntaken\n");
    EXPECT_EQ(contentOf(folder / "taken"), "old");
}

TEST_F(ActionCommandsTest, PutRefusesWhatCannotBeRead) {
    const std::string pipe = local / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const std::string secret = local.writeFile("secret", "text");
    ASSERT_EQ(chmod(secret.c_str(), 0), 0);
    const Outcome outcome = browse("put " + pipe + "\nput " + local.path().string() + "\n");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(linesOf(outcome.err),
                ElementsAre("ormek: put: '" + pipe + "' is not a regular file",
                            "ormek: put: '" + local.path().string() + "' is not a regular file"));
    if (geteuid() != 0) {
        EXPECT_THAT(browse("put " + secret + "\n").err, HasSubstr("Permission denied"));
    }
    EXPECT_THAT(namesIn(folder.path()), IsEmpty());
}

TEST_F(ActionCommandsTest, GetNeverOverwrites) {
    folder.writeFile("a", "new");
    const std::string file = local.writeFile("file", "old");
    const std::string link = local / "link";
    ASSERT_EQ(symlink("/none/such", link.c_str()), 0);
    const Outcome outcome =
        browse("get a " + file + "\nget a " + link + "\nget a " + local.path().string() + "\n");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(linesOf(outcome.err),
                ElementsAre("ormek: get: '" + file + "' exists already",
                            "ormek: get: '" + link + "' exists already",
                            "ormek: get: '" + local.path().string() + "' exists already"));
    EXPECT_EQ(contentOf(file), "old");
    EXPECT_THAT(namesIn(local.path()), ElementsAre("file", "link"));
}

TEST_F(ActionCommandsTest, AGetThatFailsLeavesNothing) {
    folder.makeFolder("sub");
    const Outcome outcome = browse("get sub " + (local / "a").string() + "\noffline\nget sub " +
                                   (local / "b").string() + "\n");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(namesIn(local.path()), IsEmpty());
}

TEST_F(ActionCommandsTest, CatPrintsWhatIsBeingPutOnceItIsThere) {
    const std::string file = local.writeFile("file", "text\n");
    const Outcome outcome =
        browse("mkdir a\nput " + file + " a/b\ncat a/b\nrename a/b c\ncat a/c\n");
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(outcome.out, "text\ntext\n");
}

TEST_F(ActionCommandsTest, AnyNameCanBeActedOn) {
    const TemporaryFolder copies;
    std::string commands = "mkdir one\nmkdir two\ncd one\n";
    std::string reading;
    std::string moving;
    const auto newName = [](const std::string& name) { return "\n" + name.substr(0, 200); };
    for (const std::string& name : AwkwardNames) {
        commands += "put " + word(local.writeFile(name, "content of " + name)) + '\n';
        reading += "get ./" + word(name) + " " + word(copies / name) + '\n';
        moving += "mv ./" + word(name) + " ../two\n";
        moving += "rename /two/" + word(name) + " " + word(newName(name)) + "\n";
    }
    const Outcome outcome = browse(commands + "wait\nls -0 --all\n" + reading + moving);
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_THAT(splitAtNuls(outcome.out), UnorderedElementsAreArray(AwkwardNames));
    EXPECT_THAT(namesIn(folder / "one"), IsEmpty());
    EXPECT_THAT(namesIn(folder / "two"), SizeIs(AwkwardNames.size()));
    for (const std::string& name : AwkwardNames) {
        EXPECT_EQ(contentOf(copies / name), "content of " + name);
        EXPECT_EQ(contentOf(folder / "two" / newName(name)), "content of " + name);
    }
    // An outcome for each that was begun, and all of it on lines of their own.
    const std::size_t begun = 2 + 3 * AwkwardNames.size();
    EXPECT_THAT(linesOf(outcome.err), SizeIs(2 * begun + AwkwardNames.size() + 1));
}

// --- set, session --------------------------------------------------------------------------

TEST_F(ActionCommandsTest, SetAddsOneKeyValueToTheOthers) {
    if (!hasAttributes()) {
        GTEST_SKIP() << "no extended attributes here";
    }
    const std::string file = folder.writeFile("song");
    ASSERT_EQ(setxattr(file.c_str(), "user.artist", "Nobody", 6, 0), 0);
    const Outcome outcome =
        browse("set song mood $'two\\nlines'\nset song artist Somebody\nwait\ninfo song\n");
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_THAT(linesOf(outcome.err),
                Contains(MatchesRegex("[0-9]+: setting 'mood' of 'song' to 'two\\\\nlines'")));
    EXPECT_EQ(attribute(file, "user.artist"), "Somebody");
    EXPECT_EQ(attribute(file, "user.mood"), "two\nlines");
    EXPECT_THAT(linesOf(outcome.out), Contains(MatchesRegex("key value +artist=Somebody")));
}

TEST_F(ActionCommandsTest, SetLeavesWhatAnotherProgramHasWrittenMeanwhile) {
    if (!hasAttributes()) {
        GTEST_SKIP() << "no extended attributes here";
    }
    const std::string file = folder.writeFile("f");
    RunningProgram program({ORMEK_PROGRAM, "browse", folder.path()}, RunningProgram::On::Pipes);
    program.type("ls\n");
    program.readUntil("1 of 1");
    ASSERT_EQ(setxattr(file.c_str(), "user.elsewhere", "1", 1, 0), 0);
    program.type("set f new 2\nwait\n");
    program.readUntil(": done");
    EXPECT_EQ(attribute(file, "user.elsewhere"), "1");
    EXPECT_EQ(attribute(file, "user.new"), "2");
}

TEST_F(ActionCommandsTest, SetGivesAFolderAKeyValueBesideItsOthers) {
    if (!hasAttributes()) {
        GTEST_SKIP() << "no extended attributes here";
    }
    const std::string sub = folder.makeFolder("sub");
    ASSERT_EQ(setxattr(sub.c_str(), "user.artist", "Nobody", 6, 0), 0);
    const Outcome outcome = browse("set sub mood good\nwait\ntags sub\ntags\n");
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(attribute(sub, "user.artist"), "Nobody");
    EXPECT_EQ(attribute(sub, "user.mood"), "good");
    EXPECT_EQ(outcome.out, "sub  artist=Nobody  mood=good\n");
}

TEST_F(ActionCommandsTest, TagsShowWhatWasDoneSinceTheyWereListed) {
    if (!hasAttributes()) {
        GTEST_SKIP() << "no extended attributes here";
    }
    const std::string file = folder.writeFile("f");
    folder.makeFolder("sub");
    ASSERT_EQ(setxattr(file.c_str(), "user.k", "1", 1, 0), 0);
    const Outcome outcome = browse(
        "tags\nset f k 2\nwait\ntags\nrename f g\nwait\ntags\nmv g sub\nwait\ntags\n"
        "cd sub\ntags\nrm g\nwait\ntags\n");
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(outcome.out, "f  k=1\nf  k=2\ng  k=2\ng  k=2\n");
    EXPECT_THAT(linesOf(outcome.err), Not(Contains(HasSubstr("from memory"))));
}

TEST_F(ActionCommandsTest, ARefusedSetSaysWhatTheKeyIsAgain) {
    if (!hasAttributes()) {
        GTEST_SKIP() << "no extended attributes here";
    }
    const std::string file = folder.writeFile("song");
    ASSERT_EQ(setxattr(file.c_str(), "user.artist", "Nobody", 6, 0), 0);
    const std::string tooLong(70000, 'x');
    const Outcome outcome = browse("set song artist " + tooLong + "\nwait\nset song " +
                                   std::string(300, 'k') + " v\nwait\ninfo song\n");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(linesOf(outcome.err)[1],
                MatchesRegex("[0-9]+: failed: .*; 'artist' of 'song' is 'Nobody'"));
    EXPECT_THAT(linesOf(outcome.err)[3], MatchesRegex("[0-9]+: failed: .*; 'song' has no 'k+'"));
    EXPECT_THAT(linesOf(outcome.out), Contains(MatchesRegex("key value +artist=Nobody")));
    EXPECT_EQ(attribute(file, "user.artist"), "Nobody");
}

TEST_F(ActionCommandsTest, ARefusedSetOfAFolderSaysThatNothingHasChanged) {
    folder.makeFolder("sub");
    const Outcome outcome = browse("set sub " + std::string(300, 'k') + " v\nwait\n");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(linesOf(outcome.err)[1],
                MatchesRegex("[0-9]+: failed: .*; 'k+' of 'sub' is what it was"));
}

TEST_F(ActionCommandsTest, ASessionKeepsOthersAwayUntilItIsReleased) {
    folder.writeFile("a");
    const Outcome outcome = browse(
        "session a\nwait\nsession a\nwait\nrename a b\nsession --release b\nsession --release b\n"
        "session b\nsession --release b\n");
    EXPECT_EQ(outcome.status, 1);
    const auto lines = actionLinesOf(outcome.err);
    EXPECT_THAT(lines, Contains("1: opening a session on 'a'"));
    EXPECT_THAT(lines, Contains("1: done"));
    EXPECT_THAT(lines, Contains(MatchesRegex("2: failed: .*session.*")));
    EXPECT_THAT(lines, Contains("ormek: session: no session was opened on 'b'"));
    EXPECT_THAT(lines, Contains("4: done"));
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "the session on 'b' is released"), 2);
}

// --- offline, parked, online ---------------------------------------------------------------

TEST_F(ActionCommandsTest, AnOfflineStretchArrivesInOrder) {
    folder.writeFile("a", "of a");
    const std::string file = local.writeFile("file", "of file");
    const Outcome outcome =
        browse("ls\noffline\nmkdir trip\nput " + file +
               " trip\nrename trip journey\nmv a journey\n"
               "rename journey/file film\nls -1\nls -1 journey\nparked\nonline\nwait\nparked\n"
               "ls -1 journey\n");
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    const auto out = linesOf(outcome.out);
    ASSERT_THAT(out, SizeIs(1 + 1 + 2 + 5 + 2)) << outcome.out;
    EXPECT_EQ(out[1], "journey");
    EXPECT_EQ(out[2], "a");
    EXPECT_EQ(out[3], "film");
    EXPECT_THAT(out[4], MatchesRegex("[0-9]+: making the folder '/trip', waits for the service"));
    EXPECT_THAT(out[5], MatchesRegex("[0-9]+: putting '.*' to '/trip/file', waits for the service "
                                     "and for '/journey' to be made"));
    EXPECT_THAT(out[7], MatchesRegex("[0-9]+: moving 'a' to '/journey', waits for the service and "
                                     "for an earlier action and for '/journey' to be made"));
    EXPECT_EQ(out[9], "a");
    EXPECT_EQ(out[10], "film");
    EXPECT_EQ(contentOf(folder / "journey/film"), "of file");
    EXPECT_EQ(contentOf(folder / "journey/a"), "of a");
    EXPECT_THAT(namesIn(folder.path()), ElementsAre("journey"));
    EXPECT_THAT(linesOf(outcome.err), Contains("the service is off"));
    EXPECT_THAT(linesOf(outcome.err), Contains("the service is on"));
}

TEST_F(ActionCommandsTest, OfflineAnswersWhatIsHeldAndNothingElse) {
    folder.writeFile("a", "text");
    folder.makeFolder("sub");
    const Outcome outcome =
        browse("ls -1\noffline\nls -1\nls sub\ncat a\nget a " + (local / "a").string() +
               "\nparked\nsession a\nsession --release a\n");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "sub\na\nsub\na\n");
    const auto lines = actionLinesOf(outcome.err);
    EXPECT_THAT(lines, Contains("ormek: ls: the service is switched off"));
    EXPECT_THAT(lines, Contains("ormek: cat: the service is off"));
    EXPECT_THAT(lines, Contains("ormek: get: the service is off"));
    EXPECT_THAT(lines, Contains("ormek: session: the service is off"));
    EXPECT_THAT(lines, Contains("1: lost: opening a session on 'a', waits for the service"));
    EXPECT_THAT(namesIn(local.path()), IsEmpty());
}

// --- The end -------------------------------------------------------------------------------

TEST_F(ActionCommandsTest, TheEndOfInputWaitsForWhatIsUnderWay) {
    const std::string bytes = randomBytes(8 << 20);
    const std::string file = local.writeFile("file", bytes);
    for (const char* end : {"", "quit\n", "quit\nnonsense\n"}) {
        const TemporaryFolder target;
        const Outcome outcome =
            Testing::browse(target.path(), "mkdir a\nput " + file + " a/b\nrename a/b c\n"s + end);
        EXPECT_EQ(outcome.status, 0) << outcome.err;
        EXPECT_TRUE(contentOf(target / "a/c") == bytes);
        const auto lines = actionLinesOf(outcome.err);
        EXPECT_THAT(lines, SizeIs(6));
        for (const char* line : {"1: done", "2: done", "3: done"}) {
            EXPECT_THAT(lines, Contains(line));
        }
    }
}

TEST_F(ActionCommandsTest, AFailureAtTheEndCounts) {
    folder.writeFile("a");
    folder.writeFile("b");
    const Outcome outcome = browse("rename a b\n");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(actionLinesOf(outcome.err)[1], HasSubstr("'b' is 'a' again"));
}

TEST_F(ActionCommandsTest, WhatIsParkedAtTheEndIsSaidToBeLost) {
    folder.writeFile("a");
    const std::string file = local.writeFile("file", "text");
    for (const char* end : {"", "quit\n"}) {
        const Outcome outcome =
            browse("info a\noffline\nrename a b\nmkdir new\nput " + file + " new\n" + end);
        EXPECT_EQ(outcome.status, 1);
        const auto lines = actionLinesOf(outcome.err);
        ASSERT_THAT(lines, SizeIs(7));
        EXPECT_EQ(lines[4], "1: lost: renaming 'a' to 'b', waits for the service");
        EXPECT_EQ(lines[5], "2: lost: making the folder '/new', waits for the service");
        EXPECT_EQ(lines[6],
                  "3: lost: putting '" + file +
                      "' to '/new/file', waits for the service and for '/new' to be made");
        EXPECT_THAT(namesIn(folder.path()), ElementsAre("a"));
    }
}

// --- cancel --------------------------------------------------------------------------------

/// The number of the operation that a line ending in this text is about.
std::string operationOf(const std::string& text, const std::string& line) {
    for (const std::string& said : linesOf(text)) {
        if (said.ends_with(line)) {
            return said.substr(0, said.find(':'));
        }
    }
    return "none";
}

TEST_F(ActionCommandsTest, CancelPutsBackAndIsNoFailure) {
    folder.writeFile("a");
    const std::string before = "info a\noffline\nrename a b\n";
    const std::string number = operationOf(browse(before).err, ": renaming 'a' to 'b'");
    const Outcome outcome =
        browse(before + "cancel " + number + "\nparked\nls -1 a\nonline\nwait\n");
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_THAT(actionLinesOf(outcome.err)[2], "1: cancelled; 'b' is 'a' again");
    EXPECT_TRUE(outcome.out.ends_with("\na\n")) << outcome.out;
    EXPECT_THAT(namesIn(folder.path()), ElementsAre("a"));
}

TEST_F(ActionCommandsTest, WhatNeedsACancelledCreationFailsWithIt) {
    const std::string file = local.writeFile("file");
    const std::string before = "offline\nmkdir new\nput " + file + " new\n";
    const std::string number = operationOf(browse(before).err, ": making the folder '/new'");
    const Outcome outcome =
        browse(before + "cancel " + number + "\nonline\nwait\ncancel " + number + "\n");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(
        actionLinesOf(outcome.err),
        ElementsAre("the service is off", "1: making the folder '/new'", StartsWith("2: putting"),
                    "1: cancelled; '/new' is gone",
                    MatchesRegex("2: failed: what this needs could not be made: .*; "
                                 "'/new/file' is gone"),
                    "the service is on",
                    "ormek: cancel: " + number + " is over, under way, or was never begun"));
    EXPECT_THAT(namesIn(folder.path()), IsEmpty());
}

// --- events --------------------------------------------------------------------------------

TEST_F(ActionCommandsTest, EventsArePrintedWhileTheyAreOn) {
    folder.writeFile("a");
    const std::string file = local.writeFile("file\n", "12345");
    const Outcome outcome = browse("ls -1\nevents on\nmkdir $'new\\n'\nwait\nput " + word(file) +
                                   " $'new\\n'\nwait\nrename a b\nwait\n"
                                   "rm b\nwait\nevents off\nrm $'new\\n/file\\n'\nwait\n");
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(outcome.out, "a\n");
    std::vector<std::string> events;
    for (const std::string& line : linesOf(outcome.err)) {
        if (line.starts_with("event: ")) {
            events.push_back(line.substr(7));
        }
    }
    for (const char* event :
         {"added folder [0-9]+, 'new\\\\n' in '/'", "id [0-9]+ is now [0-9]+",
          "operation [0-9]+: done", "listing of '/' is out of date",
          "added file [0-9]+, 'file\\\\n' in '/new\\\\n'", "operation [0-9]+: 5 of 5 bytes",
          "changed file [0-9]+, 'file\\\\n' in '/new\\\\n'; updated 0 -> [0-9]+; type '' -> '.+'",
          "changed file [0-9]+, 'a' in '/'; name 'a' -> 'b'", "removed file [0-9]+, 'b' in '/'"}) {
        EXPECT_THAT(events, Contains(MatchesRegex(event)));
    }
    EXPECT_THAT(events, Not(Contains(MatchesRegex("removed file [0-9]+, 'file.*"))));
}

TEST_F(ActionCommandsTest, EventsTellOldAndNewKeyValues) {
    if (!hasAttributes()) {
        GTEST_SKIP() << "no extended attributes here";
    }
    const std::string file = folder.writeFile("a");
    ASSERT_EQ(setxattr(file.c_str(), "user.k", "old", 3, 0), 0);
    const Outcome outcome = browse("info a\nevents on\nset a k new\nset a l first\nwait\n");
    EXPECT_THAT(linesOf(outcome.err),
                Contains(MatchesRegex("event: changed .*; key 'k' 'old' -> 'new'")));
    EXPECT_THAT(linesOf(outcome.err),
                Contains(MatchesRegex("event: changed .*; key 'l' none -> 'first'")));
}

// --- Streams -------------------------------------------------------------------------------

TEST_F(ActionCommandsTest, WhatIsSaidOfActionsKeepsItsPlaceAmongTheOutput) {
    folder.writeFile("a");
    const std::string both = runMerged({ORMEK_PROGRAM, "browse", folder.path()},
                                       "ls -1\nrename a b\nwait\nls -1\npwd\n");
    EXPECT_THAT(actionLinesOf(both),
                ElementsAre("a", StartsWith("1 of 1"), "1: renaming 'a' to 'b'", "1: done", "b",
                            StartsWith("1 of 1"), "/"));
}

TEST_F(ActionCommandsTest, OutcomesAreSaidEvenIfTheOutputIsLost) {
    folder.writeFile("a");
    folder.writeFile("b");
    const std::string line = ORMEK_PROGRAM " browse \"$0\" >/dev/full";
    const Outcome outcome =
        runProgram({"sh", "-c", line, folder.path()}, "rename a b\nls\nnonsense\n");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(actionLinesOf(outcome.err), Contains(MatchesRegex("1: failed: .* again")));
    EXPECT_THAT(outcome.err, HasSubstr("ormek: the output cannot be written"));
}

TEST_F(ActionCommandsTest, CatStopsWhenNobodyListens) {
    folder.writeFile("big", randomBytes(4 << 20));
    RunningProgram program({ORMEK_PROGRAM, "browse", folder.path()}, RunningProgram::On::Pipes);
    program.closeOutput();
    program.type("cat big\n");
    EXPECT_EQ(program.wait(), 1);
}

// --- The terminal --------------------------------------------------------------------------

class ActionTerminalTest : public ActionCommandsTest {
  protected:
    RunningProgram start() const {
        return {{ORMEK_PROGRAM, "browse", folder.path()},
                RunningProgram::On::Terminal,
                {{"TERM", "xterm"}, {"LC_ALL", "C"}}};
    }
};

TEST_F(ActionTerminalTest, OutcomesAreSaidBeforeTheNextPrompt) {
    folder.writeFile("a");
    RunningProgram program = start();
    program.readUntil("ormek:/> ");
    program.type("rename a b\n");
    program.readUntil(": renaming 'a' to 'b'\r\n");
    program.type("wait\n");
    program.readUntil(": done\r\n");
    program.readUntil("ormek:/> ");
    program.type("\004");
    EXPECT_EQ(program.wait(), 0);
}

TEST_F(ActionTerminalTest, LosingSomethingIsAFailureThereToo) {
    RunningProgram program = start();
    program.readUntil("ormek:/> ");
    program.type("offline\n");
    program.readUntil("ormek:/> ");
    program.type("mkdir a\n");
    program.readUntil("ormek:/> ");
    program.type("quit\n");
    program.readUntil(": lost: making the folder '/a', waits for the service\r\n");
    EXPECT_EQ(program.wait(), 1);
}

TEST_F(ActionTerminalTest, CtrlCAtTheEndEndsAnUpload) {
    const std::string file = local.writeFile("file");
    std::filesystem::resize_file(file, 4UL << 30U);
    RunningProgram program = start();
    program.readUntil("ormek:/> ");
    program.type("put " + file + "\n");
    program.readUntil(": putting ");
    program.readUntil("ormek:/> ");
    program.type("\004");
    program.readUntil(" of 4294967296");
    program.type("\003");
    program.readUntil(": failed: the upload was given up; '/file' is gone\r\n");
    EXPECT_EQ(program.wait(), 0) << "a failed command is no failure at a terminal";
    EXPECT_THAT(namesIn(folder.path()), IsEmpty());
}

}  // namespace
}  // namespace Ormek::Testing
