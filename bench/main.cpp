// Runs the benchmarks with the cache's trace off and reports on a stream of its own.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <condition_variable>
#include <iostream>
#include <mutex>
#include <ostream>
#include <thread>
#include <vector>

namespace {

/// With a second thread in the process, reference counts are atomic as they are in life.
class SecondThread {
  public:
    SecondThread() : _thread([this] { waitForEnd(); }) {}
    SecondThread(const SecondThread&) = delete;
    SecondThread& operator=(const SecondThread&) = delete;
    ~SecondThread() {
        {
            const std::lock_guard lock(_mutex);
            _ended = true;
        }
        _changed.notify_one();
        _thread.join();
    }

  private:
    void waitForEnd() {
        std::unique_lock lock(_mutex);
        _changed.wait(lock, [this] { return _ended; });
    }

    std::mutex _mutex;
    std::condition_variable _changed;
    bool _ended = false;
    std::thread _thread;
};

/// A benchmark whose work went wrong measured nothing.
class Reporter : public benchmark::ConsoleReporter {
  public:
    explicit Reporter(std::ostream& out) : ConsoleReporter(OO_None) {
        SetOutputStream(&out);
        SetErrorStream(&std::cerr);
    }
    void ReportRuns(const std::vector<Run>& runs) override {
        _failed |= std::any_of(runs.begin(), runs.end(),
                               [](const Run& run) { return run.error_occurred; });
        ConsoleReporter::ReportRuns(runs);
    }
    bool failed() const { return _failed; }

  private:
    bool _failed = false;
};

}  // namespace

int main(int argc, char** argv) {
    std::ostream out(std::cout.rdbuf());
    std::cout.setstate(std::ios::failbit);
    const SecondThread second;
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    Reporter reporter(out);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return reporter.failed() ? 1 : 0;
}
