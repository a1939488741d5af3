#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "backend/FileDescriptor.h"
#include "service/ContentSource.h"

namespace App {

/// A regular file of this machine, to be uploaded. What it reads is what the file has in it by
/// then; its size is the one that it had when it was opened.
class LocalFile : public Nimra::ContentSource {
  public:
    /// Throws CommandError when it is no regular file, or cannot be opened. Once `givenUp` is true,
    /// reading fails.
    LocalFile(const std::string& path, std::shared_ptr<const std::atomic<bool>> givenUp);

    unsigned long size() const override { return _size; }
    std::size_t read(char* buffer, std::size_t size) override;

  private:
    std::string _text;
    std::shared_ptr<const std::atomic<bool>> _givenUp;
    Nimra::FileDescriptor _fd;
    unsigned long _size = 0;
};

}  // namespace App
