// SPDX-License-Identifier: Apache-2.0
// The file in which the camera says what it is doing.
#pragma once

#include <string>

namespace korvane::camera {

/** Its path. The package creates the folder; as root, the camera does. */
constexpr char kStatusFile[] = "/run/korvane-camera/status.json";

/**
 * A file that readers always find whole, without asking the camera or the service: it is replaced,
 * never modified. Removed with this object. Used by one thread.
 */
class StatusFile {
  public:
    explicit StatusFile(std::string path);
    ~StatusFile();
    StatusFile(const StatusFile&) = delete;
    StatusFile& operator=(const StatusFile&) = delete;

    /**
     * Writes {"pid":…,"camera":…} to the file, with the status as an object, unless it already says
     * so. A failure to write is logged once and otherwise ignored.
     */
    void write(const std::string& status);

  private:
    bool replace(const std::string& text) const;

    const std::string mPath;
    std::string mWritten;  // the latest status
    bool mFailed = false;  // and it has been logged
};

}  // namespace korvane::camera
