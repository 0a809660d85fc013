// SPDX-License-Identifier: Apache-2.0
// Compares the frames that a host captured with what the camera drew.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Capture.h"
#include "FrameLog.h"
#include "Picture.h"
#include "StripCode.h"
#include "StripLayout.h"
#include "TestCard.h"

namespace korvane::testcard {

/** How many frames of each kind there were. A frame can be wrong in more than one way. */
struct CheckCounts {
    size_t drawn = 0;       // noted in the log with this format and size
    size_t received = 0;    // captured, whatever state they were in
    size_t lost = 0;        // drawn between the first and the last one received, but never received
    size_t repeated = 0;    // received again
    size_t outOfOrder = 0;  // received after a later one
    size_t torn = 0;        // one frame at the top, another at the bottom
    size_t unreadable = 0;  // without a valid code at the top or the bottom, or undecodable
    size_t unknown = 0;     // not in the log as received: different number, time, format or size
    size_t wrongPixels = 0;  // known, but not what the camera drew

    /** Whether everything is right apart from lost frames. */
    bool sound() const {
        return repeated + outOfOrder + torn + unreadable + unknown + wrongPixels == 0;
    }
};

/** The picture of a captured frame; false, with the reason in `error`, if it can't be decoded. */
bool decodeFrame(const Frame& frame, PixelFormat format, uint32_t width, uint32_t height,
                 Picture* out, std::string* error);

/**
 * Checks the frames of one capture, in the order of the host's driver. What a frame should look
 * like follows from the stamp in its picture: raw formats are drawn again and compared sample by
 * sample; JPEG files are compared with the log by size and checksum. Not thread-safe.
 */
class FrameChecker {
  public:
    /** `log` must outlive the checker. */
    FrameChecker(const StripLayout& layout, PixelFormat format, const FrameLog& log);

    /** Checks the next frame; returns what is wrong with it, or nothing if it is right. */
    std::optional<std::string> check(const Frame& frame);

    /** When the frame last checked was drawn; nothing if it doesn't say or the log disagrees. */
    std::optional<uint64_t> drawnAtUs() const { return mDrawnAtUs; }

    /** The counts over all frames so far. */
    CheckCounts counts() const;

    /** The numbers of the frames lost so far. */
    std::vector<uint32_t> lostFrames() const;

  private:
    bool readStamps(const Frame& frame, CardReading* reading, std::string* error);
    bool isOfThisCapture(const FrameRecord& record) const;
    std::string checkOrder(uint32_t number);
    std::string checkPixels(const Frame& frame, const FrameRecord& record);
    std::vector<uint8_t> redraw(const FrameStamp& stamp);

    const StripLayout mLayout;
    const PixelFormat mFormat;
    const FrameLog& mLog;
    TestCard mCard;
    CheckCounts mCounts;
    std::set<uint32_t> mSeen;
    std::optional<uint64_t> mDrawnAtUs;
};

}  // namespace korvane::testcard
