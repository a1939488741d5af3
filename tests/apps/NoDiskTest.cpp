#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>

#include "tests/apps/Program.h"
#include "tests/support/TemporaryFolder.h"

namespace Ormek::Testing {
namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

constexpr const char* FileAccess =
    "trace=open,openat,openat2,stat,lstat,statx,newfstatat,access,faccessat,faccessat2,readlink,"
    "readlinkat,getdents,getdents64,getxattr,lgetxattr,fgetxattr,listxattr,llistxattr,flistxattr,"
    "write";

/// The system calls of a session on a folder, those of all threads in the order they were made.
class SystemCalls : public testing::Test {
  protected:
    void SetUp() override {
        if (runProgram({"strace", "-o", "/dev/null", "true"}).status != 0) {
            GTEST_SKIP() << "system calls cannot be traced here";
        }
    }

    std::vector<std::string> callsOf(const std::string& commands) const {
        const TemporaryFolder elsewhere;
        const std::string log = elsewhere / "calls";
        const char* options = std::getenv("ASAN_OPTIONS");
        // Leaks are looked for by tracing, and a process has one tracer at a time.
        const std::string sanitizer =
            (options == nullptr ? "" : std::string(options) + ":") + "detect_leaks=0";
        const Outcome outcome = runProgram({"strace", "-f", "-s", "200", "-o", log, "-e",
                                            FileAccess, ORMEK_PROGRAM, "browse", folder.path()},
                                           commands, {{"ASAN_OPTIONS", sanitizer}});
        EXPECT_EQ(outcome.status, 0) << outcome.err;
        std::ifstream in(log);
        const std::string text{std::istreambuf_iterator<char>(in), {}};
        return linesOf(text);
    }

    static bool isStatus(const std::string& call) {
        return call.find("write(2, ") != std::string::npos &&
               call.find(" entries, ") != std::string::npos;
    }
    static bool isOutput(const std::string& call) {
        return call.find("write(1, ") != std::string::npos;
    }
    static bool isWakeUp(const std::string& call) {
        return call.find("\\1\\0\\0\\0\\0\\0\\0\\0\"") != std::string::npos;
    }

    /// What touched the disk, for each status line, since the one before it.
    static std::vector<std::vector<std::string>> accessesBeforeEachStatus(
        const std::vector<std::string>& calls) {
        std::vector<std::vector<std::string>> accesses(1);
        for (const std::string& call : calls) {
            if (isStatus(call)) {
                accesses.emplace_back();
            } else if (!isOutput(call) && !isWakeUp(call)) {
                accesses.back().push_back(call);
            }
        }
        accesses.pop_back();
        return accesses;
    }

    TemporaryFolder folder;
};

TEST_F(SystemCalls, ASecondListingTouchesNoDisk) {
    folder.makeFolder("sub");
    for (int i = 0; i < 250; ++i) {
        folder.writeFile("file " + std::to_string(i) + ".txt", "text");
    }
    const auto accesses = accessesBeforeEachStatus(
        callsOf("ls\nls\nls --offset 100\nls --offset 100\nls\nls -l --count 50\n"));
    ASSERT_THAT(accesses, SizeIs(6));
    EXPECT_THAT(accesses[0], Contains(HasSubstr("getdents64(")));
    EXPECT_THAT(accesses[1], IsEmpty());
    EXPECT_THAT(accesses[2], Contains(HasSubstr("file ")));
    EXPECT_THAT(accesses[3], IsEmpty());
    EXPECT_THAT(accesses[4], IsEmpty());
    EXPECT_THAT(accesses[5], IsEmpty());
}

TEST_F(SystemCalls, AKnownPathTouchesNoDisk) {
    folder.writeFile(folder.makeFolder("sub") / "file");
    const auto accesses = accessesBeforeEachStatus(callsOf("ls sub\nls sub\nls sub/file\n"));
    ASSERT_THAT(accesses, SizeIs(3));
    EXPECT_THAT(accesses[0], Contains(HasSubstr("getdents64(")));
    EXPECT_THAT(accesses[1], IsEmpty());
    EXPECT_THAT(accesses[2], IsEmpty());
}

}  // namespace
}  // namespace Ormek::Testing
