// SPDX-License-Identifier: Apache-2.0
// What is asked of paths in more than one place.
#pragma once

#include <sys/stat.h>

namespace korvane::hardware::camera::desktop::V2_0::implementation {

/** Whether there is anything at the path, which may be a link to it. */
inline bool fileExists(const char* path) {
    struct stat status;
    return stat(path, &status) == 0;
}

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
