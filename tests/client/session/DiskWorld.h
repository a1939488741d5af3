#pragma once

#include <filesystem>
#include <vector>

#include "tests/client/session/Contents.h"
#include "tests/client/session/World.h"
#include "tests/support/TemporaryFolder.h"

namespace Ormek::Testing {

/// A folder of this machine, served as the product serves it. Nobody reports what others change in
/// it.
class DiskWorld : public World {
  public:
    explicit DiskWorld(Contents& contents);

    std::unique_ptr<Nimra::StorageService> service() override;
    Tree tree() const override;
    std::string change(std::uint32_t what, std::uint32_t where, std::uint32_t how) override;

  private:
    using Path = std::filesystem::path;

    std::vector<Path> everything() const;
    std::vector<Path> folders() const;
    bool write(const Path& path, unsigned long number);
    bool relocate(const Path& from, const Path& to) const;
    void forgetContents(const Path& path);

    TemporaryFolder _folder;
    Contents& _contents;
};

}  // namespace Ormek::Testing
