// SPDX-License-Identifier: Apache-2.0
// Tells when a device node is opened or closed, and when its owner or permissions change.
#pragma once

#include <string>

#include "Descriptor.h"

namespace korvane::gadget {

/** Watches one node at a time. */
class NodeWatch {
  public:
    NodeWatch();

    bool valid() const { return mInotify.valid(); }
    /** Readable once something has happened. */
    int fd() const { return mInotify.get(); }

    /**
     * Watches /dev/`node` from now on, even if it is a new node with an old name; empty: none.
     *
     * @return false if the node exists but can't be watched
     */
    bool watch(const std::string& node);
    /** Takes the events that have arrived. */
    void drain();
    /**
     * Whether others may be able to open the node now: it is new, or its owner or permissions have
     * changed since the last call.
     */
    bool openedUp();
    /** Whether the same node has another owner or other permissions than openedUp() last saw. */
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
