// SPDX-License-Identifier: Apache-2.0
// Whether a file exists, asked again and again.
#pragma once

#include <cstdint>
#include <string>

#include <android-base/unique_fd.h>

namespace korvane::camera {

/**
 * Tracks whether a path exists without going to the disk each time: the kernel reports what happens
 * in its folder. Where it can't, say because there is no such folder, the path is checked once a
 * second. Used by one thread.
 */
class FileWatch {
  public:
    /** An empty path never exists. */
    explicit FileWatch(std::string path);

    /** Whether anything exists at that path now, even a dangling link. */
    bool exists();

  private:
    void look();
    bool takeEvents();
    void watchFolder();

    const std::string mPath;
    const ::android::base::unique_fd mEvents;  // the inotify descriptor; -1 if there is none
    int mFolder = -1;                          // the watch on the folder; -1 while there is none
    bool mExists = false;
    int64_t mNextLookNs = 0;  // while there is no watch
};

}  // namespace korvane::camera
