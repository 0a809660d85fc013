// SPDX-License-Identifier: Apache-2.0
// Steps over the service's waits of two seconds.
#pragma once

#include <atomic>

namespace korvane::test {

/**
 * While it lives, a timed wait on a condition for one second to three ends at once, and the
 * process's monotonic clock jumps over the time. Other waits stay as they are. A test program has
 * this by linking `korvane_short_waits`. One at a time.
 */
class ShortWaits {
  public:
    ShortWaits();
    ~ShortWaits();
    ShortWaits(const ShortWaits&) = delete;
    ShortWaits& operator=(const ShortWaits&) = delete;

    /** How many waits were stepped over. */
    int steppedOver() const;
};

}  // namespace korvane::test
