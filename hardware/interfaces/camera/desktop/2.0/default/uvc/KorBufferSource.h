// SPDX-License-Identifier: Apache-2.0
// The surface that the camera client renders into, and the source of the gadget's frames.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include <sys/types.h>

#include <android-base/thread_annotations.h>
#include <android/hardware/graphics/bufferqueue/1.0/IGraphicBufferProducer.h>
#include <gui/BufferQueue.h>
#include <media/stagefright/foundation/AHandlerReflector.h>
#include <media/stagefright/foundation/ALooper.h>
#include <media/stagefright/foundation/AMessage.h>
#include <utils/Errors.h>
#include <utils/Mutex.h>
#include <utils/RefBase.h>

#include "uvc/BufferSlotTable.h"
#include "uvc/CachedBuffer.h"
#include "uvc/CodecBuffers.h"
#include "uvc/ComponentWrapper.h"
#include "uvc/FrameActions.h"
#include "uvc/FrameRepetition.h"
#include "uvc/FrameTimes.h"
#include "uvc/RecyclingAllocator.h"
#include "uvc/ServiceStats.h"
#include "uvc/VideoBuffer.h"

namespace android {

/**
 * The consumer of a buffer queue that lends its frames to a ComponentWrapper, as many at a time as
 * that has codec buffers.
 *
 * Order of calls: the constructor, configure(), getHGraphicBufferProducer_V1_0(),
 * onInputBufferAdded() for each codec buffer, setMaxFps(), start(); then onInputBufferEmptied() for
 * each codec buffer that comes back, and setSuspend() at any time. A source is configured and
 * started once; it ends when its last reference drops.
 *
 * A codec buffer is free, then lent with a frame, then free again. A frame waits in the queue
 * (unacquired), is acquired, perhaps parked (available) until a codec buffer is free, is lent, and
 * goes back to the queue when nobody holds its AcquiredBuffer any more.
 *
 * What has rules of its own is a value of its own, without a lock: FrameTimes (a frame's time, the
 * rates), FrameActions (pauses, resumptions, the stop), FrameRepetition, BufferSlotTable,
 * CodecBuffers. This class brings them together: who calls what, in which order, under the lock.
 *
 * Three kinds of thread enter it: the owner's, those of the queue's producer (onFrameAvailable,
 * onBuffersReleased), and the one of its looper. One mutex guards all state; it is held while the
 * component is called and whenever the last reference to an AcquiredBuffer drops. So a function
 * declares the lock first, and what holds an AcquiredBuffer after it.
 *
 * Idle, since nothing sets them: FrameTimes::Settings, the repeat interval and the stop. The rules
 * that use them are complete.
 */
class KorBufferSource : public RefBase {
  public:
    using HGraphicBufferProducer =
            ::android::hardware::graphics::bufferqueue::V1_0::IGraphicBufferProducer;

    using ServiceStats = ::korvane::hardware::camera::desktop::V2_0::implementation::ServiceStats;

    /**
     * Makes the queue. If connecting to it fails, that is logged and every frame stays away.
     *
     * @param stats counts the frames; outlives the source
     */
    explicit KorBufferSource(ServiceStats& stats);

    /**
     * Sets what producers are offered and who consumes. Forgets earlier pacing, but neither codec
     * buffers nor frames.
     *
     * @param maxAcquiredBufferCount frames held at a time, 1 to 62
     * @param v4l2PixelFormat MJPG or H264 (BLOB buffers) or NV12 (YCbCr 4:2:0), as V4L2 writes it
     * @return BAD_VALUE without a component, with another format, or as the queue says. A component
     *         is kept even if what follows fails.
     */
    [[nodiscard]] status_t configure(const sp<ComponentWrapper>& component,
                                     int maxAcquiredBufferCount, uint32_t width, uint32_t height,
                                     uint32_t v4l2PixelFormat, uint32_t consumerUsage)
            EXCLUDES(mMutex);

    /**
     * A new endpoint of the queue for a client to render into. It behaves as the platform's does: a
     * client that waits for a buffer holds the thread that serves it. Takes no lock.
     */
    sp<HGraphicBufferProducer> getHGraphicBufferProducer_V1_0() const;

    /** Adds a free codec buffer. INVALID_OPERATION once started. */
    [[nodiscard]] status_t onInputBufferAdded(int32_t bufferId) EXCLUDES(mMutex);

    /**
     * Drops frames beyond this rate, in frames per second; a negative one lets through even those
     * whose time goes backwards.
     *
     * @return INVALID_OPERATION once started, BAD_VALUE for 0, which drops none
     */
    [[nodiscard]] status_t setMaxFps(float maxFps) EXCLUDES(mMutex);

    /** Starts to lend frames, with those already waiting. Fatal the second time. */
    [[nodiscard]] status_t start() EXCLUDES(mMutex);

    /**
     * Takes a codec buffer back from the component.
     *
     * @param fenceFd signals when the frame has been read, -1 for now; taken over in any case
     * @return BAD_VALUE for a codec buffer that isn't lent and for the one that ended the stream
     */
    [[nodiscard]] status_t onInputBufferEmptied(int32_t bufferId, int fenceFd) EXCLUDES(mMutex);

    /**
     * Pauses or resumes; frames that come while paused go straight back to the queue.
     *
     * @param suspendStartTimeUs applies to frames from this time (CLOCK_MONOTONIC) on, which must
     *                           not be later than now nor before that of an earlier call; -1 for at
     *                           once
     * @return INVALID_OPERATION for another time or when a stop is pending
     */
    [[nodiscard]] status_t setSuspend(bool suspend, int64_t suspendStartTimeUs) EXCLUDES(mMutex);

    // Called by the queue: not for others.

    /** A frame waits in the queue, not necessarily this one. */
    void onFrameAvailable(const BufferItem& item) EXCLUDES(mMutex);
    /** Slots have lost their buffers. */
    void onBuffersReleased() EXCLUDES(mMutex);

  protected:
    /** Fatal when a frame is still held elsewhere. */
    ~KorBufferSource() override;

  private:
    friend class KorBufferSourcePeer;  // sets, for the tests, what has no setter
    friend struct AHandlerReflector<KorBufferSource>;

    /**
     * Its life; configure() leads to IDLE from everywhere.
     *
     *          start()              a stop            its end is sent
     *    IDLE ─────────► EXECUTING ────────► ENDING ──────────────────► ENDED
     *
     * Only from EXECUTING on are frames lent. ENDING lasts while no codec buffer is free or the
     * component refuses the end; frames are still lent meanwhile. Once ENDED they are ignored.
     * Whether the source is paused is another matter, and FrameActions' own: it may be so always.
     *
     * The texts of fatal checks are fixed: they call all but IDLE mExecuting, ENDING and ENDED
     * mEndOfStream, and ENDED mEndOfStreamSent.
     */
    enum class State { IDLE, EXECUTING, ENDING, ENDED };

    /** Passes the queue's callbacks on while the source lives. */
    class ConsumerProxy : public BufferQueue::ConsumerListener {
      public:
        explicit ConsumerProxy(const wp<KorBufferSource>& source) : mSource(source) {}

        void onFrameAvailable(const BufferItem& item) override;
        void onBuffersReleased() override;
        void onSidebandStreamChanged() override;

      private:
        const wp<KorBufferSource> mSource;
    };

    // Configuration.
    [[nodiscard]] status_t setDefaultFormat_l(uint32_t v4l2PixelFormat,
                                              android_dataspace* dataSpace) REQUIRES(mMutex);
    void setDefaultDataSpace_l(android_dataspace dataSpace) REQUIRES(mMutex);
    void resetPacing_l() REQUIRES(mMutex);
    bool isExecuting_l() const REQUIRES(mMutex) { return mState != State::IDLE; }

    // From the queue to the table of slots, and back.
    /** Takes the queue's next frame; the queue's error, or NAME_NOT_FOUND for an unknown buffer. */
    [[nodiscard]] status_t acquireBuffer_l(VideoBuffer* buffer) REQUIRES(mMutex);
    std::shared_ptr<CachedBuffer> cacheBuffer_l(const BufferItem& item) REQUIRES(mMutex);
    std::shared_ptr<AcquiredBuffer> makeAcquiredBuffer_l(
            const std::shared_ptr<CachedBuffer>& cachedBuffer, const BufferItem& item)
            REQUIRES(mMutex);
    /** Fatal when the lock is free: somebody let go of a frame without it. */
    void checkLocked() const ASSERT_CAPABILITY(mMutex);
    void releaseBuffer_l(AcquiredBuffer* buffer, uint64_t frameNumber) REQUIRES(mMutex);
    void discardBufferAtSlotIndex_l(ssize_t index) REQUIRES(mMutex);
    /** Gives back every frame that waits, parked or in the queue. */
    void releaseAllAvailableBuffers_l() REQUIRES(mMutex);

    // From there to the component.
    void onBufferAcquired_l(const VideoBuffer& buffer) REQUIRES(mMutex);
    /** Whether frames wait, parked or in the queue. */
    bool haveAvailableBuffers_l() const REQUIRES(mMutex);
    [[nodiscard]] bool takeAvailableBuffer_l(VideoBuffer* buffer) REQUIRES(mMutex);
    /** Deals with the next waiting frame; true when it is worth calling again. */
    bool fillCodecBuffer_l() REQUIRES(mMutex);
    /** Lends the frame; UNKNOWN_ERROR when its time refuses it, or the component's error. */
    [[nodiscard]] status_t submitBuffer_l(const VideoBuffer& buffer) REQUIRES(mMutex);
    void announceDataSpace_l(const VideoBuffer& buffer) REQUIRES(mMutex);
    /** Sends the end of stream if a codec buffer is free. */
    void submitEndOfInputStream_l() REQUIRES(mMutex);
    /** Once one has come back: lends the next frame in it, ends the stream, or repeats. */
    void useFreeCodecBuffer_l() REQUIRES(mMutex);

    // Pacing.
    void stop_l() REQUIRES(mMutex);
    void resume_l() REQUIRES(mMutex);
    /** The time to submit the frame with; false to drop it. */
    [[nodiscard]] bool calculateCodecTimestamp_l(int64_t timeNs, int64_t* codecTimeUs)
            REQUIRES(mMutex);
    void startRepeatLooper_l() REQUIRES(mMutex);
    void setLatestBuffer_l(const VideoBuffer& buffer) REQUIRES(mMutex);
    /** Lends the latest frame again; false when that isn't possible now. */
    [[nodiscard]] bool repeatLatestBuffer_l() REQUIRES(mMutex);
    void queueFrameRepeat_l() REQUIRES(mMutex);
    /** Called on the looper's thread. */
    void onMessageReceived(const sp<AMessage>& msg) EXCLUDES(mMutex);

    // Released in the reverse order. Up to the mutex: set by the constructor and never again.
    ServiceStats& mStats;
    sp<ConsumerProxy> mConsumerProxy;
    sp<IGraphicBufferProducer> mProducer;
    sp<IGraphicBufferConsumer> mConsumer;
    status_t mInitCheck = UNKNOWN_ERROR;
    mutable Mutex mMutex;

    sp<ComponentWrapper> mComponent GUARDED_BY(mMutex);
    State mState GUARDED_BY(mMutex) = State::IDLE;
    FrameActions mActions GUARDED_BY(mMutex);
    FrameTimes mTimes GUARDED_BY(mMutex);
    BufferSlotTable mSlots GUARDED_BY(mMutex);
    CodecBuffers mCodecBuffers GUARDED_BY(mMutex);
    RecyclingAllocator<AcquiredBuffer> mAcquiredBufferAllocator GUARDED_BY(mMutex);

    int32_t mUnacquiredCount GUARDED_BY(mMutex) = 0;                // announced, not acquired yet
    std::vector<VideoBuffer> mAvailableBuffers GUARDED_BY(mMutex);  // parked, oldest first

    uint32_t mLastDataSpace GUARDED_BY(mMutex) = 0;
    int64_t mLastFrameTimestampUs GUARDED_BY(mMutex) = -1;  // for the debugger's eyes

    FrameRepetition mRepetition GUARDED_BY(mMutex);
    sp<ALooper> mLooper GUARDED_BY(mMutex);
    sp<AHandlerReflector<KorBufferSource>> mReflector GUARDED_BY(mMutex);
};

}  // namespace android
