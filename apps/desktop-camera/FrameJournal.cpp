// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "desktop-camera"

#include "FrameJournal.h"

#include <cerrno>
#include <cstring>

#include <log/log.h>

namespace korvane::camera {

bool FrameJournal::open(const std::string& path, std::string* error) {
    mFile.reset(fopen(path.c_str(), "we"));
    if (mFile == nullptr) {
        *error = path + ": " + strerror(errno);
        return false;
    }
    // Line-buffered: the program may be killed at any time, and only whole lines count.
    setvbuf(mFile.get(), nullptr, _IOLBF, BUFSIZ);
    fprintf(mFile.get(), "%s\n", testcard::FrameLog::kHeader);
    return true;
}

void FrameJournal::queued(const testcard::FrameRecord& record) {
    ++mQueued;
    if (mFile == nullptr || fprintf(mFile.get(), "%s\n", record.toLine().c_str()) > 0) return;
    ALOGE("the log of the frames ends here: %s", strerror(errno));
    mFile.reset();
}

}  // namespace korvane::camera
