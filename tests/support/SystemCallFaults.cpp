#include "tests/support/SystemCallFaults.h"

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <linux/limits.h>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstddef>
#include <mutex>
#include <type_traits>
#include <utility>

namespace Ormek::Testing {

namespace {

void killThisProcess() { kill(getpid(), SIGKILL); }

}  // namespace

/// What is to happen to the calls of this process, and who writes them down.
class Watch {
  public:
    struct Verdict {
        bool strikes = false;
        int error = 0;
        bool isLast = false;  ///< What is called then is never returned from.

        /// To be told that the call was made, or has failed.
        void carriedOut() const {
            if (isLast) {
                killThisProcess();
            }
        }
    };

    void add(CallFault* fault) { change(_faults, fault, true); }
    void remove(CallFault* fault) { change(_faults, fault, false); }
    void add(CallTrace* trace) { change(_traces, trace, true); }
    void remove(CallTrace* trace) { change(_traces, trace, false); }
    void add(KillingCall* killing) { change(_killings, killing, true); }
    void remove(KillingCall* killing) { change(_killings, killing, false); }

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
            const bool strikes = fault->_left > 0 && fault->_call == call && --fault->_left == 0;
            if (strikes && !verdict.strikes) {
                verdict = {true, fault->_error};
            }
        }
        for (KillingCall* killing : _killings) {
            if (killing->_left == 0 || --killing->_left > 0) {
                continue;
            }
            if (killing->_moment == KillingCall::Moment::BeforeTheCall) {
                killThisProcess();
            }
            verdict.isLast = true;
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
        _watchers = static_cast<int>(_faults.size() + _traces.size() + _killings.size());
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
    std::vector<KillingCall*> _killings;
};

namespace {

Watch watch;
std::atomic<int> unknownKinds = 0;
std::atomic<int> unsyncedDisks = 0;

void forgetKinds(char* records, ssize_t size) {
    for (ssize_t at = 0; at < size;) {
        auto* record = reinterpret_cast<dirent64*>(records + at);
        record->d_type = DT_UNKNOWN;
        at += record->d_reclen;
    }
}

template <class Function>
Function* nextOf(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

template <class Result>
Result failure(int error) {
    errno = error;
    if constexpr (std::is_pointer_v<Result>) {
        return nullptr;
    } else {
        return -1;
    }
}

/// Makes the call unless it is to fail.
template <class Forward>
auto unlessFailing(const char* name, int fd, Forward forward) {
    const Watch::Verdict verdict = watch.verdict(name, fd);
    const auto result = verdict.strikes ? failure<decltype(forward())>(verdict.error) : forward();
    verdict.carriedOut();
    return result;
}

/// The same for a call that may transfer less than `size` bytes.
template <class Transfer>
ssize_t transferring(const char* name, int fd, size_t size, Transfer transfer) {
    const Watch::Verdict verdict = watch.verdict(name, fd);
    const bool fails = verdict.strikes && verdict.error != 0;
    const ssize_t result = fails ? failure<ssize_t>(verdict.error)
                                 : transfer(verdict.strikes ? std::min<size_t>(size, 1) : size);
    verdict.carriedOut();
    return result;
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

KillingCall::KillingCall(unsigned nth, Moment moment) : _left(nth), _moment(moment) {
    watch.add(this);
}

KillingCall::~KillingCall() { watch.remove(this); }

UnknownKinds::UnknownKinds() { ++unknownKinds; }

UnknownKinds::~UnknownKinds() { --unknownKinds; }

UnsyncedDisk::UnsyncedDisk() { ++unsyncedDisks; }

UnsyncedDisk::~UnsyncedDisk() { --unsyncedDisks; }

CallTrace::CallTrace() { watch.add(this); }

CallTrace::~CallTrace() { watch.remove(this); }

std::vector<SystemCall> CallTrace::calls() const {
    const std::lock_guard lock(watch.mutex);
    return _calls;
}

}  // namespace Ormek::Testing

// --- The functions that take the place of the C library's ------------------------------------

using namespace Ormek::Testing;

// They are defined as the headers declare them, and so throw nothing where these say so.

extern "C" {

// --- Opening ---

int open(const char* path, int flags, ...) {
    static auto* const next = nextOf<int(const char*, int, ...)>("open");
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = takesMode(flags) ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return unlessFailing("open", -1, [&] { return next(path, flags, mode); });
}

int openat(int folder, const char* path, int flags, ...) {
    static auto* const next = nextOf<int(int, const char*, int, ...)>("openat");
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = takesMode(flags) ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    const char* name = takesMode(flags) ? "openat+create" : "openat";
    return unlessFailing(name, folder, [&] { return next(folder, path, flags, mode); });
}

/// Passes on as many arguments as a call can have; those that were not given are never looked at.
__attribute__((no_sanitize("address"))) long syscall(long number, ...) noexcept {
    static auto* const next = nextOf<long(long, ...)>("syscall");
    va_list list;
    va_start(list, number);
    const long a = va_arg(list, long);
    const long b = va_arg(list, long);
    const long c = va_arg(list, long);
    const long d = va_arg(list, long);
    const long e = va_arg(list, long);
    const long f = va_arg(list, long);
    va_end(list);
    const auto forward = [&] { return next(number, a, b, c, d, e, f); };
    return number == SYS_openat2 ? unlessFailing("openat2", static_cast<int>(a), forward)
                                 : forward();
}

int eventfd(unsigned count, int flags) noexcept {
    static const Next next("eventfd", &eventfd);
    return next(count, flags);
}

// --- Content ---

ssize_t write(int fd, const void* data, size_t size) {
    static auto* const next = nextOf<ssize_t(int, const void*, size_t)>("write");
    return transferring("write", fd, size, [&](size_t part) { return next(fd, data, part); });
}

ssize_t pread(int fd, void* data, size_t size, off_t offset) {
    static auto* const next = nextOf<ssize_t(int, void*, size_t, off_t)>("pread");
    return transferring("pread", fd, size,
                        [&](size_t part) { return next(fd, data, part, offset); });
}

ssize_t getrandom(void* data, size_t size, unsigned flags) {
    static auto* const next = nextOf<ssize_t(void*, size_t, unsigned)>("getrandom");
    return transferring("getrandom", -1, size,
                        [&](size_t part) { return next(data, part, flags); });
}

int fsync(int fd) {
    static auto* const next = nextOf<int(int)>("fsync");
    return unlessFailing("fsync", fd, [fd] { return unsyncedDisks > 0 ? 0 : next(fd); });
}

int syncfs(int fd) noexcept {
    static auto* const next = nextOf<int(int)>("syncfs");
    return unlessFailing("syncfs", fd, [fd] { return unsyncedDisks > 0 ? 0 : next(fd); });
}

void sync() noexcept {
    static auto* const next = nextOf<void()>("sync");
    const Watch::Verdict verdict = watch.verdict("sync", -1);
    if (unsyncedDisks == 0) {
        next();
    }
    verdict.carriedOut();
}

int flock(int fd, int operation) noexcept {
    static const Next next("flock", &flock);
    return next.on(fd, fd, operation);
}

// --- Looking ---

int statx(int folder, const char* path, int flags, unsigned mask, struct statx* status) noexcept {
    static const Next next("statx", &statx);
    return next.on(folder, folder, path, flags, mask, status);
}

int fstat(int fd, struct stat* status) noexcept {
    static const Next next("fstat", &fstat);
    return next.on(fd, fd, status);
}

int access(const char* path, int mode) noexcept {
    static const Next next("access", &access);
    return next(path, mode);
}

ssize_t readlink(const char* path, char* target, size_t size) noexcept {
    static const Next next("readlink", &readlink);
    return next(path, target, size);
}

ssize_t getdents64(int folder, void* records, size_t size) noexcept {
    static const Next next("getdents64", &getdents64);
    const ssize_t read = next.on(folder, folder, records, size);
    if (unknownKinds > 0) {
        forgetKinds(static_cast<char*>(records), read);
    }
    return read;
}

DIR* fdopendir(int folder) {
    static const Next next("fdopendir", &fdopendir);
    return next.on(folder, folder);
}

dirent64* readdir64(DIR* listing) {
    static const Next next("readdir64", &readdir64);
    return next(listing);
}

// --- Names ---

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

// --- Attributes ---

int setxattr(const char* path, const char* name, const void* value, size_t size,
             int flags) noexcept {
    static const Next next("setxattr", &setxattr);
    return next(path, name, value, size, flags);
}

int removexattr(const char* path, const char* name) noexcept {
    static const Next next("removexattr", &removexattr);
    return next(path, name);
}

ssize_t listxattr(const char* path, char* list, size_t size) noexcept {
    static const Next next("listxattr", &listxattr);
    return next(path, list, size);
}

ssize_t llistxattr(const char* path, char* list, size_t size) noexcept {
    static const Next next("llistxattr", &llistxattr);
    return next(path, list, size);
}

ssize_t getxattr(const char* path, const char* name, void* value, size_t size) noexcept {
    static const Next next("getxattr", &getxattr);
    return next(path, name, value, size);
}

ssize_t lgetxattr(const char* path, const char* name, void* value, size_t size) noexcept {
    static const Next next("lgetxattr", &lgetxattr);
    return next(path, name, value, size);
}

}  // extern "C"
