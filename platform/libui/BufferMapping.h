// SPDX-License-Identifier: Apache-2.0
// The memory of a graphic buffer in this process.
#pragma once

#include <memory>

#include <cutils/native_handle.h>
#include <utils/Errors.h>

#include "BufferLayout.h"

namespace android {

/**
 * Keeps a buffer's memory mapped, readable and writable, for as long as this object lives.
 * Immutable.
 */
class BufferMapping {
  public:
    /**
     * Maps the memory of a handle from anywhere.
     * @return null when the handle is refused (see readBufferHandle()) or the kernel refuses to
     * map.
     */
    static std::unique_ptr<BufferMapping> create(const native_handle_t* handle);

    ~BufferMapping();
    BufferMapping(const BufferMapping&) = delete;
    BufferMapping& operator=(const BufferMapping&) = delete;

    void* address() const { return mAddress; }
    const BufferLayout& layout() const { return mLayout; }

  private:
    BufferMapping(void* address, const BufferLayout& layout) : mAddress(address), mLayout(layout) {}

    void* const mAddress;
    const BufferLayout mLayout;
};

}  // namespace android
