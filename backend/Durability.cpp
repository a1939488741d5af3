#include "backend/Durability.h"

#include <fcntl.h>
#include <unistd.h>

#include <string>

#include "backend/FileDescriptor.h"
#include "backend/Uninterrupted.h"

namespace Nimra {

void makeDurable(int fd, int neighbour) {
    const std::string self = "/proc/self/fd/" + std::to_string(fd);
    constexpr int Flags = O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    const FileDescriptor opened(uninterrupted([&] { return open(self.c_str(), Flags); }));
    if (opened) {
        uninterrupted([&] { return fsync(opened.get()); });
    } else if (neighbour >= 0) {
        syncfs(neighbour);
    } else {
        sync();
    }
}

}  // namespace Nimra
