#pragma once

#include <functional>
#include <vector>

#include "tests/cache/CacheWorld.h"

namespace Ormek::Testing {

using CacheEdit = std::function<void(CacheWorld&)>;
using CacheSteps = std::vector<CacheEdit>;

/// One operation of the cache in one branch: how it comes to it, and what it changes, step by step
/// in the prescribed order. Whatever fails, it leaves what some number of the first steps leaves.
struct CacheOperation {
    const char* name;
    CacheEdit arrange;
    CacheEdit act;
    CacheSteps steps;
    /// A success leaves an operation that belongs to nobody.
    bool leavesAnOperationAllocated = false;
};

using CacheOperations = std::vector<CacheOperation>;

// Every public operation, by family.
CacheOperations lookUpOperations();
CacheOperations objectOperations();
CacheOperations containerOperations();
CacheOperations removalOperations();
CacheOperations queryOperations();
CacheOperations mergeOperations();
CacheOperations actionOperations();

// What more than one family is made of.

template <class Element>
std::vector<Element> operator+(std::vector<Element> first, const std::vector<Element>& rest) {
    first.insert(first.end(), rest.begin(), rest.end());
    return first;
}

inline void asItIs(CacheWorld&) {}
inline void withoutDirectories(CacheWorld& world) { world.probe.directories().clear(); }
inline void withoutServices(CacheWorld& world) { world.services.clear(); }

/// What the record of the known document changes in its entry.
CacheSteps refreshDocument();
/// Its entry taken out of the first directory that it matches, and put back there.
CacheSteps replaceDocument();
/// An entry made from the new document's record.
CacheEdit storeNewDocument(bool dataLoaded);
/// An entry made from the new folder's record.
CacheEdit storeNewFolder();

}  // namespace Ormek::Testing
