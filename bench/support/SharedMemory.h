// SPDX-License-Identifier: Apache-2.0
// Memory of the kind that frames travel in.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include <sys/mman.h>
#include <unistd.h>

namespace korvane::bench {

/** A shared mapping of a memfd, like graphic and driver buffers, with every page present. */
class SharedMemory {
  public:
    explicit SharedMemory(size_t size) : mSize(size) {
        const int fd = memfd_create("bench", MFD_CLOEXEC);
        if (fd < 0 || ftruncate(fd, static_cast<off_t>(size)) != 0) abort();
        void* const memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        close(fd);
        if (memory == MAP_FAILED) abort();
        mMemory = static_cast<uint8_t*>(memory);
        memset(mMemory, 0x5A, size);
    }
    ~SharedMemory() { munmap(mMemory, mSize); }
    SharedMemory(const SharedMemory&) = delete;
    SharedMemory& operator=(const SharedMemory&) = delete;

    uint8_t* data() const { return mMemory; }
    size_t size() const { return mSize; }

  private:
    const size_t mSize;
    uint8_t* mMemory;
};

}  // namespace korvane::bench
