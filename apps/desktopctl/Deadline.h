// SPDX-License-Identifier: Apache-2.0
// Bounds how long the program waits for a service that doesn't answer.
#pragma once

namespace korvane::ctl {

/**
 * If one still exists when its seconds are up, the program says that the service doesn't answer and
 * ends as for a service that isn't running. One at a time.
 */
class Deadline {
  public:
    explicit Deadline(unsigned seconds);
    ~Deadline();
    Deadline(const Deadline&) = delete;
    Deadline& operator=(const Deadline&) = delete;
};

}  // namespace korvane::ctl
