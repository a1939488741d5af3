#include <gtest/gtest.h>

#include <exception>
#include <fstream>
#include <ios>
#include <iostream>
#include <streambuf>
#include <string>

#include "tests/cache/CacheOperations.h"
#include "tests/cache/FaultTrial.h"

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

}  // namespace
}  // namespace Ormek::Testing
