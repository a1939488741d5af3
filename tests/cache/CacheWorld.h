#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tests/support/Fakes.h"

namespace Ormek::Testing {

/// A cache in the middle of its life, and everything that its operations can be given: what they
/// are tried on when something fails. Every text is too long to go without an allocation.
class CacheWorld : public WiredCache {
  public:
    enum Id : unsigned long {
        Root = 1,
        Folder = 7,        // A container with a server id, and two listings.
        OtherFolder = 8,   // Not cached itself, but has a listing.
        UnsentFolder = 9,  // A container whose id is local.
        Document = 70,     // In Folder, with a server id.
        Unsent = 71,       // In Folder, an object whose id is local.
        SubFolder = 72,    // In Folder.
        Empty = 73,        // An empty entry.
        NewDocument = 90,  // These are not in the store.
        NewFolder = 91,
        Absent = 99,
        UnlistedFolder = 20,
        User = 5,
        Nobody = 0
    };

    CacheWorld();

    /// What the caller has in its hands, under another id.
    void giveObject(unsigned long id, unsigned long parentId);
    void giveContainer(unsigned long id, unsigned long parentId);

    std::shared_ptr<Item>& stored(unsigned long id) { return probe.items()[id]; }
    ItemInternal& internal(unsigned long id);
    ObjectInternal& object(unsigned long id);
    /// The directories in their order.
    QueryResultInternal& directory(unsigned long index);
    QueryResultInternal& tagDirectory() { return internalOf(probe.keyValueDirectories().front()); }
    QueryResultInternal& resultItself() { return internalOf(result); }

    /// Everything that an operation could have changed.
    std::string state();

    // What operations are given. The copies are plain values.
    std::shared_ptr<ObjectInternal> newObject;
    std::shared_ptr<ContainerInternal> newContainer;
    Object plainObject;
    Container plainContainer;
    Nimra::Document newDocument;
    Nimra::Document knownDocument;  // Of the entry Document, with everything changed.
    Nimra::Folder newFolder;
    Nimra::Folder knownFolder;  // Of the entry SubFolder.
    Nimra::Tag newTag;
    Nimra::Tag knownTag;
    FilterInternal loadedPage;
    FilterInternal otherPage;  // Of the same listing.
    FilterInternal newListing;
    FilterInternal loadedTags;
    FilterInternal newTags;
    KeyValueMap keyValues;
    std::shared_ptr<QueryResult> result;
    Nimra::ItemEventProtocol listener;
    std::string newName;

  private:
    static QueryResultInternal& internalOf(const std::shared_ptr<QueryResult>& directory) {
        return dynamic_cast<QueryResultInternal&>(*directory);
    }
    void fillStore();
    void makeDirectories();
    void makeTags();
    void makeRecords();
    std::string nameOfResult();
};

}  // namespace Ormek::Testing
