#include "tests/support/AllocationFaults.h"

#include <atomic>
#include <cstddef>
#include <new>

#include "tests/support/NextDefinition.h"

namespace Ormek::Testing {

namespace {

std::atomic<unsigned long> blocks{0};

thread_local unsigned long counted = 0;
thread_local unsigned long failing = 0;  // None when 0.

std::atomic<unsigned long> countedElsewhere{0};
std::atomic<unsigned long> failingElsewhere{0};
thread_local bool spared = false;  // The thread that asked for faults elsewhere.

// Inside a definition that we pass on to: the standard library's build upon each other.
thread_local bool inside = false;

class Inside {
  public:
    Inside() { inside = true; }
    Inside(const Inside&) = delete;
    Inside& operator=(const Inside&) = delete;
    ~Inside() { inside = false; }
};

bool failsFromElsewhere() {
    return failingElsewhere != 0 && !spared && ++countedElsewhere == failingElsewhere;
}

bool fails() { return ++counted == failing || failsFromElsewhere(); }

template <class Next, class... Arguments>
void* allocateOrNull(Next& next, Arguments... arguments) {
    const Inside passing;
    void* block = next(arguments...);
    if (block) {
        blocks.fetch_add(1, std::memory_order_relaxed);
    }
    return block;
}

template <class Next, class... Arguments>
void* allocate(Next& next, Arguments... arguments) {
    if (inside) {
        return next(arguments...);
    }
    if (fails()) {
        throw std::bad_alloc();
    }
    return allocateOrNull(next, arguments...);
}

template <class Next, class... Arguments>
void* tryToAllocate(Next& next, Arguments... arguments) noexcept {
    if (inside) {
        return next(arguments..., std::nothrow);
    }
    return fails() ? nullptr : allocateOrNull(next, arguments..., std::nothrow);
}

template <class Next, class... Arguments>
void release(Next& next, void* block, Arguments... arguments) noexcept {
    if (inside) {
        next(block, arguments...);
        return;
    }
    if (block) {
        blocks.fetch_sub(1, std::memory_order_relaxed);
    }
    const Inside passing;
    next(block, arguments...);
}

using Size = std::size_t;
using Align = std::align_val_t;
using NoThrow = std::nothrow_t;

// The names of the forms below, as the Itanium C++ ABI mangles them where std::size_t is an
// unsigned long.
constinit NextDefinition<void*(Size)> newOne("_Znwm");
constinit NextDefinition<void*(Size)> newMany("_Znam");
constinit NextDefinition<void*(Size, const NoThrow&)> newOneOrNull("_ZnwmRKSt9nothrow_t");
constinit NextDefinition<void*(Size, const NoThrow&)> newManyOrNull("_ZnamRKSt9nothrow_t");
constinit NextDefinition<void*(Size, Align)> newAligned("_ZnwmSt11align_val_t");
constinit NextDefinition<void*(Size, Align)> newManyAligned("_ZnamSt11align_val_t");
constinit NextDefinition<void*(Size, Align, const NoThrow&)> newAlignedOrNull(
    "_ZnwmSt11align_val_tRKSt9nothrow_t");
constinit NextDefinition<void*(Size, Align, const NoThrow&)> newManyAlignedOrNull(
    "_ZnamSt11align_val_tRKSt9nothrow_t");

constinit NextDefinition<void(void*)> deleteOne("_ZdlPv");
constinit NextDefinition<void(void*)> deleteMany("_ZdaPv");
constinit NextDefinition<void(void*, Size)> deleteSized("_ZdlPvm");
constinit NextDefinition<void(void*, Size)> deleteManySized("_ZdaPvm");
constinit NextDefinition<void(void*, const NoThrow&)> deleteUnbuilt("_ZdlPvRKSt9nothrow_t");
constinit NextDefinition<void(void*, const NoThrow&)> deleteManyUnbuilt("_ZdaPvRKSt9nothrow_t");
constinit NextDefinition<void(void*, Align)> deleteAligned("_ZdlPvSt11align_val_t");
constinit NextDefinition<void(void*, Align)> deleteManyAligned("_ZdaPvSt11align_val_t");
constinit NextDefinition<void(void*, Size, Align)> deleteSizedAligned("_ZdlPvmSt11align_val_t");
constinit NextDefinition<void(void*, Size, Align)> deleteManySizedAligned("_ZdaPvmSt11align_val_t");
constinit NextDefinition<void(void*, Align, const NoThrow&)> deleteUnbuiltAligned(
    "_ZdlPvSt11align_val_tRKSt9nothrow_t");
constinit NextDefinition<void(void*, Align, const NoThrow&)> deleteManyUnbuiltAligned(
    "_ZdaPvSt11align_val_tRKSt9nothrow_t");

}  // namespace

AllocationFaults::AllocationFaults(unsigned long nth) {
    counted = 0;
    failing = nth;
}

AllocationFaults::~AllocationFaults() { failing = 0; }

bool AllocationFaults::struck() const { return counted >= failing; }

unsigned long AllocationFaults::allocations() const { return counted; }

unsigned long AllocationFaults::liveBlocks() { return blocks; }

AllocationFaultsElsewhere::AllocationFaultsElsewhere(unsigned long nth) {
    spared = true;
    countedElsewhere = 0;
    failingElsewhere = nth;
}

AllocationFaultsElsewhere::~AllocationFaultsElsewhere() {
    failingElsewhere = 0;
    spared = false;
}

bool AllocationFaultsElsewhere::struck() const { return countedElsewhere >= failingElsewhere; }

}  // namespace Ormek::Testing

using namespace Ormek::Testing;

void* operator new(Size size) { return allocate(newOne, size); }
void* operator new[](Size size) { return allocate(newMany, size); }
void* operator new(Size size, const NoThrow&) noexcept { return tryToAllocate(newOneOrNull, size); }
void* operator new[](Size size, const NoThrow&) noexcept {
    return tryToAllocate(newManyOrNull, size);
}
void* operator new(Size size, Align align) { return allocate(newAligned, size, align); }
void* operator new[](Size size, Align align) { return allocate(newManyAligned, size, align); }
void* operator new(Size size, Align align, const NoThrow&) noexcept {
    return tryToAllocate(newAlignedOrNull, size, align);
}
void* operator new[](Size size, Align align, const NoThrow&) noexcept {
    return tryToAllocate(newManyAlignedOrNull, size, align);
}

void operator delete(void* block) noexcept { release(deleteOne, block); }
void operator delete[](void* block) noexcept { release(deleteMany, block); }
void operator delete(void* block, Size size) noexcept { release(deleteSized, block, size); }
void operator delete[](void* block, Size size) noexcept { release(deleteManySized, block, size); }
void operator delete(void* block, const NoThrow&) noexcept {
    release(deleteUnbuilt, block, std::nothrow);
}
void operator delete[](void* block, const NoThrow&) noexcept {
    release(deleteManyUnbuilt, block, std::nothrow);
}
void operator delete(void* block, Align align) noexcept { release(deleteAligned, block, align); }
void operator delete[](void* block, Align align) noexcept {
    release(deleteManyAligned, block, align);
}
void operator delete(void* block, Size size, Align align) noexcept {
    release(deleteSizedAligned, block, size, align);
}
void operator delete[](void* block, Size size, Align align) noexcept {
    release(deleteManySizedAligned, block, size, align);
}
void operator delete(void* block, Align align, const NoThrow&) noexcept {
    release(deleteUnbuiltAligned, block, align, std::nothrow);
}
void operator delete[](void* block, Align align, const NoThrow&) noexcept {
    release(deleteManyUnbuiltAligned, block, align, std::nothrow);
}
