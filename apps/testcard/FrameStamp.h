// SPDX-License-Identifier: Apache-2.0
// What tells one picture of the test card from all others.
#pragma once

#include <cstdint>

namespace korvane::testcard {

/** Why a card stands in for the camera's picture. Programs read these numbers: never reuse one. */
enum class Notice : uint8_t {
    NONE = 0,      // it doesn't: this is the test card
    STARTING = 1,  // the source has yet to give its first picture
    ABSENT = 2,    // there is no source
    FAILED = 3,    // the source has failed
    ENDED = 4,     // the source has ended
    SILENT = 5,    // the source has stopped delivering pictures
    COVERED = 6,   // the camera is covered
};

/** The word for a notice, as programs write it; "unknown" for any other number. */
const char* nameOf(Notice notice);

/** The frame number, the time of drawing and the notice, as a picture carries them. */
struct FrameStamp {
    uint32_t number = 0;
    uint64_t timeUs = 0;  // monotonic clock, microseconds, of which 56 bits are carried
    Notice notice = Notice::NONE;

    bool operator==(const FrameStamp& other) const {
        return number == other.number && timeUs == other.timeUs && notice == other.notice;
    }
    bool operator!=(const FrameStamp& other) const { return !(*this == other); }
};

}  // namespace korvane::testcard
