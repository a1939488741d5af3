#include "bench/Allocations.h"

#include <cstdlib>
#include <new>

namespace {

thread_local unsigned long allocatedBlocks = 0;

}  // namespace

// Counts what the whole program allocates; what it is compared with pays the same for it.
void* operator new(std::size_t size) {
    ++allocatedBlocks;
    if (void* memory = std::malloc(size)) {
        return memory;
    }
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t /*size*/) noexcept { std::free(memory); }

namespace Ormek::Bench {

Allocations Allocations::ofThisThread() { return {allocatedBlocks}; }

}  // namespace Ormek::Bench
