// SPDX-License-Identifier: Apache-2.0
// Steps over the service's waits of two seconds.
#pragma once

#include <chrono>
#include <functional>
#include <vector>

namespace korvane::test {

/**
 * While it lives, a timed wait on a condition for one second to three ends at once, and the
 * process's monotonic clock jumps over the time. Other waits stay as they are. A test program has
 * this by compiling ShortWaits.cpp in. One at a time.
 */
class ShortWaits {
  public:
    ShortWaits();
    ~ShortWaits();
    ShortWaits(const ShortWaits&) = delete;
    ShortWaits& operator=(const ShortWaits&) = delete;

    /** From now on such a wait does not end with its time at all, only with what it waits for. */
    void hold();

    /** The next wait of that length for a std::future ends at once, too; or, again, does not. */
    void stepOverNextFuture(bool stepOver = true);
    /** The same, once this has run on the thread that waits: what happens as the time is up. */
    void stepOverNextFuture(std::function<void()> meanwhile);

    /** How long the waits would have been that were stepped over, oldest first. */
    std::vector<std::chrono::nanoseconds> steppedOver() const;
};

}  // namespace korvane::test
