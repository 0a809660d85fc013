// SPDX-License-Identifier: Apache-2.0
// The file in which the camera says what it does.
#pragma once

#include <string>

namespace korvane::camera {

/** Where it is. The package makes the folder; as root the camera makes it. */
constexpr char kStatusFile[] = "/run/korvane-camera/status.json";

/**
 * A file that whoever looks finds whole, without asking the camera or the service: it is replaced,
 * never changed. Goes with this object. Used by one thread.
 */
class StatusFile {
  public:
    explicit StatusFile(std::string path);
    ~StatusFile();
    StatusFile(const StatusFile&) = delete;
    StatusFile& operator=(const StatusFile&) = delete;

    /**
     * Puts {"pid":…,"camera":…} in the file, with the status as an object, unless it is there
     * already. What can't be written is logged once, and left out.
     */
    void write(const std::string& status);

  private:
    bool replace(const std::string& text) const;

    const std::string mPath;
    std::string mWritten;  // the latest status
    bool mFailed = false;  // and said so
};

}  // namespace korvane::camera
