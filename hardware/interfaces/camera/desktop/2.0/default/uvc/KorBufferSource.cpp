// SPDX-License-Identifier: Apache-2.0
// The life of a source: made, configured, offered to a client, started, ended.
#define LOG_TAG "KorBufferSource"

#include "uvc/KorBufferSource.h"

#include <cstring>

#include <linux/videodev2.h>

#include <gui/bufferqueue/1.0/WGraphicBufferProducer.h>
#include <log/log.h>
#include <system/graphics.h>
#include <utils/String8.h>

#include "uvc/KorCheck.h"

namespace android {
namespace {

constexpr char kQueueName[] = "KorBufferSource";

struct DefaultFormat {
    uint32_t v4l2PixelFormat;
    PixelFormat format;
    android_dataspace dataSpace;
};

constexpr auto kBt2020Limited = static_cast<android_dataspace>(HAL_DATASPACE_STANDARD_BT2020 |
                                                               HAL_DATASPACE_TRANSFER_SMPTE_170M |
                                                               HAL_DATASPACE_RANGE_LIMITED);

constexpr DefaultFormat kDefaultFormats[] = {
        {V4L2_PIX_FMT_MJPEG, HAL_PIXEL_FORMAT_BLOB, HAL_DATASPACE_V0_JFIF},
        {V4L2_PIX_FMT_H264, HAL_PIXEL_FORMAT_BLOB, kBt2020Limited},
        {V4L2_PIX_FMT_NV12, HAL_PIXEL_FORMAT_YCBCR_420_888, kBt2020Limited},
};

const DefaultFormat* findDefaultFormat(uint32_t v4l2PixelFormat) {
    for (const DefaultFormat& format : kDefaultFormats) {
        if (format.v4l2PixelFormat == v4l2PixelFormat) return &format;
    }
    return nullptr;
}

}  // namespace

KorBufferSource::KorBufferSource(ServiceStats& stats) : mStats(stats), mTimes(stats) {
    BufferQueue::createBufferQueue(&mProducer, &mConsumer, false);
    mConsumerProxy = new ConsumerProxy(this);
    const sp<BufferQueue::ProxyConsumerListener> listener =
            new BufferQueue::ProxyConsumerListener(mConsumerProxy);
    mInitCheck = mConsumer->consumerConnect(listener, false);
    if (mInitCheck != NO_ERROR) {
        ALOGE("Error connecting to BufferQueue: %s (%d)", strerror(-mInitCheck), mInitCheck);
        return;
    }
    // Connected: the check below can't fail.
    mConsumer->setConsumerName(String8(kQueueName));
    KOR_CHECK(372, mInitCheck == NO_ERROR);
}

KorBufferSource::~KorBufferSource() {
    int32_t acquired = 0;
    {
        Mutex::Autolock lock(mMutex);
        mAvailableBuffers.clear();
        mCodecBuffers.forgetLent();
        mRepetition.forgetLatest();
        acquired = mSlots.outstandingAcquires();
    }
    if (acquired != 0) {
        ALOGW("potential buffer leak: acquired=%d", acquired);
        KOR_TRESPASS(388, "");
    }
    const status_t err = mConsumer->consumerDisconnect();
    if (err != NO_ERROR) ALOGW("consumerDisconnect failed: %d", err);
}

status_t KorBufferSource::configure(const sp<ComponentWrapper>& component,
                                    int maxAcquiredBufferCount, uint32_t width, uint32_t height,
                                    uint32_t v4l2PixelFormat, uint32_t consumerUsage) {
    if (component == nullptr) return BAD_VALUE;

    // Not under the lock: the queue calls onBuffersReleased() from there when it gives up slots.
    status_t err = mConsumer->setMaxAcquiredBufferCount(maxAcquiredBufferCount);
    if (err != NO_ERROR) {
        ALOGE("Unable to set BQ max acquired buffer count to %u: %d", maxAcquiredBufferCount, err);
        return err;
    }

    Mutex::Autolock lock(mMutex);
    mComponent = component;
    err = mConsumer->setDefaultBufferSize(width, height);
    if (err != NO_ERROR) {
        ALOGE("Unable to set BQ default buffer size to %ux%u: %d", width, height, err);
        return err;
    }
    mConsumer->setConsumerUsageBits(consumerUsage);

    android_dataspace dataSpace = HAL_DATASPACE_UNKNOWN;
    err = setDefaultFormat_l(v4l2PixelFormat, &dataSpace);
    if (err != NO_ERROR) {
        ALOGE("Failed to configure surface default format ret: %d", err);
        return err;
    }
    setDefaultDataSpace_l(dataSpace);
    resetPacing_l();
    return OK;
}

status_t KorBufferSource::setDefaultFormat_l(uint32_t v4l2PixelFormat,
                                             android_dataspace* dataSpace) {
    const DefaultFormat* format = findDefaultFormat(v4l2PixelFormat);
    if (format == nullptr) {
        ALOGE("%s: Unsupported format: %u", "configure", v4l2PixelFormat);
        return BAD_VALUE;
    }
    *dataSpace = format->dataSpace;
    return mConsumer->setDefaultBufferFormat(format->format);
}

void KorBufferSource::setDefaultDataSpace_l(android_dataspace dataSpace) {
    ALOGD("setting dataspace: %#x, acquired=%d", dataSpace, mSlots.outstandingAcquires());
    mConsumer->setDefaultBufferDataSpace(dataSpace);
    mLastDataSpace = dataSpace;
}

void KorBufferSource::resetPacing_l() {
    mState = State::IDLE;
    mActions.reset();
    mTimes.reset();
    mRepetition = FrameRepetition();
}

sp<KorBufferSource::HGraphicBufferProducer> KorBufferSource::getHGraphicBufferProducer_V1_0()
        const {
    // The producer itself knows the name only once a client has connected.
    ALOGD("Getting producer with name: %s", kQueueName);
    return new TWGraphicBufferProducer<HGraphicBufferProducer>(mProducer);
}

status_t KorBufferSource::onInputBufferAdded(int32_t bufferId) {
    Mutex::Autolock lock(mMutex);
    if (isExecuting_l()) {
        // A fixed text: no function has that name.
        ALOGE("addCodecBuffer: buffer added while executing");
        return INVALID_OPERATION;
    }
    mCodecBuffers.add(bufferId);
    return OK;
}

status_t KorBufferSource::start() {
    Mutex::Autolock lock(mMutex);
    KOR_CHECK_AS(421, !isExecuting_l(), "!mExecuting");
    mLastDataSpace = 0;  // so that the first frame's is announced
    mState = State::EXECUTING;
    while (haveAvailableBuffers_l() && fillCodecBuffer_l()) {
    }
    if (!mActions.isStopPending() && mState >= State::ENDING && !haveAvailableBuffers_l()) {
        submitEndOfInputStream_l();
    }
    // Idle: nothing sets a repeat interval.
    if (mRepetition.isOn() && mLooper == nullptr) startRepeatLooper_l();
    return OK;
}

void KorBufferSource::ConsumerProxy::onFrameAvailable(const BufferItem& item) {
    const sp<KorBufferSource> source = mSource.promote();
    if (source != nullptr) source->onFrameAvailable(item);
}

void KorBufferSource::ConsumerProxy::onBuffersReleased() {
    const sp<KorBufferSource> source = mSource.promote();
    if (source != nullptr) source->onBuffersReleased();
}

void KorBufferSource::ConsumerProxy::onSidebandStreamChanged() {}

}  // namespace android
