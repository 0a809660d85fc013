// SPDX-License-Identifier: Apache-2.0
// The slots of a buffer queue.
#pragma once

#include <array>

#include <gui/BufferSlot.h>
#include <ui/BufferQueueDefs.h>

namespace android {
namespace BufferQueueDefs {

typedef std::array<BufferSlot, NUM_BUFFER_SLOTS> SlotsType;

}  // namespace BufferQueueDefs
}  // namespace android
