// SPDX-License-Identifier: Apache-2.0
// Numbers that both ends of a buffer queue share.
#pragma once

namespace android {
namespace BufferQueueDefs {

/** Slots of every queue; a queue uses as many as its counts allow. */
constexpr int NUM_BUFFER_SLOTS = 64;

/** Flags that a successful dequeue may carry. */
enum {
    /** The slot's buffer is not the one it was: the producer must ask for it. */
    BUFFER_NEEDS_REALLOCATION = 0x1,
    /** All buffers that the producer has cached are void. The queue never says so. */
    RELEASE_ALL_BUFFERS = 0x2,
};

}  // namespace BufferQueueDefs
}  // namespace android
