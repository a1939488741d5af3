#include "tests/support/LockFaults.h"

#include <pthread.h>

#include "tests/support/NextDefinition.h"

#ifndef __has_feature
#define __has_feature(feature) 0
#endif
#if defined(__SANITIZE_THREAD__) || __has_feature(thread_sanitizer)
#define ORMEK_LOCKS_ARE_SEEN_BY_A_SANITIZER
#endif

namespace Ormek::Testing {

namespace {

// Without initialisers to run, so that a lock taken before the first constructor finds them, too.
thread_local unsigned long counted = 0;
thread_local unsigned long failing = 0;  // None when 0.
thread_local int errorToGive = 0;

}  // namespace

LockFaults::LockFaults(unsigned long nth, int error) {
    counted = 0;
    failing = nth;
    errorToGive = error;
}

LockFaults::~LockFaults() { failing = 0; }

bool LockFaults::struck() const { return counted >= failing; }

#ifdef ORMEK_LOCKS_ARE_SEEN_BY_A_SANITIZER

bool LockFaults::arePossible() { return false; }

}  // namespace Ormek::Testing

#else

bool LockFaults::arePossible() { return true; }

namespace {

constinit NextDefinition<int(pthread_mutex_t*)> lockMutex("pthread_mutex_lock");

int lockOrFail(pthread_mutex_t* mutex) {
    if (failing != 0 && ++counted == failing) {
        return errorToGive;
    }
    return lockMutex(mutex);
}

}  // namespace

}  // namespace Ormek::Testing

extern "C" int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
    return Ormek::Testing::lockOrFail(mutex);
}

#endif
