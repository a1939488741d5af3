#pragma once

#include <benchmark/benchmark.h>

#include <ctime>

namespace Ormek::Bench {

/// Seconds of processor time that this thread has used. What others do on the machine does not
/// count.
inline double cpuSeconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

/// A function of its own, so that a profiler can be told to count this and nothing else.
template <class Work>
[[gnu::noinline]] void measured(Work& work) {
    work();
}

/// Adds what `work()` takes to the time of an iteration, for benchmarks with manual time.
class Stopwatch {
  public:
    template <class Work>
    void time(Work work) {
        const double begin = cpuSeconds();
        measured(work);
        _seconds += cpuSeconds() - begin;
    }
    void report(benchmark::State& state) {
        state.SetIterationTime(_seconds);
        _seconds = 0;
    }

  private:
    double _seconds = 0;
};

/// The next of some numbers, round and round.
template <class Numbers>
class Round {
  public:
    explicit Round(const Numbers& numbers) : _numbers(numbers) {}
    auto next() {
        _at = _at + 1 == _numbers.size() ? 0 : _at + 1;
        return _numbers[_at];
    }

  private:
    const Numbers& _numbers;
    std::size_t _at = 0;
};

}  // namespace Ormek::Bench
