// What a process that is killed in the midst of its work leaves in the folder it serves.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <exception>
#include <iostream>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <thread>

#include "backend/EntryName.h"
#include "backend/FileWriter.h"
#include "tests/backend/ActionFixture.h"
#include "tests/support/SystemCallFaults.h"

namespace Nimra {
namespace {

using Ormek::Testing::FailingCall;
using Ormek::Testing::UnsyncedDisk;

constexpr int Rounds = 40;

/// Content that comes in small pieces: many moments at which a file is there in part.
class SlowSource : public PatternSource {
  public:
    using PatternSource::PatternSource;

    std::size_t read(char* buffer, std::size_t size) override {
        return PatternSource::read(buffer, std::min<std::size_t>(size, 4096));
    }
};

/// Creates, replaces, renames and moves files until it is killed.
class BusyProcess {
  public:
    BusyProcess(FolderService& service, unsigned seed, bool namedStaging)
        : _service(service), _random(seed), _namedStaging(namedStaging) {}

    [[noreturn]] void run() {
        _below = _service.makeFolder({0, 1, 1, "below"}).id;
        unsigned long current = create("current").id;
        for (int i = 0;; ++i) {
            current = replaced(current);
            const std::string name = "file" + std::to_string(i);
            const Document made = create(name);
            _service.move({made.id, _below, 1, ""});
            _service.rename({made.id, _below, 1, "renamed" + std::to_string(i)});
            if (i % 3 != 0) {
                _service.remove({made.id, _below, 1, ""});
            }
        }
    }

  private:
    Document create(const std::string& name) {
        const unsigned long size = _random() % 200'000;
        Document wanted(9'000'000, 1, 1, name);
        // So that whoever finds the file knows what the whole of it is.
        wanted.addKeyValue("size", {std::to_string(size), false});
        SlowSource content(size);
        std::optional<FailingCall> unsupported;
        if (_namedStaging) {
            unsupported.emplace("openat+create", EOPNOTSUPP);
        }
        return _service.create(wanted, &content, {});
    }
    /// What stands in the place of a document then.
    unsigned long replaced(unsigned long old) {
        const unsigned long next = create("next").id;
        _service.remove({old, 1, 1, ""});
        return _service.rename({next, 1, 1, "current"}).id;
    }

    FolderService& _service;
    std::mt19937 _random;
    bool _namedStaging;
    unsigned long _below = 0;
};

class KilledProcessTest : public ActionFixture {
  protected:
    /// Lets a process work, and kills it at some moment.
    void killInTheMidst(int round, std::chrono::microseconds moment) {
        std::array<int, 2> ends{};
        ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
        const FileDescriptor begun(ends[0]);
        FileDescriptor begins(ends[1]);
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            work(round, begins.get());
        }
        begins = FileDescriptor();
        char byte = 0;
        EXPECT_EQ(read(begun.get(), &byte, 1), 1);
        std::this_thread::sleep_for(moment);
        kill(child, SIGKILL);
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFSIGNALED(status)) << "it ended before it was killed";
    }
    [[noreturn]] void work(int round, int begins) {
        try {
            // Waiting for the disk makes for other moments than not doing so.
            std::optional<UnsyncedDisk> unsynced;
            if (round % 4 < 2) {
                unsynced.emplace();
            }
            BusyProcess busy(service, static_cast<unsigned>(round), round % 2 == 0);
            if (write(begins, "", 1) == 1) {
                busy.run();
            }
        } catch (const std::exception& error) {
            std::cerr << "unexpected: " << error.what() << '\n';
        }
        _exit(1);
    }

    /// Checks all that is listed in a folder, and what is not.
    void expectWholeFilesOnly(const std::string& name, unsigned long id) {
        FolderService fresh(path(name));
        const Page page = fresh.load(listing(1));
        std::set<std::string> listed;
        for (const auto& found : page.folders) {
            listed.insert(found.name);
        }
        for (const auto& found : page.documents) {
            listed.insert(found.name);
            const auto values = found.keyValues();
            ASSERT_TRUE(values.contains("size")) << found.name;
            EXPECT_TRUE(
                isPattern(path(name) + '/' + found.name, std::stoul(values.at("size").first)))
                << found.name;
            ++wholeFiles;
        }
        EXPECT_EQ(page.totalCount, listed.size());
        for (const auto& entry : onDisk(name)) {
            if (!listed.contains(entry)) {
                EXPECT_TRUE(isTemporaryName(entry)) << entry;
                EXPECT_EQ(look(entry, id).totalCount, 0U);
                ++leftovers;
            }
        }
        sweep(name);
        EXPECT_EQ(onDisk(name), listed);
    }
    void sweep(const std::string& name) const {
        const FileDescriptor root(::open(path(name).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
        removeAbandonedFiles(OpenFolder(root, "", OpenFolder::Purpose::LookingUp));
    }
    void startAfresh() {
        for (const auto& entry : onDisk()) {
            std::filesystem::remove_all(path(entry));
        }
    }

    unsigned long wholeFiles = 0;
    unsigned long leftovers = 0;
};

TEST_F(KilledProcessTest, LeavesWholeFilesOnlyAndNothingThatCountsAsAnEntry) {
    std::mt19937 random(17);
    for (int round = 0; round < Rounds; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        killInTheMidst(round, std::chrono::microseconds(random() % 60'000));
        if (HasFatalFailure()) {
            return;
        }
        const bool replacing = exists("below/renamed0");
        EXPECT_TRUE(!replacing || exists("current") || exists("next"));
        expectWholeFilesOnly(".", 1);
        if (exists("below")) {
            expectWholeFilesOnly("below", folderId("below"));
        }
        startAfresh();
    }
    std::cout << Rounds << " kills, " << wholeFiles << " whole files, " << leftovers
              << " leftovers of which none was listed\n";
    EXPECT_GT(wholeFiles, 0U);
    EXPECT_GT(leftovers, 0U) << "no kill came while a file was being written";
}

}  // namespace
}  // namespace Nimra
