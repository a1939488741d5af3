#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <random>
#include <set>
#include <thread>

#include "backend/EntryName.h"
#include "tests/apps/Files.h"
#include "tests/apps/Program.h"
#include "tests/support/TemporaryFolder.h"

namespace Ormek::Testing {
namespace {

using namespace std::chrono_literals;

constexpr int Files = 8;
const std::string Large(24 << 20, 'x');

void expectWholeOrNothing(const std::filesystem::path& file) {
    if (std::filesystem::exists(file)) {
        EXPECT_TRUE(contentOf(file) == Large) << "it is not whole";
    }
}

/// The program, busy with files, is killed somewhere in the middle of it. Each file that it puts
/// has a content of its own, and goes through three names.
class KilledProgramTest : public testing::TestWithParam<unsigned> {
  protected:
    KilledProgramTest() {
        std::uniform_int_distribution<std::size_t> sizes(1, 1 << 20);
        for (int i = 0; i < Files; ++i) {
            contents.push_back(randomBytes(sizes(random), random()));
            local.writeFile(std::to_string(i), contents.back());
        }
        folder.writeFile("bystander", "old");
        folder.makeFolder("sub");
    }

    std::string commands() const {
        std::string text = "ls\n";
        for (int i = 0; i < Files; ++i) {
            const std::string name = std::to_string(i);
            text += "put " + (local / name).string() + " new" + name + "\n";
            text += "rename new" + name + " renamed" + name + "\n";
            text += "mv renamed" + name + " sub\n";
            text += "put " + (local / name).string() + " bystander\n";
        }
        return text;
    }

    /// Lets the program say some outcomes, goes on for a moment, and kills it.
    void killInTheMiddle() {
        RunningProgram program({ORMEK_PROGRAM, "browse", folder.path()}, RunningProgram::On::Pipes);
        program.type(commands() + "wait\n");
        const unsigned outcomes = std::uniform_int_distribution<unsigned>(0, 3 * Files)(random);
        for (unsigned i = 0; i < outcomes; ++i) {
            program.readUntil(": done\n");
        }
        killSoon(program, 10ms);
    }

    /// Kills it while it is busy with one command, or about to be, after it has said something.
    void killSoonAfter(const std::string& command, const std::string& said) {
        RunningProgram program({ORMEK_PROGRAM, "browse", folder.path()}, RunningProgram::On::Pipes);
        program.type("ls\nonline\n" + command + "\n");
        program.readUntil(said);
        killSoon(program, 30ms);
    }

    void killSoon(RunningProgram& program, std::chrono::microseconds latest) {
        std::uniform_int_distribution<std::chrono::microseconds::rep> delays(0, latest.count());
        std::this_thread::sleep_for(std::chrono::microseconds(delays(random)));
        program.kill();
    }

    std::mt19937 random{GetParam()};
    std::vector<std::string> contents;
    TemporaryFolder folder;
    TemporaryFolder local;
};

TEST_P(KilledProgramTest, LeavesWholeFilesUnderOneNameEach) {
    killInTheMiddle();
    EXPECT_EQ(contentOf(folder / "bystander"), "old");
    std::set<std::string> known{"bystander", "sub"};
    for (int i = 0; i < Files; ++i) {
        const std::string name = std::to_string(i);
        int found = 0;
        for (const std::string& path : {"new" + name, "renamed" + name, "sub/renamed" + name}) {
            known.insert(path);
            if (std::filesystem::exists(folder / path)) {
                ++found;
                EXPECT_TRUE(contentOf(folder / path) == contents[static_cast<std::size_t>(i)])
                    << path << " is not whole";
            }
        }
        EXPECT_LE(found, 1) << name << " is there more than once";
    }
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder.path())) {
        const std::string path = std::filesystem::relative(entry.path(), folder.path());
        EXPECT_TRUE(known.count(path) != 0 ||
                    Nimra::isTemporaryName(entry.path().filename().string()))
            << path;
    }
}

TEST_P(KilledProgramTest, LeavesNoPartOfWhatItPuts) {
    local.writeFile("large", Large);
    killSoonAfter("put " + (local / "large").string(), ": putting ");
    expectWholeOrNothing(folder / "large");
}

TEST_P(KilledProgramTest, LeavesNoPartOfWhatItGets) {
    folder.writeFile("large", Large);
    killSoonAfter("get large " + (local / "large").string(), "the service is on");
    expectWholeOrNothing(local / "large");
}

INSTANTIATE_TEST_SUITE_P(Rounds, KilledProgramTest, testing::Range(1U, 13U));

}  // namespace
}  // namespace Ormek::Testing
