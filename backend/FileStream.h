#pragma once

#include <sys/stat.h>

#include <string>

#include "backend/OpenFolder.h"
#include "service/DocumentStream.h"

namespace Nimra {

/// The content of a regular file, read through a descriptor of its own.
class FileStream : public DocumentStream {
  public:
    /// Opens an entry of a folder, never following it. Waits only for somebody who has a lease on
    /// it, see fcntl(2), to give that back. Throws ServiceError when it is no regular file or
    /// cannot be opened.
    FileStream(const OpenFolder& folder, const std::string& name);

    /// Of the file that was opened, whatever has its name now. Throw ServiceError.
    struct statx status() const;
    KeyValues keyValues() const;

    unsigned long size() const override;
    std::size_t read(unsigned long offset, char* buffer, std::size_t size) const override;

  private:
    std::string _text;
    FileDescriptor _fd;
};

}  // namespace Nimra
