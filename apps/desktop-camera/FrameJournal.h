// SPDX-License-Identifier: Apache-2.0
// Numbers the queued frames and records them in a file.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include "testcard/FrameLog.h"

namespace korvane::camera {

/**
 * Counts the frames across all streams of the program, so that no number is used twice, and writes
 * a line for each if there is a file. Used by one thread.
 */
class FrameJournal {
  public:
    /** Starts a new file, replacing an old one. False, with the reason in `error`, if it can't. */
    bool open(const std::string& path, std::string* error);

    /** Whether there is a file, which makes a frame's checksum worth computing. */
    bool isOpen() const { return mFile != nullptr; }

    /** The number that the next frame will get, from 1. */
    uint32_t nextNumber() const { return mQueued + 1; }

    /** Records that a frame with the next number was queued. */
    void queued(const testcard::FrameRecord& record);

  private:
    std::unique_ptr<FILE, int (*)(FILE*)> mFile{nullptr, fclose};
    uint32_t mQueued = 0;
};

}  // namespace korvane::camera
