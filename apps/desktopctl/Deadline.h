// SPDX-License-Identifier: Apache-2.0
// Bounds how long the program waits for a service that doesn't answer.
#pragma once

namespace korvane::ctl {

/**
 * While one lives, the program ends as for a service that isn't running, with a line that says so,
 * once the seconds are over. One at a time.
 */
class Deadline {
  public:
    explicit Deadline(unsigned seconds);
    ~Deadline();
    Deadline(const Deadline&) = delete;
    Deadline& operator=(const Deadline&) = delete;
};

}  // namespace korvane::ctl
