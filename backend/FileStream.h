#pragma once

#include <string>

#include "backend/OpenFolder.h"
#include "service/DocumentStream.h"

namespace Nimra {

/// The content of a regular file, read through a descriptor of its own.
class FileStream : public DocumentStream {
  public:
    /// Opens an entry of a folder, never following it and never waiting for it. Throws ServiceError
    /// when it is no regular file or cannot be opened.
    FileStream(const OpenFolder& folder, const std::string& name);

    unsigned long size() const override;
    std::size_t read(unsigned long offset, char* buffer, std::size_t size) const override;

  private:
    struct stat status() const;

    std::string _text;
    FileDescriptor _fd;
};

}  // namespace Nimra
