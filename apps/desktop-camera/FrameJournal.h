// SPDX-License-Identifier: Apache-2.0
// Numbers the frames that were queued and notes them in a file.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include "testcard/FrameLog.h"

namespace korvane::camera {

/**
 * Counts the frames over all streams of the program, so that a number is never used twice, and
 * writes a line for each of them if there is a file. Used by one thread.
 */
class FrameJournal {
  public:
    /** Starts a new file in place of an old one. False, with the reason in `error`, if it cannot.
     */
    bool open(const std::string& path, std::string* error);

    /** Whether there is a file, for which a frame's checksum is worth reckoning. */
    bool isOpen() const { return mFile != nullptr; }

    /** The number that the next frame is to have, from 1. */
    uint32_t nextNumber() const { return mQueued + 1; }

    /** Notes that a frame with the next number was queued. */
    void queued(const testcard::FrameRecord& record);

  private:
    std::unique_ptr<FILE, int (*)(FILE*)> mFile{nullptr, fclose};
    uint32_t mQueued = 0;
};

}  // namespace korvane::camera
