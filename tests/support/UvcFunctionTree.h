// SPDX-License-Identifier: Apache-2.0
// A UVC function's folder in configfs, as the gadget driver presents it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "support/PrivateFiles.h"

namespace korvane::test {

/**
 * Builds /config/usb_gadget/g1/functions/uvc.0. A new one has the function's own attributes
 * (interval 1, burst 0, packet 3072, UVC 1.1) and no format. Without private files there is
 * nothing, and adding to it throws.
 *
 * Formats are named by their folder: kUncompressed, kMjpeg or any other.
 */
class UvcFunctionTree {
  public:
    static constexpr char kUncompressed[] = "uncompressed/u";
    static constexpr char kMjpeg[] = "mjpeg/m";

    explicit UvcFunctionTree(PrivateFiles& files);

    /** The function's folder, without a slash at its end. */
    static std::string path() { return "/config/usb_gadget/g1/functions/uvc.0"; }
    static std::string formatPath(const std::string& format) {
        return path() + "/streaming/" + format;
    }
    static std::string framePath(const std::string& format, const std::string& frame) {
        return formatPath(format) + "/" + frame;
    }

    /** The 16 bytes of a format's GUID: the four characters and the constant rest. */
    static std::string guid(const std::string& code);

    /** Sets an attribute by its path under the function's folder; the value is stored verbatim. */
    void set(const std::string& attribute, const std::string& value);
    void remove(const std::string& attribute);

    /** The uncompressed format without frames: "NV12" has 12 bits per pixel, all others 16. */
    void addUncompressed(const std::string& code);
    /** The MJPEG format without frames. */
    void addMjpeg();
    /** A frame size of a format. The interval file has one line for each interval. */
    void addFrame(const std::string& format, const std::string& name, uint32_t width,
                  uint32_t height, const std::vector<uint32_t>& intervals = {333333, 666666});

  private:
    PrivateFiles& mFiles;
};

}  // namespace korvane::test
