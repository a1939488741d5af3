#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <exception>
#include <fstream>
#include <ios>
#include <iostream>
#include <regex>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <thread>

#include "tests/cache/CacheOperations.h"
#include "tests/cache/FaultTrial.h"
#include "tests/support/TraceCapture.h"

namespace Ormek::Testing {
namespace {

/// What a buffer throws that throws by itself.
struct BufferFailure : std::exception {};

/// How a write to the stream fails.
enum class Manner {
    Refused,
    CutInTheMiddle,
    CutBeforeTheLineEnds,
    Thrown,
};

/// Takes writes and flushes up to the n-th, which fails, as all do from then on.
class FailingBuffer : public std::streambuf {
  public:
    FailingBuffer(unsigned long nth, Manner manner) : _left(nth), _manner(manner) {}

    bool failed() const { return _left == 0; }
    /// Attempts after the failed one.
    unsigned long later() const { return _later; }

  private:
    bool fails() {
        _later += _left == 0 ? 1 : 0;
        _left -= _left == 0 ? 0 : 1;
        if (_left == 0 && _manner == Manner::Thrown) {
            throw BufferFailure();
        }
        return _left == 0;
    }

    std::streamsize xsputn(const char* /*text*/, std::streamsize size) override {
        if (!fails()) {
            return size;
        }
        switch (_manner) {
            case Manner::CutInTheMiddle:
                return size / 2;
            case Manner::CutBeforeTheLineEnds:
                return size - 1;
            default:
                return 0;
        }
    }
    int_type overflow(int_type character) override {
        return fails() ? traits_type::eof() : traits_type::not_eof(character);
    }
    int sync() override { return fails() ? -1 : 0; }

    unsigned long _left;
    Manner _manner;
    unsigned long _later = 0;
};

/// Gives std::cout another buffer, and everything back at its end.
class WithBuffer {
  public:
    explicit WithBuffer(std::streambuf* buffer) : _previous(std::cout.rdbuf(buffer)) {}
    WithBuffer(const WithBuffer&) = delete;
    WithBuffer& operator=(const WithBuffer&) = delete;
    ~WithBuffer() {
        std::cout.exceptions(std::ios_base::goodbit);
        std::cout.rdbuf(_previous);
    }

  private:
    std::streambuf* _previous;
};

/// The n-th write or flush of std::cout fails. Nobody writes to a stream that has failed.
class OutputFault {
  public:
    OutputFault(unsigned long nth, Manner manner, std::ios_base::iostate exceptions)
        : _buffer(nth, manner), _with(&_buffer) {
        std::cout.exceptions(exceptions);
    }
    OutputFault(const OutputFault&) = delete;
    OutputFault& operator=(const OutputFault&) = delete;
    ~OutputFault() { EXPECT_EQ(_buffer.later(), 0u); }

    bool struck() const { return _buffer.failed(); }

  private:
    FailingBuffer _buffer;
    WithBuffer _with;
};

CacheOperations allOperations() {
    return lookUpOperations() + objectOperations() + containerOperations() + removalOperations() +
           queryOperations() + mergeOperations() + actionOperations();
}

class CacheOutputTest : public testing::TestWithParam<Manner> {
  protected:
    template <class Exception>
    static void tryEveryWrite(std::ios_base::iostate exceptions) {
        tryEveryFault(allOperations(), [exceptions](FaultTrial& trial) {
            return trial.failAtEveryPoint<Exception>([exceptions](unsigned long nth) {
                return OutputFault(nth, GetParam(), exceptions);
            });
        });
    }
};

/// What no write throws: every failure has to have no effect at all.
struct Nothing {};

TEST_P(CacheOutputTest, ThatFailsHasNoEffectOnTheOperation) {
    tryEveryWrite<Nothing>(std::ios_base::goodbit);
}

TEST_P(CacheOutputTest, ThatFailsAndIsToldToThrowLeavesWhatTheStepsBeforeLeave) {
    if (GetParam() == Manner::Thrown) {
        tryEveryWrite<BufferFailure>(std::ios_base::badbit);
    } else {
        tryEveryWrite<std::ios_base::failure>(std::ios_base::badbit);
    }
}

std::string nameOf(const testing::TestParamInfo<Manner>& info) {
    switch (info.param) {
        case Manner::Refused:
            return "Refused";
        case Manner::CutInTheMiddle:
            return "CutInTheMiddle";
        case Manner::CutBeforeTheLineEnds:
            return "CutBeforeTheLineEnds";
        default:
            return "Thrown";
    }
}

INSTANTIATE_TEST_SUITE_P(Write, CacheOutputTest,
                         testing::Values(Manner::Refused, Manner::CutInTheMiddle,
                                         Manner::CutBeforeTheLineEnds, Manner::Thrown),
                         nameOf);

// --- Output that fails from the start ------------------------------------------------------

/// An output that never strikes, since it has failed before.
struct FailedBefore {
    explicit FailedBefore(std::streambuf* buffer) : with(buffer) {}
    bool struck() const { return false; }
    WithBuffer with;
};

void passWith(std::streambuf* buffer) {
    for (const CacheOperation& operation : allOperations()) {
        FaultTrial trial(operation);
        trial.failAtEveryPoint<Nothing>([=](unsigned long) { return FailedBefore(buffer); });
    }
}

TEST(ClosedOutputTest, HasNoEffectOnAnyOperation) { passWith(nullptr); }

TEST(FullDeviceTest, HasNoEffectOnAnyOperation) {
    std::filebuf device;
    device.pubsetbuf(nullptr, 0);
    if (!device.open("/dev/full", std::ios_base::out)) {
        GTEST_SKIP() << "there is no /dev/full";
    }
    passWith(&device);
    const WithBuffer with(&device);
    EXPECT_TRUE((std::cout << "text").fail()) << "the device takes what is written";
}

// --- Output that is slow -------------------------------------------------------------------

/// How somebody reads what is written.
struct Pace {
    std::size_t mostBytes;  ///< At a time.
    std::chrono::milliseconds standstill{0};
};

/// Output to a pipe that has room for so many bytes only, until its reader takes some. What it
/// receives is appended to a text, which must have the room for it.
class SlowOutput {
  public:
    SlowOutput(std::size_t room, Pace pace, std::string& received)
        : _pace(pace), _received(received), _with(&_buffer) {
        open(room);
        _reader = std::thread([this] { read(); });
    }
    SlowOutput(const SlowOutput&) = delete;
    SlowOutput& operator=(const SlowOutput&) = delete;
    ~SlowOutput() {
        _isWritten = true;
        EXPECT_TRUE(std::cout.good());
        EXPECT_TRUE(_buffer.close());
        close(_ends[1]);
        _reader.join();
        close(_ends[0]);
    }

    /// It is no fault.
    static bool struck() { return false; }

  private:
    static constexpr int Capacity = 4096;

    void open(std::size_t room) {
        if (pipe2(_ends.data(), O_CLOEXEC) != 0 ||
            fcntl(_ends[1], F_SETPIPE_SZ, Capacity) != Capacity) {
            throw std::runtime_error("no pipe of one page");
        }
        _filled = Capacity - room;
        const std::string filling(_filled, '.');
        _buffer.pubsetbuf(nullptr, 0);
        if (write(_ends[1], filling.data(), _filled) != static_cast<ssize_t>(_filled) ||
            !_buffer.open("/proc/self/fd/" + std::to_string(_ends[1]), std::ios_base::out)) {
            throw std::runtime_error("the pipe cannot be written to");
        }
    }
    void read() {
        std::this_thread::sleep_for(_pace.standstill);
        EXPECT_FALSE(_isWritten) << "nobody waited for the reader";
        std::array<char, Capacity> piece{};
        for (;;) {
            const ssize_t size = ::read(_ends[0], piece.data(), _pace.mostBytes);
            if (size <= 0) {
                EXPECT_EQ(size, 0);
                return;
            }
            const auto count = static_cast<std::size_t>(size);
            const std::size_t filling = std::min(_filled, count);
            _filled -= filling;
            _received.append(piece.data() + filling, count - filling);
        }
    }

    Pace _pace;
    std::string& _received;
    std::array<int, 2> _ends{};
    std::size_t _filled = 0;
    std::filebuf _buffer;
    WithBuffer _with;
    std::atomic<bool> _isWritten = false;
    std::thread _reader;
};

std::string traceOf(const CacheOperation& operation) {
    CacheWorld world;
    operation.arrange(world);
    const TraceCapture trace;
    operation.act(world);
    return trace.text();
}

/// Without what differs from one time to the next: addresses, and the running numbers of
/// operations.
std::string comparable(const std::string& trace) {
    static const std::regex running("(op id|operationId): [0-9]+");
    return std::regex_replace(withoutAddresses(trace), running, "$1: <number>");
}

class SlowOutputTest : public testing::Test {
  protected:
    SlowOutputTest() {
        // What a trial allocates it has to free again.
        received.reserve(1024UL * 1024);
    }
    /// Has the pipe filled up when `part` hundredths of each trace are in it.
    void passWith(Pace pace, std::size_t part) {
        unsigned long traced = 0;
        for (const CacheOperation& operation : allOperations()) {
            SCOPED_TRACE(operation.name);
            const std::string trace = traceOf(operation);
            if (trace.empty()) {
                continue;
            }
            ++traced;
            received.clear();
            FaultTrial trial(operation);
            trial.failAtEveryPoint<Nothing>([&](unsigned long) {
                return SlowOutput(trace.size() * part / 100, pace, received);
            });
            EXPECT_EQ(comparable(received), comparable(trace));
        }
        EXPECT_GT(traced, 0U);
    }

    std::string received;
};

TEST_F(SlowOutputTest, TakenAFewBytesAtATimeArrivesWholeAndHasNoEffect) { passWith({7}, 0); }

TEST_F(SlowOutputTest, ThatStandsStillForAWhileArrivesWholeAndHasNoEffect) {
    for (const std::size_t part : {0U, 30U, 60U, 90U}) {
        SCOPED_TRACE("after " + std::to_string(part) + " % of the trace");
        passWith({1000, std::chrono::milliseconds(3)}, part);
    }
}

}  // namespace
}  // namespace Ormek::Testing
