// SPDX-License-Identifier: Apache-2.0
// Whether a file is there, asked again and again.
#pragma once

#include <cstdint>
#include <string>

#include <android-base/unique_fd.h>

namespace korvane::camera {

/**
 * Follows whether a path exists without looking at the disk each time: the kernel tells of what
 * happens in its folder. Where it can't, as long as there is no such folder, the path is looked at
 * once a second. Used by one thread.
 */
class FileWatch {
  public:
    /** An empty path never exists. */
    explicit FileWatch(std::string path);

    /** Whether there is anything by that path now, be it a link that leads nowhere. */
    bool exists();

  private:
    void look();
    bool takeEvents();
    void watchFolder();

    const std::string mPath;
    const ::android::base::unique_fd mEvents;  // inotify's; -1 if there is none
    int mFolder = -1;                          // its watch of the folder; -1 while there is none
    bool mExists = false;
    int64_t mNextLookNs = 0;  // while there is no watch
};

}  // namespace korvane::camera
