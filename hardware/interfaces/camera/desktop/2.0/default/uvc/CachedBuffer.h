// SPDX-License-Identifier: Apache-2.0
// The graphic buffers that the frame source knows by their queue slots, and their use by frames.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <vector>

#include <android-base/unique_fd.h>
#include <ui/Fence.h>
#include <ui/GraphicBuffer.h>
#include <utils/StrongPointer.h>

namespace android {

/**
 * The graphic buffer of one queue slot. The queue hands it over with the slot's first frame only,
 * so it is kept, in the frame source's slot table, until the queue takes it from the slot again;
 * then it is discarded, and lives on only for the frames that still use it.
 *
 * Not thread-safe: guarded by the frame source's mutex.
 */
class CachedBuffer {
  public:
    /** Shared by the cached buffer and everyone who has acquired it: its owners are counted. */
    struct Acquirable {};

    CachedBuffer(int slot, const sp<GraphicBuffer>& graphicBuffer);
    CachedBuffer(const CachedBuffer&) = delete;
    CachedBuffer& operator=(const CachedBuffer&) = delete;

    int slot() const { return mSlot; }
    const sp<GraphicBuffer>& graphicBuffer() const { return mGraphicBuffer; }

    /** False once the queue has taken the buffer from its slot. */
    bool isCached() const { return mIsCached; }

    /** Whether an AcquiredBuffer of it lives. */
    bool isAcquired() const { return mAcquirable.use_count() > 1; }

    /** Notes that the buffer is no longer its slot's. Fatal when that was noted before. */
    void discard();

    const std::shared_ptr<Acquirable>& acquirable() const { return mAcquirable; }

  private:
    bool mIsCached = true;
    const int mSlot;
    const sp<GraphicBuffer> mGraphicBuffer;
    const std::shared_ptr<Acquirable> mAcquirable;
};

/**
 * A frame's hold on its buffer: the frame source's promise to the queue to release it. Shared by
 * everyone who still needs the frame; when the last of them lets go, the releaser runs.
 *
 * Guarded by the frame source's mutex, which must also be held when it is destroyed.
 */
class AcquiredBuffer {
  public:
    /** Gives the buffer back to the queue. */
    using Releaser = std::function<void(AcquiredBuffer*)>;

    AcquiredBuffer(const std::shared_ptr<CachedBuffer>& buffer, const sp<Fence>& acquireFence,
                   Releaser releaser);
    /**
     * Runs the releaser, which must exist. Fatal when release fences are left after that: whoever
     * gave them would wait for a buffer that the queue has forgotten.
     */
    ~AcquiredBuffer();
    AcquiredBuffer(const AcquiredBuffer&) = delete;
    AcquiredBuffer& operator=(const AcquiredBuffer&) = delete;

    const std::shared_ptr<CachedBuffer>& cachedBuffer() const { return mCachedBuffer; }
    const sp<GraphicBuffer>& graphicBuffer() const { return mCachedBuffer->graphicBuffer(); }

    /** Signals when the producer has finished the picture. */
    const sp<Fence>& acquireFence() const { return mAcquireFence; }

    /** Notes that one user is done when `fenceFd`, taken over, has signalled; -1 for at once. */
    void addReleaseFence(int fenceFd);

    /** Signals when every user who gave a release fence is done; the acquire fence if none has. */
    sp<Fence> takeReleaseFence();

  private:
    sp<Fence> getReleaseFence(size_t start, size_t count);

    const std::shared_ptr<CachedBuffer> mCachedBuffer;
    const std::shared_ptr<CachedBuffer::Acquirable> mAcquirable;
    const sp<Fence> mAcquireFence;
    std::vector<base::unique_fd> mReleaseFenceFds;  // until a Fence takes them over
    bool mGotReleaseFences = false;
    const Releaser mReleaser;
};

}  // namespace android
