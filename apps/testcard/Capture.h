// SPDX-License-Identifier: Apache-2.0
// The file to which the host wrote the frames that it captured.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "MappedFile.h"

namespace korvane::testcard {

/** A pixel format that the host can request from the webcam. */
enum class PixelFormat { MJPG, YUYV, NV12 };

/** The format with a four-character name; nothing for any other name. */
std::optional<PixelFormat> formatFromName(const std::string& name);
const char* nameOf(PixelFormat format);

/** The format in which the camera draws for it: YUYV is made from NV12 on the way. */
const char* drawnFormatOf(PixelFormat format);

/** Bytes of one frame; 0 for MJPG, whose frames differ in size. */
size_t frameBytes(PixelFormat format, uint32_t width, uint32_t height);

/** One captured frame. */
struct Frame {
    const uint8_t* data;
    size_t size;
};

/**
 * A file of captured frames, as v4l2-ctl writes it: one after another (--stream-to), or each after
 * a header with its size (--stream-to-hdr). Mapped, so that its length doesn't matter.
 */
class Capture {
  public:
    /**
     * Opens a file and finds its frames, which stay valid for as long as the object exists. False
     * if it can't be read, is empty, is cut short, or has a different format; `error` then says
     * what is wrong.
     */
    bool open(const std::string& path, PixelFormat format, uint32_t width, uint32_t height,
              std::string* error);

    const std::vector<Frame>& frames() const { return mFrames; }

  private:
    bool hasHeaders() const;
    bool splitAtHeaders(std::string* error);
    bool splitAtMarkers(std::string* error);
    bool splitBySize(size_t size, std::string* error);

    MappedFile mFile;
    std::vector<Frame> mFrames;
};

}  // namespace korvane::testcard
