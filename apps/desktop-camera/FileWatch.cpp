// SPDX-License-Identifier: Apache-2.0
#include "FileWatch.h"

#include <filesystem>
#include <utility>

#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include "StreamDemand.h"

namespace korvane::camera {
namespace {

constexpr int64_t kLookNs = 1'000'000'000;
constexpr uint32_t kMask = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE_SELF |
                           IN_MOVE_SELF | IN_ONLYDIR;

}  // namespace

FileWatch::FileWatch(std::string path)
    : mPath(std::move(path)),
      mEvents(mPath.empty() ? -1 : inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {}

bool FileWatch::exists() {
    if (mPath.empty()) return false;
    if (mFolder >= 0) {
        if (takeEvents()) look();
    } else if (monotonicNs() >= mNextLookNs) {
        // In this order: whatever happens after the check is reported.
        watchFolder();
        look();
        mNextLookNs = monotonicNs() + kLookNs;
    }
    return mExists;
}

void FileWatch::look() {
    struct stat status = {};
    mExists = lstat(mPath.c_str(), &status) == 0;
}

// Whatever happened, checking the path shows it; a folder that goes or moves is looked up again.
bool FileWatch::takeEvents() {
    alignas(inotify_event) char events[4096];
    bool any = false;
    for (ssize_t size; (size = read(mEvents.get(), events, sizeof events)) > 0; any = true) {
        const char* end = events + size;
        for (const char* at = events; at < end;) {
            const auto* event = reinterpret_cast<const inotify_event*>(at);
            if ((event->mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED | IN_UNMOUNT)) != 0 &&
                event->wd == mFolder) {
                inotify_rm_watch(mEvents.get(), mFolder);
                mFolder = -1;
                mNextLookNs = 0;
            }
            at += sizeof *event + event->len;
        }
    }
    return any;
}

void FileWatch::watchFolder() {
    std::string folder = std::filesystem::path(mPath).parent_path();
    if (folder.empty()) folder = ".";
    mFolder = mEvents.get() < 0 ? -1 : inotify_add_watch(mEvents.get(), folder.c_str(), kMask);
}

}  // namespace korvane::camera
