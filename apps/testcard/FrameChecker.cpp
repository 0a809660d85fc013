// SPDX-License-Identifier: Apache-2.0
#include "FrameChecker.h"

#include <algorithm>
#include <cstring>

namespace korvane::testcard {
namespace {

std::string text(const FrameStamp& stamp) {
    return "frame " + std::to_string(stamp.number) + " of " + std::to_string(stamp.timeUs) + " us";
}

// What I420ToYUY2 makes of the picture: luma unchanged, each line of chroma used for two lines.
std::vector<uint8_t> yuyvOf(const std::vector<uint8_t>& nv12, uint32_t width, uint32_t height) {
    std::vector<uint8_t> yuyv(frameBytes(PixelFormat::YUYV, width, height));
    const uint8_t* chroma = &nv12[size_t{width} * height];
    uint8_t* out = yuyv.data();
    for (uint32_t y = 0; y < height; ++y) {
        const uint8_t* luma = &nv12[size_t{width} * y];
        const uint8_t* pair = chroma + size_t{width} * (y / 2);
        for (uint32_t x = 0; x < width; x += 2) {
            *out++ = luma[x];
            *out++ = pair[x];
            *out++ = luma[x + 1];
            *out++ = pair[x + 1];
        }
    }
    return yuyv;
}

}  // namespace

bool decodeFrame(const Frame& frame, PixelFormat format, uint32_t width, uint32_t height,
                 Picture* out, std::string* error) {
    if (format == PixelFormat::MJPG) return decodeJpeg(frame.data, frame.size, out, error);
    if (frame.size != frameBytes(format, width, height)) {
        *error = std::to_string(frame.size) + " bytes instead of " +
                 std::to_string(frameBytes(format, width, height));
        return false;
    }
    *out = format == PixelFormat::YUYV ? pictureFromYuyv(frame.data, width, height)
                                       : pictureFromNv12(frame.data, width, height);
    return true;
}

FrameChecker::FrameChecker(const StripLayout& layout, PixelFormat format, const FrameLog& log)
    : mLayout(layout), mFormat(format), mLog(log), mCard(layout) {
    for (const auto& [number, record] : mLog.frames()) mCounts.drawn += isOfThisCapture(record);
}

std::optional<std::string> FrameChecker::check(const Frame& frame) {
    ++mCounts.received;
    mDrawnAtUs.reset();
    CardReading reading;
    std::string wrong;
    if (!readStamps(frame, &reading, &wrong)) {
        ++mCounts.unreadable;
        return wrong;
    }
    const FrameStamp& stamp = *reading.top;
    if (reading.torn()) {
        ++mCounts.torn;
        mSeen.insert(stamp.number);
        return "torn: " + text(stamp) + " above " + text(*reading.bottom);
    }
    const FrameRecord* record = mLog.find(stamp.number);
    if (record == nullptr || record->stamp != stamp || !isOfThisCapture(*record)) {
        ++mCounts.unknown;
        return text(stamp) + " is not in the log";
    }
    mDrawnAtUs = stamp.timeUs;
    wrong = checkOrder(stamp.number) + checkPixels(frame, *record);
    if (wrong.empty()) return std::nullopt;
    return text(stamp) + wrong;
}

bool FrameChecker::readStamps(const Frame& frame, CardReading* reading, std::string* error) {
    Picture picture;
    if (!decodeFrame(frame, mFormat, mLayout.width(), mLayout.height(), &picture, error)) {
        return false;
    }
    if (picture.width != mLayout.width() || picture.height != mLayout.height()) {
        *error = "a picture of " + std::to_string(picture.width) + "x" +
                 std::to_string(picture.height);
        return false;
    }
    *reading = readCard(mLayout, picture.luma());
    if (reading->readable()) return true;
    *error = reading->top ? "no readable code at the bottom, " + text(*reading->top) + " at the top"
             : reading->bottom
                     ? "no readable code at the top, " + text(*reading->bottom) + " at the bottom"
                     : "no readable code";
    return false;
}

bool FrameChecker::isOfThisCapture(const FrameRecord& record) const {
    return record.format == drawnFormatOf(mFormat) && record.width == mLayout.width() &&
           record.height == mLayout.height();
}

std::string FrameChecker::checkOrder(uint32_t number) {
    const bool late = !mSeen.empty() && number < *mSeen.rbegin();
    if (!mSeen.insert(number).second) {
        ++mCounts.repeated;
        return ": repeated";
    }
    if (!late) return "";
    ++mCounts.outOfOrder;
    return ": out of order";
}

std::string FrameChecker::checkPixels(const Frame& frame, const FrameRecord& record) {
    if (mFormat == PixelFormat::MJPG) {
        if (frame.size == record.bytes && crc32Of(frame.data, frame.size) == record.crc32)
            return "";
    } else {
        const std::vector<uint8_t> drawn = redraw(record.stamp);
        if (memcmp(frame.data, drawn.data(), drawn.size()) == 0) return "";
    }
    ++mCounts.wrongPixels;
    return ": not what the camera drew";
}

std::vector<uint8_t> FrameChecker::redraw(const FrameStamp& stamp) {
    std::vector<uint8_t> nv12 = mCard.nv12(stamp);
    if (mFormat == PixelFormat::NV12) return nv12;
    return yuyvOf(nv12, mLayout.width(), mLayout.height());
}

std::vector<uint32_t> FrameChecker::lostFrames() const {
    std::vector<uint32_t> lost;
    if (mSeen.empty()) return lost;
    const auto end = mLog.frames().upper_bound(*mSeen.rbegin());
    for (auto i = mLog.frames().lower_bound(*mSeen.begin()); i != end; ++i) {
        if (isOfThisCapture(i->second) && mSeen.count(i->first) == 0) lost.push_back(i->first);
    }
    return lost;
}

CheckCounts FrameChecker::counts() const {
    CheckCounts counts = mCounts;
    counts.lost = lostFrames().size();
    return counts;
}

}  // namespace korvane::testcard
