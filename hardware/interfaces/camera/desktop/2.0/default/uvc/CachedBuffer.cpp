// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "KorBufferSource"

#include "uvc/CachedBuffer.h"

#include <utility>

#include <log/log.h>

#include "uvc/KorCheck.h"

namespace android {

CachedBuffer::CachedBuffer(int slot, const sp<GraphicBuffer>& graphicBuffer)
    : mSlot(slot), mGraphicBuffer(graphicBuffer), mAcquirable(std::make_shared<Acquirable>()) {}

void CachedBuffer::discard() {
    KOR_CHECK(151, mIsCached);
    mIsCached = false;
}

AcquiredBuffer::AcquiredBuffer(const std::shared_ptr<CachedBuffer>& buffer,
                               const sp<Fence>& acquireFence, Releaser releaser)
    : mCachedBuffer(buffer),
      mAcquirable(buffer->acquirable()),
      mAcquireFence(acquireFence),
      mReleaser(std::move(releaser)) {}

AcquiredBuffer::~AcquiredBuffer() {
    mReleaser(this);
    if (mReleaseFenceFds.empty()) return;
    ALOGW("release fences were not obtained, closing fds");
    mReleaseFenceFds.front().reset();
    KOR_TRESPASS(259, "");
}

void AcquiredBuffer::addReleaseFence(int fenceFd) {
    if (fenceFd >= 0) mReleaseFenceFds.emplace_back(fenceFd);
    mGotReleaseFences = true;
}

sp<Fence> AcquiredBuffer::takeReleaseFence() {
    if (!mGotReleaseFences) return mAcquireFence;
    const sp<Fence> fence = getReleaseFence(0, mReleaseFenceFds.size());
    mReleaseFenceFds.clear();
    return fence;
}

sp<Fence> AcquiredBuffer::getReleaseFence(size_t start, size_t count) {
    if (count == 0) return Fence::NO_FENCE;
    if (count == 1) return new Fence(mReleaseFenceFds[start].release());
    const size_t half = count / 2;
    return Fence::merge("GBS::AB", getReleaseFence(start, half),
                        getReleaseFence(start + half, count - half));
}

}  // namespace android
