#pragma once

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

namespace Ormek::Testing {

/// A fresh folder of its own, removed with all that is in it at the end of its life.
class TemporaryFolder {
  public:
    TemporaryFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "ormek-XXXXXX").string();
        if (!mkdtemp(name.data())) {
            throw std::system_error(errno, std::generic_category(), name);
        }
        _path = name;
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(_path, ignored);
    }

    const std::filesystem::path& path() const { return _path; }
    std::filesystem::path operator/(const std::filesystem::path& name) const {
        return _path / name;
    }

    /// Writes a file, over one that is there already; `name` may be a path below the folder.
    std::filesystem::path writeFile(const std::filesystem::path& name,
                                    const std::string& content = "") const {
        std::ofstream file(_path / name, std::ios::binary);
        file << content;
        file.close();
        if (!file) {
            throw std::system_error(errno, std::generic_category(), name.string());
        }
        return _path / name;
    }
    /// Makes a folder and those on the way to it.
    std::filesystem::path makeFolder(const std::filesystem::path& name) const {
        std::filesystem::create_directories(_path / name);
        return _path / name;
    }

  private:
    std::filesystem::path _path;
};

}  // namespace Ormek::Testing
