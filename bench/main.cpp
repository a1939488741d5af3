// Runs the benchmarks with the cache's trace off and reports on a stream of its own.

#include <benchmark/benchmark.h>

#include <condition_variable>
#include <iostream>
#include <mutex>
#include <thread>

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

}  // namespace

int main(int argc, char** argv) {
    std::ostream out(std::cout.rdbuf());
    std::cout.setstate(std::ios::failbit);
    const SecondThread second;
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::ConsoleReporter reporter(benchmark::ConsoleReporter::OO_None);
    reporter.SetOutputStream(&out);
    reporter.SetErrorStream(&std::cerr);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
