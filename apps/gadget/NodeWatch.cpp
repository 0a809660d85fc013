// SPDX-License-Identifier: Apache-2.0
#include "NodeWatch.h"

#include <sys/inotify.h>
#include <sys/stat.h>

namespace korvane::gadget {

NodeWatch::NodeWatch() : mInotify(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {}

bool NodeWatch::watch(const std::string& node) {
    const std::string path = "/dev/" + node;
    struct stat status = {};
    if (node.empty() || stat(path.c_str(), &status) != 0) status.st_ino = 0;
    if (node == mNode && status.st_ino == mInode) return true;
    if (mWatched >= 0) inotify_rm_watch(mInotify.get(), mWatched);
    mWatched = -1;
    mNode = node;
    mInode = status.st_ino;
    if (mInode == 0) return true;
    mWatched =
            inotify_add_watch(mInotify.get(), path.c_str(), IN_OPEN | IN_CLOSE_WRITE | IN_ATTRIB);
    return mWatched >= 0;
}

void NodeWatch::drain() {
    alignas(inotify_event) char events[4096];
    while (read(mInotify.get(), events, sizeof(events)) > 0) {
    }
}

bool NodeWatch::openedUp() {
    const Rights now = rights();
    if (now == mSeen) return false;
    mSeen = now;
    return now.inode != 0;
}

bool NodeWatch::rightsChanged() const {
    const Rights now = rights();
    return now.inode != 0 && now.inode == mSeen.inode && !(now == mSeen);
}

NodeWatch::Rights NodeWatch::rights() const {
    struct stat status = {};
    if (mNode.empty() || stat(("/dev/" + mNode).c_str(), &status) != 0) return {};
    return {status.st_ino, status.st_uid, status.st_gid, status.st_mode};
}

}  // namespace korvane::gadget
