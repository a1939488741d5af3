#include "bench/Allocations.h"

#include <malloc.h>

#include <cstdlib>
#include <new>

namespace {

thread_local Ormek::Bench::Allocations count;

long sizeOf(void* memory) {
    return static_cast<long>(malloc_usable_size(memory) + sizeof(std::size_t));
}

void* counted(void* memory) {
    if (!memory) {
        throw std::bad_alloc();
    }
    ++count.blocks;
    count.bytes += sizeOf(memory);
    return memory;
}

}  // namespace

// Counts for the whole program; what the cache is compared with pays the same for it.
void* operator new(std::size_t size) { return counted(std::malloc(size)); }
void* operator new(std::size_t size, std::align_val_t alignment) {
    const auto boundary = static_cast<std::size_t>(alignment);
    return counted(std::aligned_alloc(boundary, (size + boundary - 1) / boundary * boundary));
}

void operator delete(void* memory) noexcept {
    if (memory) {
        count.bytes -= sizeOf(memory);
        std::free(memory);
    }
}
void operator delete(void* memory, std::size_t /*size*/) noexcept { operator delete(memory); }
void operator delete(void* memory, std::align_val_t /*alignment*/) noexcept {
    operator delete(memory);
}
void operator delete(void* memory, std::size_t /*size*/, std::align_val_t /*alignment*/) noexcept {
    operator delete(memory);
}

namespace Ormek::Bench {

Allocations Allocations::ofThisThread() { return count; }

}  // namespace Ormek::Bench
