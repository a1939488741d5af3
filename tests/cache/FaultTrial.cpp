#include "tests/cache/FaultTrial.h"

#include <pthread.h>

#include <algorithm>
#include <cstdio>
#include <mutex>

#include "tests/support/FaultPoints.h"
#include "tests/support/SilentOutput.h"

namespace Ormek::Testing {

namespace {

/// Asked in this way, the very thread that holds it gets an answer, too.
bool isFree(std::mutex& mutex) {
    if (pthread_mutex_trylock(mutex.native_handle()) != 0) {
        return false;
    }
    mutex.unlock();
    return true;
}

void expectFreeMutexes(CacheWorld& world) {
    EXPECT_TRUE(isFree(world.probe.itemsMutex()));
    EXPECT_TRUE(isFree(world.probe.mutex()));
}

}  // namespace

FaultTrial::FaultTrial(const CacheOperation& operation) : _operation(operation) {
    const SilentOutput silent;
    CacheWorld world;
    operation.arrange(world);
    _states.push_back(world.state());
    for (const CacheEdit& step : operation.steps) {
        step(world);
        _states.push_back(world.state());
    }
}

void FaultTrial::check(CacheWorld& world, Outcome outcome) {
    expectFreeMutexes(world);
    checkState(world, outcome);
    if (outcome == Outcome::Thrown && !_operation.leavesAnOperationAllocated) {
        checkThatItWorksOn(world);
    }
}

void FaultTrial::checkState(CacheWorld& world, Outcome outcome) {
    const std::string state = world.state();
    if (outcome != Outcome::Thrown) {
        EXPECT_EQ(state, _states.back());
        return;
    }
    const auto from = _states.begin() + static_cast<std::ptrdiff_t>(_reached);
    const auto found = std::find(from, _states.end(), state);
    if (found == _states.end()) {
        EXPECT_EQ(state, *from) << "and no later step leaves it either";
    } else {
        _reached = static_cast<unsigned long>(found - _states.begin());
    }
}

void FaultTrial::checkThatItWorksOn(CacheWorld& world) {
    const SilentOutput silent;
    EXPECT_NO_THROW(_operation.act(world));
    expectFreeMutexes(world);
}

void FaultTrial::checkBlocks(unsigned long before, Outcome outcome) const {
    const unsigned long now = AllocationFaults::liveBlocks();
    if (_operation.leavesAnOperationAllocated && outcome != Outcome::Thrown) {
        EXPECT_GT(now, before);
    } else {
        EXPECT_EQ(now, before);
    }
}

void tryEveryFault(const CacheOperations& family,
                   const std::function<unsigned long(FaultTrial&)>& trial) {
    unsigned long tried = 0;
    for (const CacheOperation& operation : family) {
        SCOPED_TRACE(operation.name);
        FaultTrial one(operation);
        tried += trial(one);
    }
    noteFaultPoints(tried);
}

}  // namespace Ormek::Testing
