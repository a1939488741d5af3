#include "backend/Durability.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdio>

#include "backend/FileDescriptor.h"
#include "backend/Uninterrupted.h"

namespace Nimra {

void makeDurable(int fd, int neighbour) {
    // Not a string, which could find no memory: what is to be made durable has taken effect.
    std::array<char, 32> self{};
    std::snprintf(self.data(), self.size(), "/proc/self/fd/%d", fd);
    constexpr int Flags = O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    const FileDescriptor opened(uninterrupted([&] { return open(self.data(), Flags); }));
    if (opened) {
        uninterrupted([&] { return fsync(opened.get()); });
    } else if (neighbour >= 0) {
        syncfs(neighbour);
    } else {
        sync();
    }
}

}  // namespace Nimra
