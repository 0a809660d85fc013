// SPDX-License-Identifier: Apache-2.0
// The C structure that every graphic buffer begins with.
#pragma once

#include <stdint.h>
#include <string.h>

#include <android/rect.h>
#include <cutils/native_handle.h>

#define ANDROID_NATIVE_MAKE_CONSTANT(a, b, c, d) \
    (((unsigned)(a) << 24) | ((unsigned)(b) << 16) | ((unsigned)(c) << 8) | (unsigned)(d))

#define ANDROID_NATIVE_BUFFER_MAGIC ANDROID_NATIVE_MAKE_CONSTANT('_', 'b', 'f', 'r')

typedef ARect android_native_rect_t;

/** The head of a reference-counted object that C code may hold. */
typedef struct android_native_base_t {
    int magic;
    /** Size of the whole structure in bytes. */
    int version;
    void* reserved[4];
    void (*incRef)(struct android_native_base_t* base);
    void (*decRef)(struct android_native_base_t* base);
} android_native_base_t;

/** Attributes of a graphic buffer. `stride` counts pixels; `handle` belongs to the buffer. */
typedef struct ANativeWindowBuffer {
    ANativeWindowBuffer() {
        common.magic = ANDROID_NATIVE_BUFFER_MAGIC;
        common.version = sizeof(ANativeWindowBuffer);
        memset(common.reserved, 0, sizeof(common.reserved));
    }

    struct android_native_base_t common;
    int width = 0;
    int height = 0;
    int stride = 0;
    int format = 0;
    /** The low 32 bits of `usage`. */
    int usage_deprecated = 0;
    uintptr_t layerCount = 0;
    void* reserved[1] = {nullptr};
    const native_handle_t* handle = nullptr;
    uint64_t usage = 0;
    void* reserved_proc[8 - (sizeof(uint64_t) / sizeof(void*))] = {};
} ANativeWindowBuffer_t;

typedef ANativeWindowBuffer android_native_buffer_t;
