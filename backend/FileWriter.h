#pragma once

#include <cstddef>
#include <ctime>
#include <limits>
#include <string>

#include "backend/FileDescriptor.h"
#include "backend/OpenFolder.h"
#include "service/KeyValues.h"
#include "service/ServiceError.h"

namespace Nimra {

/// Writes a new file of a folder so that it appears under its name whole or not at all, whenever
/// the process may end, and never in the place of something else.
///
/// Until then the file has no name, and is gone with its writer or the process. On a file system
/// that has no files without a name it has one of makeTemporaryName(), which folders do not list;
/// its writer removes it, but a process that is killed leaves it behind. While it is written it is
/// locked with flock(2), which tells it from what was left. One that has no renaming that never
/// overwrites must have hard links.
///
/// The folder must live as long as the writer. One thread at a time. Functions throw ServiceError.
class FileWriter {
  public:
    /// Where the content goes until it is complete.
    enum class Staging { NamelessIfPossible, Named };

    /// `name` must be one that checkNewName() takes.
    FileWriter(const OpenFolder& folder, std::string name,
               Staging staging = Staging::NamelessIfPossible);
    FileWriter(const FileWriter&) = delete;
    FileWriter& operator=(const FileWriter&) = delete;
    ~FileWriter();

    /// Appends to the content.
    void write(const char* data, std::size_t size);
    /// Gives the file these attributes.
    void setAttributes(const KeyValues& values);
    /// The file as it is so far.
    struct statx status() const;
    /// Makes sure that the content and the attributes are on the disk, gives the file its name, and
    /// makes that durable too. Fails with Reason::Exists when the name is taken; no failure leaves
    /// anything behind. Only once, as the last thing.
    void publish();

  private:
    void openNamed();
    void giveName();
    int linkNameless() const;
    int renameTemporary() const;
    int linkTemporary() const;
    ServiceError failure(int error) const;

    const OpenFolder& _folder;
    std::string _name;
    std::string _temporaryName;  ///< Empty when the file has none.
    FileDescriptor _fd;
};

constexpr std::time_t AnyTime = std::numeric_limits<std::time_t>::max();

/// Removes what killed processes left in a folder under a temporary name, if it was changed last
/// before that time, and nothing that is still being written, which is also thought of what may not
/// be opened. On network file systems whose locks do not reach from one machine to another, time
/// alone tells. Throws ServiceError when it cannot look, or cannot remove something.
void removeAbandonedFiles(const OpenFolder& folder, std::time_t before = AnyTime);

}  // namespace Nimra
