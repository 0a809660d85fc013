// SPDX-License-Identifier: Apache-2.0
// Commands that are run when a stream begins and ends.
#pragma once

#include <memory>
#include <string>

namespace korvane::camera {

/**
 * Runs a command of the shell at the begin of each stream and another at its end, and waits for
 * neither: a light that tells people they are seen must not hold the pictures up. One begins only
 * when the one before it is done or has taken five seconds, so that a slow "on" does not come after
 * its "off". Used by one thread.
 */
class StreamHooks {
  public:
    /** An empty command is none. */
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
