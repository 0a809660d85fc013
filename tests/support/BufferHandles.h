// SPDX-License-Identifier: Apache-2.0
// Handles of graphic buffers as a hostile process might make them.
#pragma once

#include <cstdint>
#include <cstring>
#include <memory>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <android-base/unique_fd.h>
#include <cutils/native_handle.h>

#include "../platform/libui/BufferLayout.h"

namespace korvane::test {

struct NativeHandleClose {
    void operator()(native_handle_t* handle) const {
        native_handle_close(handle);
        native_handle_delete(handle);
    }
};

using OwnedHandle = std::unique_ptr<native_handle_t, NativeHandleClose>;

inline OwnedHandle cloneHandle(const native_handle_t* handle) {
    return OwnedHandle(native_handle_clone(handle));
}

/** The layout stored in a handle, after its descriptor and a magic number. */
inline android::BufferLayout layoutOf(const native_handle_t* handle) {
    android::BufferLayout layout;
    memcpy(&layout, &handle->data[2], sizeof(layout));
    return layout;
}

/** A copy of a handle to the same memory that claims another layout. */
inline OwnedHandle withLayout(const native_handle_t* handle, const android::BufferLayout& layout) {
    OwnedHandle copy = cloneHandle(handle);
    memcpy(&copy->data[2], &layout, sizeof(layout));
    return copy;
}

/** A copy of a handle, but to other memory. */
inline OwnedHandle withMemory(const native_handle_t* handle, android::base::unique_fd memory) {
    OwnedHandle copy = cloneHandle(handle);
    close(copy->data[0]);
    copy->data[0] = memory.release();
    return copy;
}

/** A memfd with these seals. */
inline android::base::unique_fd makeMemory(uint64_t size, int seals, unsigned flags = 0) {
    android::base::unique_fd memory(memfd_create("test", MFD_CLOEXEC | MFD_ALLOW_SEALING | flags));
    if (memory.get() == -1 || ftruncate(memory.get(), static_cast<off_t>(size)) != 0 ||
        fcntl(memory.get(), F_ADD_SEALS, seals) != 0) {
        return android::base::unique_fd();
    }
    return memory;
}

}  // namespace korvane::test
