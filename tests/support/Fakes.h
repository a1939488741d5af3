#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "cache/DirectoryCache.h"
#include "tests/support/DirectoryCacheProbe.h"

namespace Ormek::Testing {

/// Stands in for the handler named "Requests" during its life; keeps what it is given.
class RecordingHandler : public Nimra::OperationHandler {
  public:
    RecordingHandler() { registerHandler("Requests", this); }
    ~RecordingHandler() override { registerHandler("Requests", nullptr); }
};

/// A cache wired to a recording handler, a plain parked queue and a document service under every
/// key that the cache uses.
class WiredCache {
  public:
    WiredCache() {
        services = {{0, &listings}, {4, &documents}, {16, &tags}};
        cache.setServices(&services);
        cache.setObjectUpdater(&updater);
        cache.setOpWithoutIdsQueue(&parked);
    }

    /// The one operation that was sent; null when it was none or several.
    template <class Kind>
    Kind* onlySent() const {
        return only<Kind>(handler.operations());
    }
    /// The one operation that was parked; null when it was none or several.
    template <class Kind>
    Kind* onlyParked() const {
        return only<Kind>(parked.operations());
    }

    RecordingHandler handler;
    QueuedOperationsManager parked;
    Nimra::DataService listings;
    Nimra::DocumentServiceNetwork documents;
    Nimra::DataService tags;
    std::map<int, Nimra::DataService*> services;
    ObjectUpdater updater;
    DirectoryCache cache;
    DirectoryCacheProbe probe{cache};

  private:
    template <class Kind>
    static Kind* only(const std::vector<Nimra::Operation*>& operations) {
        return operations.size() == 1 ? dynamic_cast<Kind*>(operations.front()) : nullptr;
    }
};

/// A filter for the folder `dataId`, whose id the service knows.
inline FilterInternal folderFilter(unsigned long dataId, std::uint32_t offset = 0,
                                   std::uint32_t count = 100) {
    FilterInternal filter;
    filter.setDataId({dataId});
    filter.contextId = dataId;
    filter.setOffset(offset);
    filter.setCount(count);
    return filter;
}

/// An entry as the cache makes them, for tests that need one of their own.
inline std::shared_ptr<ObjectInternal> makeObject(unsigned long id, unsigned long parentId,
                                                  std::string name) {
    auto object = std::make_shared<ObjectInternal>(nullptr);
    object->id(id);
    object->parentId(parentId);
    object->name(std::move(name));
    object->type(4);
    return object;
}

inline std::shared_ptr<ContainerInternal> makeContainer(unsigned long id, unsigned long parentId,
                                                        std::string name) {
    return std::make_shared<ContainerInternal>(Nimra::Folder(id, parentId, 0, std::move(name)),
                                               nullptr);
}

}  // namespace Ormek::Testing
