// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "KorBufferSource"

#include "uvc/CodecBuffers.h"

#include <algorithm>
#include <utility>

#include "uvc/KorCheck.h"

namespace android {

int CodecBuffers::nextFree() const {
    KOR_CHECK(886, !mFreeCodecBuffers.empty());
    return mFreeCodecBuffers.front();
}

void CodecBuffers::lendNext(const std::shared_ptr<AcquiredBuffer>& buffer) {
    const int bufferId = nextFree();
    mFreeCodecBuffers.erase(mFreeCodecBuffers.begin());
    const auto entry = findLent(bufferId);
    if (entry == mLent.end()) {
        mLent.push_back({bufferId, buffer});
    } else {
        entry->buffer = buffer;
    }
}

bool CodecBuffers::takeBack(int32_t bufferId, std::shared_ptr<AcquiredBuffer>* buffer) {
    const auto entry = findLent(bufferId);
    if (entry == mLent.end()) return false;
    *buffer = std::move(entry->buffer);
    mLent.erase(entry);
    mFreeCodecBuffers.push_back(bufferId);
    return true;
}

std::vector<CodecBuffers::Lent>::iterator CodecBuffers::findLent(int bufferId) {
    return std::find_if(mLent.begin(), mLent.end(),
                        [bufferId](const Lent& entry) { return entry.bufferId == bufferId; });
}

}  // namespace android
