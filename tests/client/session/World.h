#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "backend/StorageService.h"

namespace Ormek::Testing {

/// How things really are: an entry and, of a folder, what lies in it.
struct Tree {
    bool isFolder = true;
    std::string content = {};
    Nimra::KeyValues keyValues = {};
    std::map<std::string, Tree> entries = {};
};

/// Where a session takes place: a service and the tree behind it, which somebody else changes too.
/// Not safe to share between threads; the service is called on another one, but never while a
/// function here is.
class World {
  public:
    /// What the service's change feed says.
    struct Gone {
        unsigned long id;
    };
    struct Doubted {
        unsigned long folderId;
    };
    using Report = std::variant<Nimra::Document, Nimra::Folder, Gone, Doubted>;

    World() = default;
    World(const World&) = delete;
    World& operator=(const World&) = delete;
    virtual ~World() = default;

    /// To be called once.
    virtual std::unique_ptr<Nimra::StorageService> service() = 0;
    virtual Tree tree() const = 0;
    /// Changes something behind the client's back, as the numbers say, and tells what.
    virtual std::string change(std::uint32_t what, std::uint32_t where, std::uint32_t how) = 0;

    /// What the feed has not told yet.
    std::deque<Report> feed;
    /// Something has changed that the feed never tells.
    bool silent = false;
};

/// Names that collide, and that have broken something somewhere.
const std::vector<std::string>& usableNames();
/// The same, and now and then one that no entry can have.
const std::string& anyName(std::uint32_t number);

}  // namespace Ormek::Testing
