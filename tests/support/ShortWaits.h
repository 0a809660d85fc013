// SPDX-License-Identifier: Apache-2.0
// Skips the service's waits of two seconds.
#pragma once

#include <chrono>
#include <functional>
#include <vector>

namespace korvane::test {

/**
 * While this exists, a timed wait of one to three seconds on a condition ends at once, and the
 * process's monotonic clock jumps ahead by that time. Other waits are unaffected. Test programs get
 * this by compiling ShortWaits.cpp in. One at a time.
 */
class ShortWaits {
  public:
    ShortWaits();
    ~ShortWaits();
    ShortWaits(const ShortWaits&) = delete;
    ShortWaits& operator=(const ShortWaits&) = delete;

    /** From now on such a wait never times out; it ends only with what it waits for. */
    void hold();

    /** Whether the next wait of that length for a std::future ends at once, too. */
    void stepOverNextFuture(bool stepOver = true);
    /** The same, after running this on the waiting thread: what happens just as the time is up. */
    void stepOverNextFuture(std::function<void()> meanwhile);

    /** How long the skipped waits would have been, oldest first. */
    std::vector<std::chrono::nanoseconds> steppedOver() const;
};

}  // namespace korvane::test
