#include "backend/Durability.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>

#include "backend/FileDescriptor.h"
#include "backend/Uninterrupted.h"

namespace Nimra {

namespace {

bool onOneFileSystem(int fd, int other) {
    struct stat one {};
    struct stat two {};
    return fstat(fd, &one) == 0 && fstat(other, &two) == 0 && one.st_dev == two.st_dev;
}

}  // namespace

void makeDurable(int fd, int neighbour) {
    // Not a string, which could find no memory: what is to be made durable has taken effect.
    std::array<char, 32> self{};
    std::snprintf(self.data(), self.size(), "/proc/self/fd/%d", fd);
    constexpr int Flags = O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    const FileDescriptor opened(uninterrupted([&] { return open(self.data(), Flags); }));
    const bool exhausted = !opened && (errno == EMFILE || errno == ENFILE || errno == ENOMEM);
    if (opened) {
        uninterrupted([&] { return fsync(opened.get()); });
    } else if (onOneFileSystem(fd, neighbour)) {
        syncfs(neighbour);
    } else if (!exhausted) {
        sync();
    }
}

}  // namespace Nimra
