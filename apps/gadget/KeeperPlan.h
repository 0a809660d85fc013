// SPDX-License-Identifier: Apache-2.0
// Decides what the keeper does next, from what the kernel shows.
#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace korvane::gadget {

/** The facts at one moment. */
struct KeeperFacts {
    bool made = false;        // the gadget exists
    bool bound = false;       // it names a controller
    bool controller = false;  // that controller exists, or one that it could be bound to
    std::string node;         // of the function, like "video2"; empty: none
    bool served = false;      // a process has the node open for writing
    bool serverDied = false;  // the process that last had it is gone
    bool opened = false;      // the node's owner or permissions have just changed
};

/**
 * The keeper's rules. A function that someone serves is never touched. One that nobody serves, or
 * that isn't bound, is rebound at once, but no sooner than a second after the last time: a service
 * that opens the node is back within two seconds, however often it goes. If nobody comes to serve
 * it, it is retried after delays that grow from one second to eight, because each new node first
 * has to be given to the service's group, which can take a while on a busy machine; after the last
 * of them, it is retried once for every event. A server that died, or one that starts along with
 * the keeper, is first given the time to come back by itself; so is one that can open the node only
 * now: if that took longer than all the delays, each new node would be gone before it could be
 * opened.
 *
 * It has no clock of its own and never asks the kernel. One thread.
 */
class KeeperPlan {
  public:
    using Time = std::chrono::steady_clock::time_point;
    enum class Step { NOTHING, BIND, REBIND };

    /** What to do now. Called after anything that may have changed a fact. */
    Step next(const KeeperFacts& facts, Time now);

    /** When to call next() again even if nothing happens; empty: never. */
    std::optional<Time> wakeUp() const { return mWakeUp; }

    /** How many times the function has been rebound since someone last served it. */
    int tries() const { return mTries; }

    /** Nothing more is tried until something happens. */
    bool gaveUp() const { return mTries > kMostTries; }

    static constexpr std::chrono::milliseconds kFirstWait{1000};
    static constexpr std::chrono::milliseconds kLongestWait{8000};
    static constexpr std::chrono::seconds kSuccessor{4};  // for a server that comes by itself
    static constexpr int kMostTries = 6;

  private:
    Step tryNow(Step step, Time now);
    Step waitForNextTry();

    int mTries = 0;
    Time mLastTry;                 // the epoch: none yet
    std::optional<Time> mNextTry;  // not before; empty: nothing has ever been tried or served
    std::optional<Time> mWakeUp;
    bool mServed = false;
};

}  // namespace korvane::gadget
