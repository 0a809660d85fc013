// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "BufferMapping"

#include "BufferMapping.h"

#include <cerrno>
#include <cstring>

#include <sys/mman.h>

#include <log/log.h>

#include "BufferHandle.h"

namespace android {

std::unique_ptr<BufferMapping> BufferMapping::create(const native_handle_t* handle) {
    BufferLayout layout;
    if (readBufferHandle(handle, &layout) != NO_ERROR) {
        ALOGE("create: not the handle of a buffer");
        return nullptr;
    }
    void* const address =
            mmap(nullptr, layout.size, PROT_READ | PROT_WRITE, MAP_SHARED, handle->data[0], 0);
    if (address == MAP_FAILED) {
        ALOGE("create: can't map %u bytes: %s (%d)", layout.size, strerror(errno), errno);
        return nullptr;
    }
    return std::unique_ptr<BufferMapping>(new BufferMapping(address, layout));
}

BufferMapping::~BufferMapping() {
    munmap(mAddress, mLayout.size);
}

}  // namespace android
