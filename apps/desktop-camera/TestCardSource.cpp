// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "desktop-camera"

#include "TestCardSource.h"

#include <log/log.h>

namespace korvane::camera {

bool TestCardSource::start(const PictureFormat& format) {
    stop();
    const auto layout = testcard::StripLayout::forSize(format.width, format.height);
    if (!layout) {
        ALOGE("the test card cannot be drawn in %ux%u", format.width, format.height);
        return false;
    }
    if (!format.isJpeg()) {
        mCard = std::make_unique<testcard::TestCard>(*layout);
        return true;
    }
    mJpegCard = testcard::TestCardJpeg::create(*layout);
    if (mJpegCard == nullptr) ALOGE("the test card cannot be encoded");
    return mJpegCard != nullptr;
}

FrameSource::Result TestCardSource::draw(const testcard::FrameStamp& stamp,
                                         const PictureMemory& memory, size_t* bytes) {
    if (mJpegCard != nullptr) {
        *bytes = mJpegCard->draw(stamp, memory.file, memory.fileCapacity);
        if (*bytes > 0) return Result::DRAWN;
        ALOGE("the test card does not fit into %zu bytes", memory.fileCapacity);
        return Result::FAILED;
    }
    mCard->draw(stamp, memory.planes);
    *bytes = size_t{mCard->layout().width()} * mCard->layout().height() * 3 / 2;
    return Result::DRAWN;
}

void TestCardSource::stop() {
    mCard.reset();
    mJpegCard.reset();
}

}  // namespace korvane::camera
