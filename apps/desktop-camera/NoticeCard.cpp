// SPDX-License-Identifier: Apache-2.0
#include "NoticeCard.h"

#include <utility>

#include "testcard/NoticePattern.h"
#include "testcard/StripLayout.h"

namespace korvane::camera {

using testcard::Notice;
using testcard::NoticePattern;
using testcard::StripLayout;
using testcard::TestCard;
using testcard::TestCardJpeg;
using Result = FrameSource::Result;

namespace {

const char* titleOf(Notice notice) {
    switch (notice) {
        case Notice::NONE:
            return "";
        case Notice::STARTING:
            return "The camera is starting";
        case Notice::ABSENT:
            return "There is no camera";
        case Notice::FAILED:
            return "The camera has failed";
        case Notice::ENDED:
            return "The camera has ended";
        case Notice::SILENT:
            return "The camera gives no picture";
        case Notice::COVERED:
            return "The camera is covered";
    }
    return "";
}

}  // namespace

bool NoticeCard::start(const PictureFormat& format) {
    stop();
    mFormat = format;
    return StripLayout::forSize(format.width, format.height).has_value();
}

Result NoticeCard::draw(const Trouble& trouble, testcard::FrameStamp stamp,
                        const PictureMemory& memory, size_t* bytes) {
    if (!prepare(trouble)) return Result::FAILED;
    stamp.notice = trouble.notice;
    if (mJpegCard != nullptr) {
        *bytes = mJpegCard->draw(stamp, memory.file, memory.fileCapacity);
        return *bytes > 0 ? Result::DRAWN : Result::FAILED;
    }
    mCard->draw(stamp, memory.planes);
    *bytes = size_t{mFormat.width} * mFormat.height * 3 / 2;
    return Result::DRAWN;
}

bool NoticeCard::prepare(const Trouble& trouble) {
    if (mNotice == trouble.notice && mText == trouble.text) return true;
    stop();
    const auto layout = StripLayout::forSize(mFormat.width, mFormat.height);
    if (!layout) return false;
    auto pattern =
            std::make_unique<const NoticePattern>(*layout, titleOf(trouble.notice), trouble.text);
    if (mFormat.isJpeg()) {
        mJpegCard = TestCardJpeg::create(*layout, std::move(pattern));
        if (mJpegCard == nullptr) return false;
    } else {
        mCard = std::make_unique<TestCard>(*layout, std::move(pattern));
    }
    mNotice = trouble.notice;
    mText = trouble.text;
    return true;
}

void NoticeCard::stop() {
    mNotice = Notice::NONE;
    mCard.reset();
    mJpegCard.reset();
}

}  // namespace korvane::camera
