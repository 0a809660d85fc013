// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "BufferQueueCore"

#include "gui/BufferBudget.h"

#include <algorithm>
#include <cinttypes>

#include <log/log.h>

namespace android {

bool BufferBudget::admit(const sp<GraphicBuffer>& buffer) {
    const uint64_t held = bytesHeld();
    if (held + buffer->getMemorySize() > kMaxBytes) {
        ALOGE("%u bytes more than the %" PRIu64 " that the queue has allocated are too many",
              buffer->getMemorySize(), held);
        return false;
    }
    mBuffers.push_back(buffer);
    return true;
}

uint64_t BufferBudget::bytesHeld() {
    uint64_t bytes = 0;
    const auto isGone = [&bytes](const wp<GraphicBuffer>& weak) {
        const sp<GraphicBuffer> buffer = weak.promote();
        if (buffer != nullptr) bytes += buffer->getMemorySize();
        return buffer == nullptr;
    };
    mBuffers.erase(std::remove_if(mBuffers.begin(), mBuffers.end(), isGone), mBuffers.end());
    return bytes;
}

}  // namespace android
