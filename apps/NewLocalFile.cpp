#include "apps/NewLocalFile.h"

#include <fcntl.h>

#include <cerrno>

#include "apps/CommandError.h"
#include "apps/Escape.h"
#include "backend/EntryName.h"
#include "backend/SystemError.h"

namespace App {

NewLocalFile::NewLocalFile(const std::string& path) : _text(quoted(path)) {
    const std::size_t nameBegin = path.rfind('/') + 1;  // 0 without a slash.
    attempt([&] { open(path.substr(0, nameBegin), path.substr(nameBegin)); });
}

void NewLocalFile::open(const std::string& folder, const std::string& name) {
    Nimra::checkNewName(name);
    constexpr int Flags = O_PATH | O_DIRECTORY | O_CLOEXEC;
    _root = Nimra::FileDescriptor(::open(folder.empty() ? "." : folder.c_str(), Flags));
    if (!_root) {
        throw Nimra::systemError(errno, "cannot open its folder");
    }
    _folder.emplace(_root, "", Nimra::OpenFolder::Purpose::LookingUp);
    struct statx status {};
    if (_folder->status(name.c_str(), status) == 0) {
        throw Nimra::systemError(EEXIST, "");
    }
    _file.emplace(*_folder, name);
}

void NewLocalFile::write(const char* data, std::size_t size) {
    attempt([&] { _file->write(data, size); });
}

void NewLocalFile::publish() {
    attempt([&] { _file->publish(); });
}

template <class Work>
void NewLocalFile::attempt(Work work) {
    try {
        work();
    } catch (const Nimra::ServiceError& error) {
        const bool exists = error.reason() == Nimra::Reason::Exists;
        throw CommandError(_text + (exists ? " exists already" : std::string(": ") + error.what()));
    }
}

}  // namespace App
