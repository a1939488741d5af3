#include "tests/support/SystemCallFaults.h"

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <linux/limits.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <mutex>
#include <type_traits>
#include <utility>

namespace Ormek::Testing {

/// What is to happen to the calls of this process, and who writes them down.
class Watch {
  public:
    struct Verdict {
        bool strikes = false;
        int error = 0;
    };

    void add(CallFault* fault) { change(_faults, fault, true); }
    void remove(CallFault* fault) { change(_faults, fault, false); }
    void add(CallTrace* trace) { change(_traces, trace, true); }
    void remove(CallTrace* trace) { change(_traces, trace, false); }

    /// Asked for each call; `fd` is -1 where it is given none.
    Verdict verdict(const char* call, int fd) {
        // Nearly always, and also before this object is constructed.
        if (_watchers == 0) {
            return {};
        }
        const std::lock_guard lock(mutex);
        for (CallTrace* trace : _traces) {
            trace->_calls.push_back({call, fd < 0 ? "" : pathOf(fd)});
        }
        Verdict verdict;
        for (CallFault* fault : _faults) {
            if (fault->_left > 0 && fault->_call == call && --fault->_left == 0) {
                verdict = {true, fault->_error};
            }
        }
        return verdict;
    }

    mutable std::mutex mutex;

  private:
    template <class Watcher>
    void change(std::vector<Watcher*>& watchers, Watcher* one, bool isNew) {
        const std::lock_guard lock(mutex);
        if (isNew) {
            watchers.push_back(one);
        } else {
            watchers.erase(std::find(watchers.begin(), watchers.end(), one));
        }
        _watchers = static_cast<int>(_faults.size() + _traces.size());
    }

    static std::string pathOf(int fd) {
        const std::string link = "/proc/self/fd/" + std::to_string(fd);
        std::array<char, PATH_MAX> path{};
        // Not by a function that is watched.
        const long size = syscall(SYS_readlinkat, AT_FDCWD, link.c_str(), path.data(), path.size());
        return {path.data(), static_cast<std::size_t>(std::max(size, 0L))};
    }

    std::atomic<int> _watchers = 0;
    std::vector<CallFault*> _faults;
    std::vector<CallTrace*> _traces;
};

namespace {

Watch watch;

template <class Function>
Function* nextOf(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

/// Makes the call unless it is to fail.
template <class Forward>
auto unlessFailing(const char* name, int fd, Forward forward) -> decltype(forward()) {
    const Watch::Verdict verdict = watch.verdict(name, fd);
    if (!verdict.strikes) {
        return forward();
    }
    errno = verdict.error;
    if constexpr (std::is_pointer_v<decltype(forward())>) {
        return nullptr;
    } else {
        return -1;
    }
}

/// The function of that name behind the one that is defined here, which only tells the type.
template <class Result, class... Arguments>
class Next {
  public:
    Next(const char* name, Result (*)(Arguments...))
        : _name(name), _function(nextOf<Result(Arguments...)>(name)) {}

    Result operator()(Arguments... arguments) const { return call(-1, arguments...); }
    /// The same for a call that is given a descriptor.
    Result on(int fd, Arguments... arguments) const { return call(fd, arguments...); }

  private:
    Result call(int fd, Arguments... arguments) const {
        return unlessFailing(_name, fd, [&] { return _function(arguments...); });
    }

    const char* _name;
    Result (*_function)(Arguments...);
};

bool takesMode(int flags) { return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE; }

}  // namespace

CallFault::CallFault(std::string call, int error, unsigned nth)
    : _call(std::move(call)), _error(error), _left(nth) {
    watch.add(this);
}

CallFault::~CallFault() { watch.remove(this); }

bool CallFault::happened() const {
    const std::lock_guard lock(watch.mutex);
    return _left == 0;
}

CallTrace::CallTrace() { watch.add(this); }

CallTrace::~CallTrace() { watch.remove(this); }

std::vector<SystemCall> CallTrace::calls() const {
    const std::lock_guard lock(watch.mutex);
    return _calls;
}

std::vector<std::string> CallTrace::paths(const std::string& name) const {
    std::vector<std::string> paths;
    for (const SystemCall& call : calls()) {
        if (call.name == name) {
            paths.push_back(call.path);
        }
    }
    return paths;
}

}  // namespace Ormek::Testing

// --- The functions that take the place of the C library's ------------------------------------

using namespace Ormek::Testing;

extern "C" {

int fsync(int fd) {
    static const Next next("fsync", &fsync);
    return next.on(fd, fd);
}

int syncfs(int fd) noexcept {
    static const Next next("syncfs", &syncfs);
    return next.on(fd, fd);
}

void sync() noexcept {
    static auto* const next = nextOf<void()>("sync");
    watch.verdict("sync", -1);
    next();
}

int open(const char* path, int flags, ...) {
    static auto* const next = nextOf<int(const char*, int, ...)>("open");
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = takesMode(flags) ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return unlessFailing("open", -1, [&] { return next(path, flags, mode); });
}

int linkat(int from, const char* path, int to, const char* name, int flags) noexcept {
    static const Next next("linkat", &linkat);
    return next.on(from, from, path, to, name, flags);
}

int renameat2(int from, const char* path, int to, const char* name, unsigned flags) noexcept {
    static const Next next("renameat2", &renameat2);
    return next.on(from, from, path, to, name, flags);
}

int mkdirat(int folder, const char* name, mode_t mode) noexcept {
    static const Next next("mkdirat", &mkdirat);
    return next.on(folder, folder, name, mode);
}

int unlinkat(int folder, const char* name, int flags) noexcept {
    static const Next next("unlinkat", &unlinkat);
    return next.on(folder, folder, name, flags);
}

int setxattr(const char* path, const char* name, const void* value, size_t size,
             int flags) noexcept {
    static const Next next("setxattr", &setxattr);
    return next(path, name, value, size, flags);
}

}  // extern "C"
