// SPDX-License-Identifier: Apache-2.0
#include "uvc/CameraSurface.h"

#include <utility>

namespace korvane::hardware::camera::desktop::V2_0::implementation {

using ::android::KorBufferSource;
using ::android::sp;

sp<KorBufferSource> CameraSurface::source() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mSource;
}

sp<KorBufferSource> CameraSurface::replace(const sp<KorBufferSource>& source) {
    sp<KorBufferSource> replaced = source;
    std::lock_guard<std::mutex> guard(mLock);
    std::swap(mSource, replaced);
    mStats.surfaceGone();
    return replaced;
}

const char* CameraSurface::publish(const sp<ICameraDesktop>& desktop,
                                   const sp<KorBufferSource>& source, const Refuse& refuse) {
    const auto producer = source->getHGraphicBufferProducer_V1_0();
    std::lock_guard<std::mutex> guard(mLock);
    if (const char* refusal = refuse(mSource == source)) {
        mSource.clear();
        mStats.surfaceGone();
        return refusal;
    }
    if (desktop != nullptr) {
        // A service that is gone is noticed by the next event.
        (void)desktop->setSurface(ClientType::WEBCAM_CONTROLLER, producer).isOk();
    }
    return nullptr;
}

sp<KorBufferSource> CameraSurface::withdraw(const sp<ICameraDesktop>& desktop) {
    sp<KorBufferSource> source;
    std::lock_guard<std::mutex> guard(mLock);
    if (desktop != nullptr) {
        (void)desktop->setSurface(ClientType::WEBCAM_CONTROLLER, nullptr).isOk();
    }
    std::swap(source, mSource);
    mStats.surfaceGone();
    return source;
}

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
