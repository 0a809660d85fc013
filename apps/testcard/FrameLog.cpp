// SPDX-License-Identifier: Apache-2.0
#include "FrameLog.h"

#include <cinttypes>
#include <cstdio>
#include <vector>

#include <zlib.h>

namespace korvane::testcard {

std::string FrameRecord::toLine() const {
    char line[160];
    snprintf(line, sizeof line,
             "frame=%" PRIu32 " time_us=%" PRIu64 " format=%.4s size=%" PRIu32 "x%" PRIu32
             " bytes=%zu crc32=%08" PRIx32,
             stamp.number, stamp.timeUs, format.c_str(), width, height, bytes, crc32);
    return line;
}

bool FrameRecord::fromLine(const std::string& line) {
    char name[5] = "";
    int end = 0;
    const int fields =
            sscanf(line.c_str(),
                   "frame=%" SCNu32 " time_us=%" SCNu64 " format=%4s size=%" SCNu32 "x%" SCNu32
                   " bytes=%zu crc32=%8" SCNx32 "%n",
                   &stamp.number, &stamp.timeUs, name, &width, &height, &bytes, &crc32, &end);
    format = name;
    return fields == 7 && static_cast<size_t>(end) == line.size();
}

uint32_t crc32Of(const uint8_t* data, size_t size, uint32_t crc) {
    return static_cast<uint32_t>(crc32_z(crc, data, size));
}

uint32_t crc32Of(const Planes& planes, uint32_t width, uint32_t height) {
    uint32_t crc = 0;
    for (uint32_t line = 0; line < height; ++line) {
        crc = crc32Of(planes.y + line * planes.yStride, width, crc);
    }
    std::vector<uint8_t> pairs(width);
    for (uint32_t line = 0; line < height / 2; ++line) {
        if (planes.hasPairs()) {
            crc = crc32Of(planes.cb + line * planes.cStride, width, crc);
            continue;
        }
        planes.getChroma(line, pairs.data(), width);
        crc = crc32Of(pairs.data(), width, crc);
    }
    return crc;
}

bool FrameLog::read(std::istream& in, std::string* error) {
    std::string line;
    if (!std::getline(in, line) || line != kHeader) {
        *error = "it does not begin with \"" + std::string(kHeader) + "\"";
        return false;
    }
    for (int number = 2; std::getline(in, line) && !in.eof(); ++number) {
        FrameRecord record;
        if (!record.fromLine(line)) {
            *error = "line " + std::to_string(number) + " is not a frame: \"" + line + "\"";
            return false;
        }
        if (!mFrames.empty() && record.stamp.number <= mFrames.rbegin()->first) {
            *error = "line " + std::to_string(number) + ": the frame's number does not rise";
            return false;
        }
        mFrames[record.stamp.number] = record;
    }
    return true;
}

const FrameRecord* FrameLog::find(uint32_t number) const {
    const auto found = mFrames.find(number);
    return found == mFrames.end() ? nullptr : &found->second;
}

}  // namespace korvane::testcard
