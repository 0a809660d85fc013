// SPDX-License-Identifier: Apache-2.0
// The handle of a graphic buffer: one descriptor, of its memory, and its layout.
#pragma once

#include <string>

#include <android-base/unique_fd.h>
#include <cutils/native_handle.h>
#include <utils/Errors.h>

#include "BufferLayout.h"

namespace android {

/** New zeroed memory of `size` bytes that can no longer change its size; -1 with errno. */
base::unique_fd makeBufferMemory(const std::string& name, uint32_t size);

/** A handle that owns `memory`; null when it can't be made. */
native_handle_t* makeBufferHandle(base::unique_fd memory, const BufferLayout& layout);

/**
 * Reads the layout of a handle that may come from anybody.
 * @return BAD_VALUE when it isn't such a handle, its layout isn't sound, or its memory isn't a
 * memfd sealed against shrinking and at least as large as the layout says.
 */
status_t readBufferHandle(const native_handle_t* handle, BufferLayout* out);

}  // namespace android
