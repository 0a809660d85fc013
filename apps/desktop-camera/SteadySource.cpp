// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "desktop-camera"

#include "SteadySource.h"

#include <utility>

#include <log/log.h>

#include "StreamDemand.h"

namespace korvane::camera {

using testcard::FrameStamp;
using testcard::Notice;

namespace {

constexpr char kSlowStart[] = "the source does not start";

}  // namespace

SteadySource::SteadySource(FrameSource& source, std::function<bool()> isCovered, const Times& times,
                           CameraStatus& status)
    : mSource(source), mIsCovered(std::move(isCovered)), mTimes(times), mStatus(status) {}

bool SteadySource::start(const PictureFormat& format) {
    stop();
    mFormat = format;
    mHasCard = mCard.start(format);
    if (!mHasCard) ALOGW("no card fits into %ux%u", format.width, format.height);
    mStatus.begin(format);
    show({Notice::STARTING, ""});
    noteCover();
    if (mTrouble.notice != Notice::COVERED) open();
    if (mHasCard || mOpen) return true;
    mStatus.end();
    return false;
}

void SteadySource::stop() {
    close();
    mCard.stop();
    mStatus.end();
}

FrameSource::Result SteadySource::draw(const FrameStamp& stamp, const PictureMemory& memory,
                                       size_t* bytes) {
    noteCover();
    if (mTrouble.notice != Notice::COVERED) {
        const std::optional<Result> result = drawPicture(stamp, memory, bytes);
        if (result) return *result;
    }
    return mHasCard ? mCard.draw(mTrouble, stamp, memory, bytes) : Result::NOT_YET;
}

// Nothing if it is the card's turn.
std::optional<FrameSource::Result> SteadySource::drawPicture(const FrameStamp& stamp,
                                                             const PictureMemory& memory,
                                                             size_t* bytes) {
    if (!mOpen && monotonicNs() >= mRetryAt) open();
    if (!mOpen) return std::nullopt;
    Result result = mSource.draw(stamp, memory, bytes);
    if (result == Result::ENDED) {
        result = mSource.startAgain() ? Result::STARTING : Result::FAILED;
    }
    if (result == Result::DRAWN) {
        notePicture();
        return result;
    }
    if (result == Result::FAILED) {
        noteLoss(mSource.trouble());
    } else if (noteQuiet(result == Result::STARTING)) {
        return Result::NOT_YET;
    }
    return std::nullopt;
}

// Whether the host can do without a card. A source is not restarted while it is starting.
bool SteadySource::noteQuiet(bool starting) {
    const int64_t now = monotonicNs();
    const int64_t quiet = now - mSince;
    if (starting) mReadySince = now;
    if (now - mReadySince > (mGavePicture ? mTimes.gap : mTimes.patience)) {
        noteLoss({Notice::SILENT, ""});
    } else if (starting && quiet > mTimes.patience && mTrouble.text != kSlowStart) {
        ALOGW("no picture: %s; it is waited for", kSlowStart);
        show({Notice::STARTING, kSlowStart});
    } else if (mTrouble.notice == Notice::NONE && quiet > mTimes.gap) {
        show({Notice::STARTING, ""});
    }
    return mTrouble.notice == Notice::NONE ||
           (mTrouble.notice == Notice::STARTING && quiet < mTimes.beforeCard);
}

void SteadySource::open() {
    mOpen = mSource.start(mFormat);
    mGavePicture = false;
    mSince = mReadySince = monotonicNs();
    if (!mOpen) noteLoss(mSource.trouble());
}

void SteadySource::close() {
    if (mOpen) mSource.stop();
    mOpen = false;
}

void SteadySource::noteCover() {
    const bool covered = mIsCovered != nullptr && mIsCovered();
    if (covered == (mTrouble.notice == Notice::COVERED)) return;
    ALOGI("the camera is %s", covered ? "covered" : "uncovered");
    close();
    show({covered ? Notice::COVERED : Notice::STARTING, ""});
    mRetryAt = 0;
}

// The same trouble again at each retry isn't worth another line.
void SteadySource::noteLoss(const Trouble& trouble) {
    close();
    mRetryAt = monotonicNs() + mTimes.retry;
    if (trouble.notice != mTrouble.notice || trouble.text != mTrouble.text) {
        ALOGW("no picture: the source is %s; it is tried again every %.1f s",
              nameOf(trouble.notice), static_cast<double>(mTimes.retry) / 1e9);
    }
    show(trouble);
}

void SteadySource::show(const Trouble& trouble) {
    mTrouble = trouble;
    mStatus.setTrouble(trouble);
}

void SteadySource::notePicture() {
    if (mTrouble.notice != Notice::NONE && mTrouble.notice != Notice::STARTING) {
        ALOGI("the source gives pictures again");
    }
    if (!mGavePicture) mStatus.setPictures(mSource.handling());
    mTrouble = {};
    mGavePicture = true;
    mSince = mReadySince = monotonicNs();
}

}  // namespace korvane::camera
