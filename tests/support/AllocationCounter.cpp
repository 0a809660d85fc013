// SPDX-License-Identifier: Apache-2.0
// The C library's allocator, interposed at link time; operator new ends up there as well.
#include "support/AllocationCounter.h"

#include <atomic>
#include <cerrno>
#include <cstddef>

namespace korvane::test {
namespace {

std::atomic<uint64_t> sAllocations{0};

}  // namespace

uint64_t allocations() {
    return sAllocations;
}

}  // namespace korvane::test

using korvane::test::sAllocations;

extern "C" {

void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* memory, size_t size);
void* __libc_memalign(size_t alignment, size_t size);

void* malloc(size_t size) {
    ++sAllocations;
    return __libc_malloc(size);
}

void* calloc(size_t count, size_t size) {
    ++sAllocations;
    return __libc_calloc(count, size);
}

void* realloc(void* memory, size_t size) {
    ++sAllocations;
    return __libc_realloc(memory, size);
}

void* memalign(size_t alignment, size_t size) {
    ++sAllocations;
    return __libc_memalign(alignment, size);
}

void* aligned_alloc(size_t alignment, size_t size) {
    return memalign(alignment, size);
}

int posix_memalign(void** memory, size_t alignment, size_t size) {
    *memory = memalign(alignment, size);
    return *memory != nullptr ? 0 : ENOMEM;
}

}  // extern "C"
