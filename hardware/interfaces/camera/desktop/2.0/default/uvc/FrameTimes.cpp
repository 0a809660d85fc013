// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "KorBufferSource"

#include "uvc/FrameTimes.h"

#include <algorithm>
#include <cmath>

#include <log/log.h>

namespace android {

using ::korvane::hardware::camera::desktop::V2_0::implementation::Count;

namespace {

constexpr double kMicrosPerSecond = 1000000.0;

// One frame in 31 years. Of a much lower rate the dropper can't hold the interval.
constexpr float kLowestFps = 1e-9f;

}  // namespace

status_t FrameTimes::setMaxFps(float maxFps) {
    mFrameDropper = new FrameDropper;
    const status_t err =
            mFrameDropper->setMaxFrameRate(maxFps > 0 ? std::max(maxFps, kLowestFps) : maxFps);
    if (err != OK) mFrameDropper.clear();
    return err;
}

void FrameTimes::reset() {
    const bool snapTimestamps = mSettings.snapTimestamps;
    mSettings = Settings();
    mSettings.snapTimestamps = snapTimestamps;
    mProgress = Progress();
    mFrameDropper.clear();
}

bool FrameTimes::skip(int64_t* timeNs) const {
    // Idle: nothing sets a time to skip to.
    const int64_t before = mSettings.skipFramesBeforeNs;
    if (before >= 0 && *timeNs < before) return true;
    if (before >= 1) *timeNs -= before;
    return false;
}

bool FrameTimes::isTooSoon(int64_t timeNs) {
    if (mFrameDropper == nullptr || !mFrameDropper->shouldDrop(timeNs / 1000)) return false;
    mStats->count(Count::DROPPED_RATE);
    return true;
}

bool FrameTimes::calculate(int64_t timeNs, int64_t* codecTimeUs) {
    const int64_t timeUs = timeNs / 1000 + mSettings.inputTimeOffsetUs;
    if (isTimeLapse()) return calculateTimeLapse(timeUs, codecTimeUs);
    if (timeUs <= mProgress.prevFrameUs && !keepBackwardFrame()) return false;
    mProgress.prevFrameUs = timeUs;
    *codecTimeUs = timeUs;
    return true;
}

// The time-lapse is idle: nothing sets a capture rate.
bool FrameTimes::isTimeLapse() const {
    const double captureFps = mSettings.captureFps;
    const double fps = mSettings.fps;
    return captureFps > 0 && (fps > 2 * captureFps || captureFps > 2 * fps);
}

bool FrameTimes::calculateTimeLapse(int64_t timeUs, int64_t* codecTimeUs) {
    const double scale = mSettings.captureFps / mSettings.fps;
    Progress& progress = mProgress;
    if (progress.prevCaptureUs < 0) {
        progress.baseCaptureUs = progress.prevCaptureUs = timeUs;
        progress.frameCount = 0;
        progress.baseFrameUs = progress.prevFrameUs =
                std::llround(mSettings.captureFps * timeUs / mSettings.fps);
        *codecTimeUs = progress.prevFrameUs;
        return true;
    }
    if (mSettings.snapTimestamps) return snap(timeUs, codecTimeUs);

    if (timeUs <= progress.prevCaptureUs && !keepBackwardFrame()) return false;
    progress.prevCaptureUs = timeUs;
    progress.prevFrameUs =
            progress.baseFrameUs + std::llround(scale * (timeUs - progress.baseCaptureUs));
    *codecTimeUs = progress.prevFrameUs;
    return true;
}

// Puts the frame on the nearest whole interval of the capture rate, at least one past the last.
bool FrameTimes::snap(int64_t timeUs, int64_t* codecTimeUs) {
    const auto interval = [this](double fps) {
        return std::llround(mProgress.frameCount * kMicrosPerSecond / fps);
    };
    const double frames =
            mSettings.captureFps * (timeUs - mProgress.prevCaptureUs) / kMicrosPerSecond;
    if (frames < 0.45) {
        ALOGD("skipping frame, timeUs %lld", static_cast<long long>(timeUs));
        mStats->count(Count::DROPPED_RATE);
        return false;
    }
    mProgress.frameCount += std::llround(std::max(frames, 1.0));
    mProgress.prevCaptureUs = mProgress.baseCaptureUs + interval(mSettings.captureFps);
    mProgress.prevFrameUs = mProgress.baseFrameUs + interval(mSettings.fps);
    *codecTimeUs = mProgress.prevFrameUs;
    return true;
}

bool FrameTimes::keepBackwardFrame() const {
    if (mFrameDropper != nullptr && mFrameDropper->disabled()) {
        ALOGW("Received frame that's going backward in time");
        return true;
    }
    ALOGW("Dropping frame that's going backward in time");
    mStats->count(Count::DROPPED_BACKWARD);
    return false;
}

}  // namespace android
