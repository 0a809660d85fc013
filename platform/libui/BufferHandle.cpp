// SPDX-License-Identifier: Apache-2.0
#include "BufferHandle.h"

#include <cstring>

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <unistd.h>

namespace android {
namespace {

constexpr int kMagic = 0x4b474231;
constexpr int kLayoutInts = sizeof(BufferLayout) / sizeof(int);
// The longest name that the kernel takes for a memfd.
constexpr size_t kMaxNameLength = 249;

// Memory that its owner could truncate, or that isn't backed by plain pages, could fault under a
// reader.
bool isDependable(int memory, uint32_t size) {
    const int seals = fcntl(memory, F_GET_SEALS);
    if (seals == -1 || (seals & F_SEAL_SHRINK) == 0) return false;
    struct statfs fileSystem;
    if (fstatfs(memory, &fileSystem) != 0 || fileSystem.f_type != TMPFS_MAGIC) return false;
    struct stat file;
    return fstat(memory, &file) == 0 && file.st_size >= static_cast<off_t>(size);
}

}  // namespace

base::unique_fd makeBufferMemory(const std::string& name, uint32_t size) {
    base::unique_fd memory(
            memfd_create(name.substr(0, kMaxNameLength).c_str(), MFD_CLOEXEC | MFD_ALLOW_SEALING));
    if (memory.get() == -1 || ftruncate(memory.get(), size) != 0 ||
        fcntl(memory.get(), F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL) != 0) {
        return base::unique_fd();
    }
    return memory;
}

native_handle_t* makeBufferHandle(base::unique_fd memory, const BufferLayout& layout) {
    native_handle_t* const handle = native_handle_create(1, 1 + kLayoutInts);
    if (handle == nullptr) return nullptr;
    handle->data[0] = memory.release();
    handle->data[1] = kMagic;
    memcpy(&handle->data[2], &layout, sizeof(layout));
    return handle;
}

status_t readBufferHandle(const native_handle_t* handle, BufferLayout* out) {
    if (handle == nullptr || handle->version != sizeof(native_handle_t) || handle->numFds != 1 ||
        handle->numInts != 1 + kLayoutInts || handle->data[1] != kMagic) {
        return BAD_VALUE;
    }
    memcpy(out, &handle->data[2], sizeof(*out));
    return isSound(*out) && isDependable(handle->data[0], out->size) ? NO_ERROR : BAD_VALUE;
}

}  // namespace android
