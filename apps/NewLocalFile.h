#pragma once

#include <optional>
#include <string>

#include "backend/FileDescriptor.h"
#include "backend/FileWriter.h"
#include "backend/OpenFolder.h"

namespace App {

/// A new file of this machine, which appears under its name whole or not at all, and never in the
/// place of something else. Functions throw CommandError.
class NewLocalFile {
  public:
    /// Fails early where the name is taken.
    explicit NewLocalFile(const std::string& path);

    /// Appends to the content.
    void write(const char* data, std::size_t size);
    /// Gives the file its name. Only once, as the last thing.
    void publish();

  private:
    template <class Work>
    void attempt(Work work);
    void open(const std::string& folder, const std::string& name);

    std::string _text;
    Nimra::FileDescriptor _root;
    std::optional<Nimra::OpenFolder> _folder;
    std::optional<Nimra::FileWriter> _file;
};

}  // namespace App
