// SPDX-License-Identifier: Apache-2.0
// Tells when a device node is opened or closed, and when its owner or rights change.
#pragma once

#include <string>

#include "Descriptor.h"

namespace korvane::gadget {

/** Watches one node at a time. */
class NodeWatch {
  public:
    NodeWatch();

    bool valid() const { return mInotify.valid(); }
    /** Readable when something has happened. */
    int fd() const { return mInotify.get(); }

    /**
     * Watches /dev/`node` from now on, also if it is a new one by an old name; empty: none.
     *
     * @return false if there is such a node, and it can't be watched
     */
    bool watch(const std::string& node);
    /** Takes what has happened. */
    void drain();
    /**
     * Whether the node can be opened by others than before: it is new, or has another owner or
     * other rights since this was asked last.
     */
    bool openedUp();
    /** Whether that will be true of a node that it was true of before. */
    bool rightsChanged() const;

  private:
    struct Rights {
        unsigned long inode = 0;
        unsigned user = 0;
        unsigned group = 0;
        unsigned mode = 0;
        bool operator==(const Rights& other) const {
            return inode == other.inode && user == other.user && group == other.group &&
                   mode == other.mode;
        }
    };
    Rights rights() const;

    Descriptor mInotify;
    int mWatched = -1;
    std::string mNode;
    unsigned long mInode = 0;
    Rights mSeen;
};

}  // namespace korvane::gadget
