// SPDX-License-Identifier: Apache-2.0
#include "Capture.h"

#include <cstring>

#include "JpegMarkers.h"

namespace korvane::testcard {
namespace {

// v4l2-ctl's header: these four bytes, then the frame's size in network order.
constexpr char kHeaderId[] = {'r', 'd', 'h', 'V'};
constexpr size_t kHeaderSize = 8;

struct FormatNames {
    PixelFormat format;
    const char* name;
    const char* drawn;
};

constexpr FormatNames kFormats[] = {
        {PixelFormat::MJPG, "MJPG", "MJPG"},
        {PixelFormat::YUYV, "YUYV", "NV12"},
        {PixelFormat::NV12, "NV12", "NV12"},
};

const FormatNames& namesOf(PixelFormat format) {
    return kFormats[static_cast<int>(format)];
}

std::string afterFrames(size_t count) {
    return " after " + std::to_string(count) + " whole frames";
}

uint32_t networkOrder(const uint8_t* bytes) {
    return uint32_t{bytes[0]} << 24 | bytes[1] << 16 | bytes[2] << 8 | bytes[3];
}

}  // namespace

std::optional<PixelFormat> formatFromName(const std::string& name) {
    for (const FormatNames& format : kFormats) {
        if (name == format.name) return format.format;
    }
    return std::nullopt;
}

const char* nameOf(PixelFormat format) {
    return namesOf(format).name;
}

const char* drawnFormatOf(PixelFormat format) {
    return namesOf(format).drawn;
}

size_t frameBytes(PixelFormat format, uint32_t width, uint32_t height) {
    const size_t pixels = size_t{width} * height;
    switch (format) {
        case PixelFormat::YUYV:
            return pixels * 2;
        case PixelFormat::NV12:
            return pixels * 3 / 2;
        case PixelFormat::MJPG:
            break;
    }
    return 0;
}

bool Capture::open(const std::string& path, PixelFormat format, uint32_t width, uint32_t height,
                   std::string* error) {
    mFrames.clear();
    *error = mFile.map(path);
    if (!error->empty()) return false;
    if (hasHeaders()) return splitAtHeaders(error);
    if (format == PixelFormat::MJPG) return splitAtMarkers(error);
    return splitBySize(frameBytes(format, width, height), error);
}

bool Capture::hasHeaders() const {
    return mFile.size() >= kHeaderSize && memcmp(mFile.data(), kHeaderId, sizeof kHeaderId) == 0;
}

bool Capture::splitAtHeaders(std::string* error) {
    for (size_t position = 0; position < mFile.size();) {
        const uint8_t* header = mFile.data() + position;
        const bool whole = mFile.size() - position >= kHeaderSize;
        if (whole && memcmp(header, kHeaderId, sizeof kHeaderId) != 0) {
            *error = "there is no frame header" + afterFrames(mFrames.size());
            return false;
        }
        const size_t size = whole ? networkOrder(header + sizeof kHeaderId) : 0;
        if (!whole || size > mFile.size() - position - kHeaderSize) {
            *error = "it is cut short" + afterFrames(mFrames.size());
            return false;
        }
        mFrames.push_back({header + kHeaderSize, size});
        position += kHeaderSize + size;
    }
    return true;
}

bool Capture::splitAtMarkers(std::string* error) {
    const JpegMarkers markers(mFile.data(), mFile.size());
    for (size_t position = 0; position < mFile.size();) {
        if (!markers.startsAt(position)) {
            *error = "there is no start of a JPEG file" + afterFrames(mFrames.size());
            return false;
        }
        // A damaged file ends where the next one begins: rejecting it is up to the check of its
        // pixels.
        auto end = markers.endOfFile(position);
        if (!end) end = markers.nextStart(position + 2);
        if (!end) {
            *error = "it is cut short" + afterFrames(mFrames.size());
            return false;
        }
        mFrames.push_back({mFile.data() + position, *end - position});
        position = *end;
    }
    return true;
}

bool Capture::splitBySize(size_t size, std::string* error) {
    for (size_t position = 0; position + size <= mFile.size(); position += size) {
        mFrames.push_back({mFile.data() + position, size});
    }
    if (mFile.size() % size == 0) return true;
    *error = "it is cut short: " + std::to_string(mFile.size() % size) + " bytes are left" +
             afterFrames(mFrames.size()) + " of " + std::to_string(size) + " bytes";
    return false;
}

}  // namespace korvane::testcard
