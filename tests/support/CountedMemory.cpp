#include "CountedMemory.h"

#include <cstdlib>
#include <new>

namespace {
thread_local std::size_t allocations = 0;
}

std::size_t test::AllocationCount() noexcept { return allocations; }

// The linker puts these in the place of the C library's (--wrap), for shared libraries too, as far
// as they are linked with the program.
#pragma GCC visibility push(default)
extern "C" {
void* __real_malloc(std::size_t);
void* __real_calloc(std::size_t, std::size_t);
void* __real_realloc(void*, std::size_t);
void* __wrap_malloc(std::size_t);
void* __wrap_calloc(std::size_t, std::size_t);
void* __wrap_realloc(void*, std::size_t);

void* __wrap_malloc(std::size_t size) { return ++allocations, __real_malloc(size); }
void* __wrap_calloc(std::size_t n, std::size_t size) {
    return ++allocations, __real_calloc(n, size);
}
void* __wrap_realloc(void* old, std::size_t size) {
    return ++allocations, __real_realloc(old, size);
}
}
#pragma GCC visibility pop

// The C++ library's own are out of the linker's reach; its other forms come down to these.
void* operator new(std::size_t size) {
    if (void* const memory = std::malloc(size)) return memory;
    throw std::bad_alloc();
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
