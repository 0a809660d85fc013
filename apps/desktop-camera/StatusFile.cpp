// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "desktop-camera"

#include "StatusFile.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <android-base/unique_fd.h>
#include <log/log.h>

namespace korvane::camera {

using ::android::base::unique_fd;

namespace {

constexpr mode_t kFolderMode = 0755;
constexpr mode_t kFileMode = 0644;

std::string newFile(const std::string& path) {
    return path + ".new";
}

}  // namespace

StatusFile::StatusFile(std::string path) : mPath(std::move(path)) {
    mkdir(mPath.substr(0, mPath.rfind('/')).c_str(), kFolderMode);
}

StatusFile::~StatusFile() {
    if (!mWritten.empty()) unlink(mPath.c_str());
}

void StatusFile::write(const std::string& status) {
    if (status == mWritten) return;
    if (replace("{\"pid\":" + std::to_string(getpid()) + ",\"camera\":" + status + "}\n")) {
        mWritten = status;
        return;
    }
    if (!mFailed) ALOGI("%s does not say what the camera does: %s", mPath.c_str(), strerror(errno));
    mFailed = true;
}

// The permissions are not left to the process's umask.
bool StatusFile::replace(const std::string& text) const {
    const std::string path = newFile(mPath);
    const unique_fd file(
            open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, kFileMode));
    if (file.get() < 0 || fchmod(file.get(), kFileMode) != 0) return false;
    const ssize_t written = ::write(file.get(), text.data(), text.size());
    if (written >= 0 && static_cast<size_t>(written) != text.size()) errno = ENOSPC;
    return static_cast<size_t>(written) == text.size() && rename(path.c_str(), mPath.c_str()) == 0;
}

}  // namespace korvane::camera
