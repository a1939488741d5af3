#include "backend/RandomText.h"

#include <sys/random.h>

#include <cerrno>
#include <string_view>

#include "backend/SystemError.h"
#include "backend/Uninterrupted.h"

namespace Nimra {

std::string randomText(std::size_t bytes) {
    constexpr std::string_view Digits = "0123456789abcdef";
    std::string random(bytes, '\0');
    for (std::size_t filled = 0; filled < bytes;) {
        const ssize_t got =
            uninterrupted([&] { return getrandom(random.data() + filled, bytes - filled, 0); });
        if (got < 0) {
            throw systemError(errno, "cannot get random numbers");
        }
        filled += static_cast<std::size_t>(got);
    }
    std::string text;
    text.reserve(2 * bytes);
    for (const char byte : random) {
        const auto value = static_cast<unsigned char>(byte);
        text += Digits[value >> 4U];
        text += Digits[value & 15U];
    }
    return text;
}

}  // namespace Nimra
