// SPDX-License-Identifier: Apache-2.0
// For preloading into a program that is to show that it leaks nothing: counts the allocations that
// live. At SIGUSR2 it writes how many those are, and their bytes, to the file that LIVE_ALLOCATIONS
// names.
#include <atomic>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include <fcntl.h>
#include <malloc.h>
#include <unistd.h>

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* memory, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
void __libc_free(void* memory);
}

namespace {

std::atomic<int64_t> sCount{0};
std::atomic<int64_t> sBytes{0};

void* born(void* memory) {
    if (memory == nullptr) return nullptr;
    sCount.fetch_add(1, std::memory_order_relaxed);
    sBytes.fetch_add(static_cast<int64_t>(malloc_usable_size(memory)), std::memory_order_relaxed);
    return memory;
}

void dead(void* memory) {
    if (memory == nullptr) return;
    sCount.fetch_sub(1, std::memory_order_relaxed);
    sBytes.fetch_sub(static_cast<int64_t>(malloc_usable_size(memory)), std::memory_order_relaxed);
}

/** Calls nothing but what a signal's handler may. */
void tell(int) {
    const int error = errno;
    char text[64];
    char* const end = text + sizeof(text) - 2;  // the blank and the newline
    char* next = std::to_chars(text, end, sCount.load()).ptr;
    *next++ = ' ';
    next = std::to_chars(next, end, sBytes.load()).ptr;
    *next++ = '\n';
    const int file =
            open(getenv("LIVE_ALLOCATIONS"), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    // Whoever asked sees that nothing came.
    [[maybe_unused]] const ssize_t written = write(file, text, static_cast<size_t>(next - text));
    close(file);
    errno = error;
}

[[gnu::constructor]] void listen() {
    if (getenv("LIVE_ALLOCATIONS") == nullptr) return;
    struct sigaction action = {};
    action.sa_handler = tell;
    action.sa_flags = SA_RESTART;
    sigaction(SIGUSR2, &action, nullptr);
}

}  // namespace

extern "C" {

void* malloc(size_t size) {
    return born(__libc_malloc(size));
}

void* calloc(size_t count, size_t size) {
    return born(__libc_calloc(count, size));
}

void* realloc(void* memory, size_t size) {
    dead(memory);
    void* const moved = __libc_realloc(memory, size);
    // One that couldn't be moved lives on.
    born(moved == nullptr && size != 0 ? memory : moved);
    return moved;
}

void* memalign(size_t alignment, size_t size) {
    return born(__libc_memalign(alignment, size));
}

void* aligned_alloc(size_t alignment, size_t size) {
    return memalign(alignment, size);
}

int posix_memalign(void** memory, size_t alignment, size_t size) {
    void* const made = memalign(alignment, size);
    if (made == nullptr) return ENOMEM;
    *memory = made;
    return 0;
}

void free(void* memory) {
    const int error = errno;
    dead(memory);
    __libc_free(memory);
    errno = error;
}
}
