// The command line: from `ls` to the first entry on the screen, beside reading the folder alone.

#include <benchmark/benchmark.h>
#include <dirent.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <map>
#include <stdexcept>
#include <string>

#include "bench/Corpus.h"

extern char** environ;

namespace Ormek::Bench {

namespace {

using Clock = std::chrono::steady_clock;

/// A folder with so many empty files, removed when the process ends.
class FolderOfFiles {
  public:
    static const FolderOfFiles& of(long files) {
        static std::map<long, FolderOfFiles> all;
        return all.try_emplace(files, files).first->second;
    }

    explicit FolderOfFiles(long files) {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "ormek-bench-XXXXXX").string();
        if (!::mkdtemp(pattern.data())) {
            throw std::runtime_error("cannot make a folder");
        }
        path = pattern;
        for (const std::size_t number : randomOrder(static_cast<std::size_t>(files))) {
            const std::string file = path + '/' + nameAt(number) + ".pdf";
            ::close(::open(file.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
        }
    }
    FolderOfFiles(const FolderOfFiles&) = delete;
    FolderOfFiles& operator=(const FolderOfFiles&) = delete;
    ~FolderOfFiles() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }

    std::string path;

  private:
    static std::vector<std::size_t> randomOrder(std::size_t count) {
        // Any number that has no factor in common with a power of ten goes through all of them.
        constexpr std::size_t Stride = 7919;
        std::vector<std::size_t> order(count);
        for (std::size_t index = 0; index < count; ++index) {
            order[index] = index * Stride % count;
        }
        return order;
    }
};

/// The program on a folder, with pipes for its input and output.
class Program {
  public:
    explicit Program(const std::string& folder) {
        std::array<int, 2> input{};
        std::array<int, 2> output{};
        if (::pipe2(input.data(), O_CLOEXEC) != 0 || ::pipe2(output.data(), O_CLOEXEC) != 0) {
            throw std::runtime_error("cannot make a pipe");
        }
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
        posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
        std::array<std::string, 3> words{ORMEK_PROGRAM, "browse", folder};
        std::array<char*, 4> arguments{words[0].data(), words[1].data(), words[2].data(), nullptr};
        const int error = ::posix_spawn(&_process, words[0].c_str(), &actions, nullptr,
                                        arguments.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        ::close(input[0]);
        ::close(output[1]);
        _input = input[1];
        _output = output[0];
        if (error != 0) {
            throw std::runtime_error("cannot start the program");
        }
    }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;
    ~Program() {
        ::close(_input);
        ::close(_output);
        ::waitpid(_process, nullptr, 0);
    }

    /// Seconds from a command to the first byte of what it prints.
    double secondsTo(const std::string& command) {
        const Clock::time_point begin = Clock::now();
        const std::string line = command + "\n";
        std::array<char, 65536> buffer;
        if (::write(_input, line.data(), line.size()) != static_cast<ssize_t>(line.size()) ||
            ::read(_output, buffer.data(), buffer.size()) <= 0) {
            throw std::runtime_error("the program does not answer");
        }
        const std::chrono::duration<double> passed = Clock::now() - begin;
        // Nothing of this answer may be taken for the next one's.
        awaitEcho(buffer);
        return passed.count();
    }

  private:
    // `pwd` prints one line that starts with a slash, which no name does.
    void awaitEcho(std::array<char, 65536>& buffer) {
        const std::string line = "pwd\n";
        if (::write(_input, line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
            throw std::runtime_error("the program does not listen");
        }
        std::string tail;
        do {
            const ssize_t size = ::read(_output, buffer.data(), buffer.size());
            if (size <= 0) {
                throw std::runtime_error("the program does not answer");
            }
            tail.append(buffer.data(), static_cast<std::size_t>(size));
        } while (!tail.ends_with("/\n"));
    }

    pid_t _process = 0;
    int _input = -1;
    int _output = -1;
};

void firstEntryLoaded(benchmark::State& state) {
    const FolderOfFiles& folder = FolderOfFiles::of(state.range(0));
    for (auto _ : state) {
        Program program(folder.path);
        program.secondsTo("help quit");
        state.SetIterationTime(program.secondsTo("ls"));
    }
}

void firstEntryFromMemory(benchmark::State& state) {
    const FolderOfFiles& folder = FolderOfFiles::of(state.range(0));
    Program program(folder.path);
    program.secondsTo("ls");
    for (auto _ : state) {
        state.SetIterationTime(program.secondsTo("ls"));
    }
}

void readFolder(benchmark::State& state) {
    const FolderOfFiles& folder = FolderOfFiles::of(state.range(0));
    for (auto _ : state) {
        const Clock::time_point begin = Clock::now();
        DIR* directory = ::opendir(folder.path.c_str());
        long entries = 0;
        while (::readdir(directory)) {
            ++entries;
        }
        ::closedir(directory);
        const std::chrono::duration<double> passed = Clock::now() - begin;
        state.SetIterationTime(passed.count());
        if (entries != state.range(0) + 2) {
            state.SkipWithError("not all entries");
        }
    }
}

void sizes(benchmark::internal::Benchmark* benchmark) {
    benchmark->Arg(1'000)->Arg(100'000)->UseManualTime();
}

BENCHMARK(firstEntryLoaded)->Name("FirstEntry/loaded")->Apply(sizes);
BENCHMARK(firstEntryFromMemory)->Name("FirstEntry/memory")->Apply(sizes);
BENCHMARK(readFolder)->Name("FirstEntry/readdir")->Apply(sizes);

}  // namespace

}  // namespace Ormek::Bench
