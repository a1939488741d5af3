#include "tests/apps/Program.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <algorithm>
#include <csignal>
#include <ostream>

#include "tests/apps/Files.h"
#include "tests/support/TemporaryFolder.h"

namespace Ormek::Testing {
namespace {

using namespace std::string_literals;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::MatchesRegex;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

class ProgramTest : public testing::Test {
  protected:
    Outcome browse(const std::string& commands, const Arguments& options = {}) const {
        return Testing::browse(folder.path(), commands, options);
    }
    void writeFiles(const std::vector<std::string>& names) const {
        for (const std::string& name : names) {
            folder.writeFile(name);
        }
    }

    TemporaryFolder folder;
};

// --- ls ------------------------------------------------------------------------------------

TEST_F(ProgramTest, SecondListingComesFromMemory) {
    writeFiles({"a", "b"});
    const Outcome outcome = browse("ls\nls\n");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(linesOf(outcome.err),
                ElementsAre(MatchesRegex("2 of 2 entries, loaded, [0-9]+(\\.[0-9]+)? ms"),
                            MatchesRegex("2 of 2 entries, from memory, [0-9]+(\\.[0-9]+)? ms")));
    EXPECT_THAT(linesOf(outcome.out), SizeIs(4));
}

TEST_F(ProgramTest, ListingShowsTypeSizeTimeAndName) {
    folder.makeFolder("folder");
    folder.writeFile("a b\n", "twelve bytes");
    for (const char* name : {"folder", "a b\n"}) {
        const timespec time{1709251198, 0};
        const timespec times[] = {time, time};
        ASSERT_EQ(utimensat(AT_FDCWD, (folder / name).c_str(), times, 0), 0);
    }
    const Outcome outcome = browse("ls\n");
    EXPECT_EQ(outcome.out,
              "folder           -  2024-02-29 23:59:58  folder\n"
              "file            12  2024-02-29 23:59:58  a b\\n\n");
}

TEST_F(ProgramTest, LongListingAlsoShowsIdMimeTypeAndCreation) {
    folder.writeFile("a.txt", "text");
    const Outcome outcome = browse("ls -l\n");
    EXPECT_THAT(outcome.out, MatchesRegex(" +[0-9]+  file  +4  ([-0-9: ]{19}|-                  )  "
                                          "[-0-9: ]{19}  text/plain +  a.txt\n"));
}

TEST_F(ProgramTest, NamesAloneAreEscapedAndOnOneLineEach) {
    writeFiles(AwkwardNames);
    const Outcome outcome = browse("ls -1\n");
    EXPECT_THAT(linesOf(outcome.out), SizeIs(AwkwardNames.size()));
    EXPECT_THAT(linesOf(outcome.out),
                IsSupersetOf({"with spaces.txt"s, "it's.txt"s, "\"quoted\".txt"s,
                              R"(two\nlines.txt)"s, R"(back\\slash.txt)"s, R"(caf\351.txt)"s,
                              R"(\033[31mred)"s, R"(c1\302\233)"s, "\xf0\x9f\x90\x99.txt"s,
                              R"(\377)"s, R"(tab\there)"s, R"(ends in lf\n)"s, "-1"s}));
}

TEST_F(ProgramTest, RawNamesOfAllPagesAreThoseOfTheFolder) {
    writeFiles(AwkwardNames);
    for (int i = 0; i < 2500; ++i) {
        folder.writeFile("file " + std::to_string(i));
    }
    folder.makeFolder("folder");
    const Outcome outcome = browse("ls -0 --all\n");
    EXPECT_EQ(outcome.status, 0);
    auto names = splitAtNuls(outcome.out);
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, namesIn(folder.path()));
    EXPECT_THAT(outcome.err, StartsWith("2521 of 2521 entries, loaded, "));
}

TEST_F(ProgramTest, AllInSmallPagesIsTheSameAsInOne) {
    writeFiles(AwkwardNames);
    const Outcome small = browse("ls -0 --all --count 3\n");
    EXPECT_EQ(small.out, browse("ls -0 --all\n").out);
    EXPECT_THAT(splitAtNuls(small.out), SizeIs(AwkwardNames.size()));
}

TEST_F(ProgramTest, APageIsWhatOffsetAndCountSay) {
    writeFiles({"a", "b", "c", "d", "e"});
    const Outcome outcome =
        browse("ls -1 --offset 1 --count 2\nls -1 --count=0\nls -1 --offset 9\n");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "b\nc\n");
    EXPECT_THAT(linesOf(outcome.err),
                ElementsAre(StartsWith("2 of 5 entries, loaded"), StartsWith("0 of 5 entries"),
                            StartsWith("0 of 5 entries")));
}

TEST_F(ProgramTest, APageHasAHundredEntriesUnlessTold) {
    for (int i = 0; i < 101; ++i) {
        folder.writeFile(std::to_string(i));
    }
    const Outcome outcome = browse("ls -1\n");
    EXPECT_THAT(linesOf(outcome.out), SizeIs(100));
    EXPECT_THAT(outcome.err, StartsWith("100 of 101 entries, loaded, "));
}

TEST_F(ProgramTest, SearchFindsPartsOfNames) {
    writeFiles({"apple", "pear", "pineapple", "app le"});
    const Outcome outcome =
        browse("ls -1 --search apple\nls -1 --search 'p l'\nls -1 --search none\n");
    EXPECT_EQ(outcome.out, "apple\npineapple\napp le\n");
    EXPECT_THAT(linesOf(outcome.err)[0], StartsWith("2 of 2 entries, loaded, "));
    EXPECT_THAT(linesOf(outcome.err)[2], StartsWith("0 of 0 entries, loaded, "));
}

TEST_F(ProgramTest, PathsAreQuotedAsInAShell) {
    folder.writeFile(folder.makeFolder("with spaces/it's") / "one");
    const Outcome outcome = browse(
        "ls -1 'with spaces'\n"
        "ls -1 with\\ spaces/\"it's\"\n"
        "ls -1 \"/with spaces/./it's/../it's//\"\n"
        "ls -1 $'with\\x20spaces/it\\'s/one'\n");
    EXPECT_EQ(outcome.err.find("ormek:"), std::string::npos) << outcome.err;
    EXPECT_EQ(outcome.out, "it's\none\none\none\n");
}

TEST_F(ProgramTest, ADocumentIsListedAsItself) {
    folder.writeFile("-1", "12345");
    const Outcome outcome =
        browse("ls -- -1\nls -0 ./-1\nls --search x ./-1\nls --refresh -- -1\n");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.out, MatchesRegex("file +5  .*  -1\n-1.?"));
    EXPECT_EQ(outcome.out.back(), '\0');
    EXPECT_THAT(linesOf(outcome.err),
                ElementsAre(StartsWith("1 of 1 entries, loaded, "),
                            StartsWith("1 of 1 entries, from memory, "),
                            "ormek: ls: --search and --refresh are for folders",
                            "ormek: ls: --search and --refresh are for folders"));
}

TEST_F(ProgramTest, RefreshSeesWhatWasMadeMeanwhile) {
    folder.writeFile("a");
    RunningProgram program({ORMEK_PROGRAM, "browse", folder.path()}, RunningProgram::On::Pipes);
    program.type("ls\n");
    EXPECT_THAT(program.readUntil(" ms\n"), StartsWith("1 of 1 entries, loaded, "));
    folder.writeFile("b");
    program.type("ls\n");
    EXPECT_THAT(program.readUntil(" ms\n"), StartsWith("1 of 1 entries, from memory, "));
    program.type("ls --refresh\n");
    EXPECT_THAT(program.readUntil(" ms\n"), StartsWith("2 of 2 entries, loaded, "));
    program.type("ls\n");
    EXPECT_THAT(program.readUntil(" ms\n"), StartsWith("2 of 2 entries, from memory, "));
    program.closeInput();
    EXPECT_EQ(program.wait(), 0);
}

// --- The other commands --------------------------------------------------------------------

TEST_F(ProgramTest, CdMovesThroughTheTree) {
    folder.makeFolder("a/b c");
    const Outcome outcome = browse(
        "pwd\ncd a\npwd\ncd 'b c'\npwd\ncd ..\npwd\ncd\npwd\ncd ..\npwd\n"
        "cd '/a/b c'\npwd\ncd /\npwd\n");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(outcome.out, "/\n/a\n/a/b c\n/a\n/\n/\n/a/b c\n/\n");
}

TEST_F(ProgramTest, CdStaysWhereItIsWhenItFails) {
    folder.writeFile(folder.makeFolder("a") / "file");
    const Outcome outcome = browse("cd a\ncd none\ncd file\npwd\n");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "/a\n");
    EXPECT_THAT(linesOf(outcome.err),
                ElementsAre(StartsWith("ormek: cd: "), "ormek: cd: 'file' is not a folder"));
}

TEST_F(ProgramTest, InfoPrintsWhatIsKnown) {
    folder.writeFile("a.txt", "hello");
    folder.makeFolder("sub");
    const Outcome outcome = browse("info a.txt\ninfo sub\ninfo .\n");
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_THAT(
        linesOf(outcome.out),
        IsSupersetOf(
            {MatchesRegex("path +/a.txt"), MatchesRegex("name +a.txt"), MatchesRegex("kind +file"),
             MatchesRegex("size +5"), MatchesRegex("mime type +text/plain"),
             MatchesRegex("updated +[-0-9]+ [0-9:]+ \\([0-9]+\\)"), MatchesRegex("path +/sub"),
             MatchesRegex("kind +folder"), MatchesRegex("path +/")}));
}

TEST_F(ProgramTest, KeyValuesAreTheExtendedAttributes) {
    const std::string file = folder.writeFile("song");
    folder.writeFile("other");
    if (setxattr(file.c_str(), "user.artist", "No\nbody", 7, 0) != 0) {
        GTEST_SKIP() << "no extended attributes here";
    }
    const Outcome outcome = browse("info song\ntags\ntags song\ntags other\n");
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_THAT(linesOf(outcome.out), Contains(MatchesRegex("key value +artist=No\\\\nbody")));
    const std::string line = "song  artist=No\\nbody\n";
    EXPECT_TRUE(outcome.out.ends_with("\n" + line + line)) << outcome.out;
    EXPECT_THAT(linesOf(outcome.err),
                ElementsAre(StartsWith("1 of 1 entries, loaded, "), StartsWith("1 of 1 entries, "),
                            StartsWith("0 of 0 entries, ")));
}

TEST_F(ProgramTest, StatsCountWhatHappened) {
    folder.writeFile("a");
    const Outcome outcome = browse("ls\nls\nls\nstats\n");
    EXPECT_THAT(
        linesOf(outcome.out),
        IsSupersetOf({MatchesRegex("queries answered from memory +2"), MatchesRegex("loads +1"),
                      MatchesRegex("joined loads +0"), MatchesRegex("failed loads +0"),
                      MatchesRegex("entries +2"), MatchesRegex("tags +0"),
                      MatchesRegex("directories +1"), MatchesRegex("parked operations +0"),
                      MatchesRegex("time spent in memory +[0-9.]+ ms"),
                      MatchesRegex("time spent in loads +[0-9.]+ ms")}));
}

TEST_F(ProgramTest, HelpNamesEveryCommand) {
    const Outcome outcome = browse("help\n");
    EXPECT_THAT(linesOf(outcome.out),
                IsSupersetOf({"ls [PATH] [-1] [-0] [-l] [--offset N] [--count N] [--all] "
                              "[--search TEXT] [--refresh]"s,
                              "cd [PATH]"s,
                              "pwd"s,
                              "info PATH"s,
                              "tags [PATH] [--refresh]"s,
                              "stats"s,
                              "rename PATH NEWNAME"s,
                              "mv PATH FOLDER"s,
                              "rm PATH"s,
                              "mkdir PATH"s,
                              "put LOCALFILE [PATH]"s,
                              "get PATH LOCALFILE"s,
                              "cat PATH"s,
                              "set PATH KEY VALUE"s,
                              "session [--release] PATH"s,
                              "events on|off"s,
                              "offline"s,
                              "online"s,
                              "parked"s,
                              "cancel OPERATION"s,
                              "wait"s,
                              "help [COMMAND]"s,
                              "quit"s}));
    EXPECT_THAT(browse("help ls\n").out, HasSubstr("--offset N     leaves out"));
}

TEST_F(ProgramTest, NothingIsReadBehindQuit) {
    const Outcome outcome = browse("pwd\nquit\npwd\nnonsense\n");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "/\n");
}

TEST_F(ProgramTest, TheLastLineNeedsNoEnd) { EXPECT_EQ(browse("pwd").out, "/\n"); }

// --- Errors --------------------------------------------------------------------------------

struct Mistake {
    const char* line;
    const char* complaint;
};

void PrintTo(const Mistake& mistake, std::ostream* out) { *out << mistake.line; }

class MistakenCommand : public testing::TestWithParam<Mistake> {};

TEST_P(MistakenCommand, IsOneLineAndTheSessionGoesOn) {
    const TemporaryFolder folder;
    folder.writeFile("file");
    const Outcome outcome = browse(folder.path(), GetParam().line + "\npwd\n"s);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "/\n");
    EXPECT_THAT(linesOf(outcome.err), ElementsAre(HasSubstr(GetParam().complaint)));
    EXPECT_THAT(outcome.err, StartsWith("ormek: "));
}

INSTANTIATE_TEST_SUITE_P(
    Each, MistakenCommand,
    testing::Values(
        Mistake{"nonsense", "unknown command 'nonsense'"}, Mistake{"''", "unknown command ''"},
        Mistake{"$'a\\nb'", R"(unknown command 'a\nb')"}, Mistake{"ls 'a", "a ' is not closed"},
        Mistake{"ls none", "none"}, Mistake{"ls $'no\\nne'", R"(no\nne)"},
        Mistake{"ls file/below", "file"}, Mistake{"ls a b", "'b'"},
        Mistake{"ls --none", "ls: unknown option '--none'"}, Mistake{"ls -1 -0", "exclude"},
        Mistake{"ls -l1", "exclude"}, Mistake{"ls --count", "--count needs a value"},
        Mistake{"ls --count -1", "'-1' is not a whole number"},
        Mistake{"ls --count 1x", "'1x' is not a whole number"},
        Mistake{"ls --offset 4294967296", "'4294967296' is too large"},
        Mistake{"ls --all --count 0", "--all needs a --count above 0"},
        Mistake{"ls --all=yes", "--all takes no value"}, Mistake{"cd file", "is not a folder"},
        Mistake{"cd a b", "'b'"}, Mistake{"pwd x", "'x'"}, Mistake{"pwd -x", "'-x'"},
        Mistake{"info", "an argument is missing"}, Mistake{"info none", "none"},
        Mistake{"info a b", "'b'"}, Mistake{"tags none", "none"}, Mistake{"stats x", "'x'"},
        Mistake{"help nonsense", "'nonsense'"}, Mistake{"quit x", "'x'"}));

TEST_F(ProgramTest, AFolderThatCannotBeReadIsOneLine) {
    const std::string file = folder.writeFile("file");
    for (const std::string& path : {(folder / "none\n").string(), file, ""s}) {
        const Outcome outcome = Testing::browse(path, "pwd\n");
        EXPECT_EQ(outcome.status, 2) << path;
        EXPECT_EQ(outcome.out, "") << path;
        EXPECT_THAT(linesOf(outcome.err), ElementsAre(StartsWith("ormek: "))) << path;
    }
}

TEST_F(ProgramTest, ATraceFileThatCannotBeWrittenIsOneLine) {
    const Outcome outcome = browse("pwd\n", {"--trace", folder / "none/trace"});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.out, "");
    EXPECT_THAT(linesOf(outcome.err),
                ElementsAre(MatchesRegex("ormek: .*none/trace.*: No such.*")));
}

TEST_F(ProgramTest, WrongUseIsOneLine) {
    for (const Arguments& arguments :
         {Arguments{ORMEK_PROGRAM}, Arguments{ORMEK_PROGRAM, "browse"},
          Arguments{ORMEK_PROGRAM, "nonsense"}, Arguments{ORMEK_PROGRAM, "browse", "a", "b"},
          Arguments{ORMEK_PROGRAM, "browse", "--none", "."}}) {
        const Outcome outcome = runProgram(arguments);
        EXPECT_EQ(outcome.status, 2);
        EXPECT_EQ(outcome.out, "");
        EXPECT_THAT(linesOf(outcome.err), ElementsAre(StartsWith("ormek: ")));
    }
}

TEST_F(ProgramTest, HelpAndVersionSucceed) {
    const Outcome help = runProgram({ORMEK_PROGRAM, "--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.err, "");
    EXPECT_THAT(help.out, HasSubstr("browse"));

    const Outcome browseHelp = runProgram({ORMEK_PROGRAM, "browse", "--help"});
    EXPECT_EQ(browseHelp.status, 0);
    EXPECT_THAT(browseHelp.out, HasSubstr("--trace"));
    EXPECT_THAT(browseHelp.out, HasSubstr("FOLDER"));

    const Outcome version = runProgram({ORMEK_PROGRAM, "--version"});
    EXPECT_EQ(version.status, 0);
    const std::string project = contentOf(ORMEK_SOURCE_DIR "/CMakeLists.txt");
    ASSERT_THAT(version.out, MatchesRegex("ormek [0-9]+\\.[0-9]+\\.[0-9]+\n"));
    const std::string number = version.out.substr(6, version.out.size() - 7);
    EXPECT_THAT(project, HasSubstr("VERSION " + number + "\n"));
}

TEST_F(ProgramTest, AnyFolderNameIsTaken) {
    for (const char* name : {"-x", "[a,b]", "{}", "%%", "with space", "caf\xe9"}) {
        folder.writeFile(folder.makeFolder(name) / "inside");
        const Outcome outcome = Testing::browse(folder / name, "ls -1\n");
        EXPECT_EQ(outcome.out, "inside\n") << name << ": " << outcome.err;
    }
}

// --- Streams -------------------------------------------------------------------------------

TEST_F(ProgramTest, TheTraceGoesIntoItsFileAndNowhereElse) {
    const TemporaryFolder elsewhere;
    writeFiles({"a", "b"});
    const std::string commands = "ls -1\nls -1\ntags\n";
    const Outcome traced = browse(commands, {"--trace", elsewhere / "trace"});
    const Outcome plain = browse(commands);
    EXPECT_EQ(traced.out, "a\nb\na\nb\n");
    EXPECT_EQ(plain.out, traced.out);
    EXPECT_THAT(plain.err + traced.err, Not(HasSubstr("DirectoryCache")));
    EXPECT_THAT(linesOf(contentOf(elsewhere / "trace")),
                Contains(HasSubstr("Ormek::DirectoryCache::")));
}

TEST_F(ProgramTest, OutputAndStatusKeepTheirOrder) {
    writeFiles({"a"});
    const std::string both =
        runMerged({ORMEK_PROGRAM, "browse", folder.path()}, "ls -1\nnonsense\npwd\nls -1\n");
    EXPECT_THAT(linesOf(both),
                ElementsAre("a", StartsWith("1 of 1 entries, loaded"), StartsWith("ormek: unknown"),
                            "/", "a", StartsWith("1 of 1 entries, from memory")));
}

TEST_F(ProgramTest, AClosedPipeEndsItQuietly) {
    writeFiles({"a"});
    RunningProgram program({ORMEK_PROGRAM, "browse", folder.path()}, RunningProgram::On::Pipes);
    program.closeOutput();
    program.type("ls\n");
    EXPECT_EQ(program.wait(), 1);
    EXPECT_THROW(program.readUntil("\n"), std::runtime_error) << "nothing is to be said";
}

TEST_F(ProgramTest, AFullDiskIsTold) {
    writeFiles({"a"});
    const std::string line = ORMEK_PROGRAM " browse \"$0\" >/dev/full";
    const Outcome outcome = runProgram({"sh", "-c", line, folder.path()}, "ls\nls\n");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(linesOf(outcome.err),
                ElementsAre(StartsWith("ormek: the output cannot be written")));

    const Outcome traced = browse("ls\n", {"--trace", "/dev/full"});
    EXPECT_EQ(traced.status, 1);
    EXPECT_THAT(linesOf(traced.err), ElementsAre(StartsWith("1 of 1 entries"),
                                                 StartsWith("ormek: the trace could not")));
}

TEST_F(ProgramTest, ClosedStandardStreamsAreNoHarm) {
    const TemporaryFolder elsewhere;
    writeFiles({"a"});
    const auto run = [&](const std::string& redirection) {
        const std::string line = ORMEK_PROGRAM " browse --trace \"$1\" \"$0\" " + redirection;
        return runProgram({"sh", "-c", line, folder.path(), elsewhere / "trace"}, "ls -1\npwd\n");
    };
    EXPECT_EQ(run("<&-").status, 0);
    EXPECT_EQ(run(">&-").status, 0);
    EXPECT_THAT(linesOf(contentOf(elsewhere / "trace")), Not(Contains("a")));
    const Outcome silent = run("2>&-");
    EXPECT_EQ(silent.out, "a\n/\n");
    EXPECT_THAT(contentOf(elsewhere / "trace"), Not(HasSubstr("entries, loaded")));
}

// --- While nothing is typed ----------------------------------------------------------------

TEST_F(ProgramTest, AnOutcomeIsSaidWhileTheNextLineIsWaitedFor) {
    writeFiles({"a"});
    RunningProgram program({ORMEK_PROGRAM, "browse", folder.path()}, RunningProgram::On::Pipes);
    program.type("rename a b\n");
    program.readUntil(": done\n");
    EXPECT_THAT(namesIn(folder.path()), ElementsAre("b"));
    program.closeInput();
    EXPECT_EQ(program.wait(), 0);
}

TEST_F(ProgramTest, WhatWaitsForAnotherActionIsSentWhileTheNextLineIsWaitedFor) {
    const TemporaryFolder local;
    const std::string content = randomBytes(4U << 20U);
    local.writeFile("large", content);
    RunningProgram program({ORMEK_PROGRAM, "browse", folder.path()}, RunningProgram::On::Pipes);
    program.type("put " + (local / "large").string() + " large\nrename large renamed\n");
    program.readUntil("renaming 'large' to 'renamed'\n");
    program.readUntil(": done\n");
    program.readUntil(": done\n");
    EXPECT_THAT(namesIn(folder.path()), ElementsAre("renamed"));
    EXPECT_TRUE(contentOf(folder / "renamed") == content);
}

TEST_F(ProgramTest, AnOutcomeIsSaidBetweenTheTwoHalvesOfALine) {
    writeFiles({"a"});
    RunningProgram program({ORMEK_PROGRAM, "browse", folder.path()}, RunningProgram::On::Pipes);
    program.type("rename a b\nhelp non");
    program.readUntil(": done\n");
    program.type("sense\n");
    program.readUntil("ormek: help: there is no command 'nonsense'\n");
}

TEST_F(ProgramTest, EventsAreSaidWhileTheNextLineIsWaitedFor) {
    writeFiles({"a"});
    RunningProgram program({ORMEK_PROGRAM, "browse", folder.path()}, RunningProgram::On::Pipes);
    program.type("events on\nrename a b\n");
    program.readUntil("event: operation ");
    program.readUntil(": done\n");
}

TEST_F(ProgramTest, LinesMayBeOfAnyLengthAndTheLastOneNeedsNoEnd) {
    const std::string name(10000, 'x');
    const Outcome outcome = browse("help " + name + "\n\npwd");
    EXPECT_EQ(outcome.err, "ormek: help: there is no command '" + name + "'\n");
    EXPECT_EQ(outcome.out, "/\n");
}

TEST_F(ProgramTest, AnInputThatCannotBeReadIsAtItsEnd) {
    const std::string line = ORMEK_PROGRAM " browse \"$0\" <\"$0\"";
    EXPECT_EQ(runProgram({"sh", "-c", line, folder.path()}).status, 0);
}

// --- The terminal --------------------------------------------------------------------------

class TerminalTest : public ProgramTest {
  protected:
    RunningProgram start(const Environment& more = {}) const {
        Environment environment{{"TERM", "xterm"}, {"LC_ALL", "C"}};
        environment.insert(more.begin(), more.end());
        return {
            {ORMEK_PROGRAM, "browse", folder.path()}, RunningProgram::On::Terminal, environment};
    }
};

TEST_F(TerminalTest, ShowsAPromptAndAnswers) {
    folder.makeFolder("caf\xc3\xa9");
    RunningProgram program = start();
    program.readUntil("ormek:/> ");
    program.type("cd caf\xc3\xa9\n");
    program.readUntil("ormek:/caf\xc3\xa9> ");
    program.type("ls\n");
    program.readUntil("0 of 0 entries, loaded, ");
    program.readUntil("> ");
    program.type("quit\n");
    EXPECT_EQ(program.wait(), 0);
}

TEST_F(TerminalTest, LinesCanBeEditedAndComeBack) {
    RunningProgram program = start();
    program.readUntil("ormek:/> ");
    program.type("help nonsensX\177e\n");
    program.readUntil("ormek: help: there is no command 'nonsense'");
    program.readUntil("ormek:/> ");
    program.type("\033[A\n");
    program.readUntil("ormek: help: there is no command 'nonsense'");
    program.readUntil("ormek:/> ");
    program.type("\004");
    EXPECT_EQ(program.wait(), 0) << "a failed command is no failure at a terminal";
}

TEST_F(TerminalTest, CtrlCEmptiesTheLine) {
    RunningProgram program = start();
    program.readUntil("ormek:/> ");
    program.type("nonsense");
    program.readUntil("nonsense");
    program.type("\003\003help ls\n");
    EXPECT_THAT(program.readUntil("Lists a page"), Not(HasSubstr("unknown")));
    program.readUntil("ormek:/> ");
    program.type("\003\004");
    EXPECT_EQ(program.wait(), 0);
}

TEST_F(TerminalTest, AnOutcomeComesWhileACommandIsTypedWhichStaysWhole) {
    writeFiles({"a"});
    RunningProgram program = start();
    program.readUntil("ormek:/> ");
    program.type("rename a b\nhelp non");
    program.readUntil(": done\r\n");
    program.readUntil("ormek:/> help non");
    EXPECT_THAT(namesIn(folder.path()), ElementsAre("b"));
    program.type("sense\n");
    program.readUntil("ormek: help: there is no command 'nonsense'");
}

TEST_F(TerminalTest, ALineOutlivesEveryStop) {
    RunningProgram program = start();
    program.readUntil("ormek:/> ");
    program.type("help non");
    program.readUntil("help non");
    for (int stop = 0; stop < 3; ++stop) {
        program.signal(SIGSTOP);
        program.signal(SIGCONT);
        program.readUntil("\n");
        program.readUntil("ormek:/> help non");
    }
    program.type("sense\n");
    program.readUntil("ormek: help: there is no command 'nonsense'");
}

TEST_F(TerminalTest, ALineIsBrokenWhereTheTerminalEndsNow) {
    RunningProgram program = start();
    program.readUntil("ormek:/> ");
    // Each wider than the one before, whose rows are too short for it.
    for (const int columns : {50, 70, 90}) {
        program.resize(columns);
        program.type("\003" + std::string(100, 'x'));
        const std::string row(static_cast<std::size_t>(columns) - "ormek:/> "s.size(), 'x');
        program.readUntil(row + " \b");
    }
}

TEST_F(TerminalTest, AnInterruptFromElsewhereEmptiesTheLine) {
    RunningProgram program = start();
    program.readUntil("ormek:/> ");
    program.type("nonsense");
    program.readUntil("nonsense");
    program.signal(SIGINT);
    program.type("help ls\n");
    EXPECT_THAT(program.readUntil("Lists a page"), Not(HasSubstr("unknown")));
}

}  // namespace
}  // namespace Ormek::Testing
