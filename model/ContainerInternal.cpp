#include "model/ContainerInternal.h"

#include "service/Folder.h"

namespace Ormek {

ContainerInternal::ContainerInternal(const Container& source, ObjectUpdater* updater)
    : ItemInternal(source, updater) {}

ContainerInternal::ContainerInternal(const Nimra::Folder& folder, ObjectUpdater* updater)
    : ItemInternal(folder.id, folder.name, updater) {
    parentId(folder.parentId);
    ownerId(folder.ownerId);
    driveId(folder.driveId);
    oldParentId(folder.oldParentId);
    thirdText(folder.fourthTrailing);
    created(folder.created);
    updated(folder.updated);
    deleted(folder.deleted);
    type(folder.type);
    _shares = folder.shares;
    firstText(folder.secondLeading);
    secondText(folder.firstLeading);
    setACLMap(folder.ownerId, folder.accessLevel);
}

ContainerInternal::~ContainerInternal() = default;

}  // namespace Ormek
