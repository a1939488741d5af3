#include "bench/Allocations.h"

#include <malloc.h>

#include <cstdlib>
#include <new>

namespace {

thread_local Ormek::Bench::Allocations counted;

long sizeOf(void* memory) {
    return static_cast<long>(malloc_usable_size(memory) + sizeof(std::size_t));
}

}  // namespace

// Counts for the whole program; what the cache is compared with pays the same for it.
void* operator new(std::size_t size) {
    void* memory = std::malloc(size);
    if (!memory) {
        throw std::bad_alloc();
    }
    ++counted.blocks;
    counted.bytes += sizeOf(memory);
    return memory;
}

void operator delete(void* memory) noexcept {
    if (memory) {
        counted.bytes -= sizeOf(memory);
        std::free(memory);
    }
}
void operator delete(void* memory, std::size_t /*size*/) noexcept { operator delete(memory); }

namespace Ormek::Bench {

Allocations Allocations::ofThisThread() { return counted; }

}  // namespace Ormek::Bench
