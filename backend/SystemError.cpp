#include "backend/SystemError.h"

#include <glib.h>

#include <cerrno>
#include <system_error>

namespace Nimra {

namespace {

/// The length in bytes of the printable character that `text` starts with; 0 when there is none.
std::size_t printableLength(std::string_view text) {
    const gunichar character =
        g_utf8_get_char_validated(text.data(), static_cast<gssize>(text.size()));
    const bool valid = character != static_cast<gunichar>(-1) &&  //
                       character != static_cast<gunichar>(-2);
    if (!valid || g_unichar_iscntrl(character)) {
        return 0;
    }
    return static_cast<std::size_t>(g_unichar_to_utf8(character, nullptr));
}

std::string escaped(char byte) {
    constexpr std::string_view Special = "\a\b\t\n\v\f\r";
    constexpr std::string_view Letters = "abtnvfr";
    const auto found = Special.find(byte);
    if (found != std::string_view::npos) {
        return {'\\', Letters[found]};
    }
    const auto value = static_cast<unsigned char>(byte);
    const auto digit = [value](unsigned shift) {
        return static_cast<char>('0' + (value >> shift & 7U));
    };
    return {'\\', digit(6), digit(3), digit(0)};
}

}  // namespace

Reason reasonOf(int error) {
    switch (error) {
        case ENOENT:
        case ENOTDIR:
        case EISDIR:
        case ESTALE:
            return Reason::NotFound;
        case EEXIST:
        case ENOTEMPTY:
            return Reason::Exists;
        case EACCES:
        case EPERM:
        case EROFS:
            return Reason::NoPermission;
        case ENOSPC:
        case EDQUOT:
        case EFBIG:
            return Reason::NoSpace;
        case ENOTCONN:
        case ETIMEDOUT:
        case EHOSTDOWN:
        case EHOSTUNREACH:
        case ENETDOWN:
        case ENETUNREACH:
        case ECONNABORTED:
        case ECONNREFUSED:
        case ECONNRESET:
        case ENOLINK:
        case ENODEV:
        case ENXIO:
        case ENOMEDIUM:
            return Reason::NotReachable;
        case ELOOP:
        case EXDEV:
        case EBUSY:
        case ENAMETOOLONG:
        case EILSEQ:
        case ETXTBSY:
        case EMLINK:
        case ENOTSUP:
            return Reason::Refused;
        default:
            return Reason::Internal;
    }
}

ServiceError systemError(int error, const std::string& what) {
    return {reasonOf(error), what + ": " + std::generic_category().message(error)};
}

ServiceError namingError(int error, const std::string& what) {
    if (error == EINVAL || error == ENOSYS) {
        return {Reason::Refused, what + ": its file system refuses it"};
    }
    return systemError(error, what);
}

std::string quotedName(std::string_view name) {
    std::string text = "'";
    while (!name.empty()) {
        const char first = name.front();
        std::size_t length = printableLength(name);
        if (length == 0) {
            text += escaped(first);
            length = 1;
        } else {
            if (first == '\'' || first == '\\') {
                text += '\\';
            }
            text += name.substr(0, length);
        }
        name.remove_prefix(length);
    }
    return text + '\'';
}

}  // namespace Nimra
