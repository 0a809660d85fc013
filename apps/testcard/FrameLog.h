// SPDX-License-Identifier: Apache-2.0
// The log in which a camera records every frame that it handed over.
#pragma once

#include <cstddef>
#include <cstdint>
#include <istream>
#include <map>
#include <string>

#include "FrameStamp.h"
#include "Planes.h"

namespace korvane::testcard {

/** One frame, as the camera sent it. */
struct FrameRecord {
    FrameStamp stamp;
    std::string format;  // four characters: NV12 or MJPG
    uint32_t width = 0;
    uint32_t height = 0;
    size_t bytes = 0;    // of the picture
    uint32_t crc32 = 0;  // of the picture's bytes, as zlib computes it

    /** The record as a line of the log, without an end of line. */
    std::string toLine() const;

    /** Parses such a line; false if it is anything else. */
    bool fromLine(const std::string& line);
};

/** The CRC of a picture's bytes, continued from `crc` for a picture in several pieces. */
uint32_t crc32Of(const uint8_t* data, size_t size, uint32_t crc = 0);

/** The CRC of a picture as if it were NV12 without padding, whatever its layout in memory. */
uint32_t crc32Of(const Planes& planes, uint32_t width, uint32_t height);

/** The frames of a log, by number. */
class FrameLog {
  public:
    /** The first line of every log. */
    static constexpr char kHeader[] = "# frames that the camera sent, log format 1";

    /**
     * Reads a whole log. False if the header is missing, a line is not a record, or the numbers do
     * not increase; `error` then says which line and why. An incomplete last line is ignored: the
     * camera may have been killed while writing it.
     */
    bool read(std::istream& in, std::string* error);

    const std::map<uint32_t, FrameRecord>& frames() const { return mFrames; }

    /** The record of a frame number; null if the camera sent none. */
    const FrameRecord* find(uint32_t number) const;

  private:
    std::map<uint32_t, FrameRecord> mFrames;
};

}  // namespace korvane::testcard
