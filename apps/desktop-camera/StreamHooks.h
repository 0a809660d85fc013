// SPDX-License-Identifier: Apache-2.0
// Commands that run when a stream begins and ends.
#pragma once

#include <memory>
#include <string>

namespace korvane::camera {

/**
 * Runs one shell command when a stream begins and another when it ends, without waiting for either:
 * a light that tells people they are on camera must not delay the pictures. Each begins only when
 * the previous one is done or has taken five seconds, so that a slow "on" doesn't come after its
 * "off". Used by one thread.
 */
class StreamHooks {
  public:
    /** An empty command does nothing. */
    StreamHooks(std::string onStart, std::string onStop);

    /** Waits, as long as commands wait for each other, until the last one has begun. */
    ~StreamHooks();
    StreamHooks(const StreamHooks&) = delete;
    StreamHooks& operator=(const StreamHooks&) = delete;

    void started() { run(mOnStart); }
    void ended() { run(mOnStop); }

  private:
    class Command;

    void run(const std::string& text);

    const std::string mOnStart;
    const std::string mOnStop;
    std::shared_ptr<Command> mLatest;
};

}  // namespace korvane::camera
