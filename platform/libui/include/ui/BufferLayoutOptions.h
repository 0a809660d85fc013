// SPDX-License-Identifier: Apache-2.0
// How the allocator of this port lays out flexible YCbCr buffers: a choice that every phone makes
// in its own way, so code that assumes one layout can be caught.
#pragma once

#include <cstdint>

namespace android {

/**
 * The layout of HAL_PIXEL_FORMAT_YCbCr_420_888 buffers that this process allocates from now on.
 * Buffers that exist keep theirs; an importing process learns it from the buffer.
 */
struct BufferLayoutOptions {
    enum class Chroma {
        /** One plane, Cb before Cr. */
        NV12,
        /** One plane, Cr before Cb. */
        NV21,
        /** Two planes, Cb before Cr. */
        I420,
    };

    Chroma chroma = Chroma::NV12;
    /** Luma rows are a multiple of this many bytes: a power of two, 1 to 4096. */
    uint32_t strideAlignment = 16;
    /** Chroma begins after a multiple of this many luma rows: a power of two, 1 to 256. */
    uint32_t heightAlignment = 1;
    /** Unused bytes between planes, up to 65536. */
    uint32_t planeGap = 0;
};

/**
 * Changes the layout for the whole process. Thread-safe.
 * @return false, and nothing changes, when a member is out of its range.
 */
bool setBufferLayoutOptions(const BufferLayoutOptions& options);

BufferLayoutOptions getBufferLayoutOptions();

}  // namespace android
