// SPDX-License-Identifier: Apache-2.0
// Decides what the keeper does next, from what the kernel shows.
#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace korvane::gadget {

/** What there is at one moment. */
struct KeeperFacts {
    bool made = false;        // the gadget is there
    bool bound = false;       // it names a controller
    bool controller = false;  // that controller is there, or one that it could be bound to
    std::string node;         // of the function, like "video2"; empty: none
    bool served = false;      // a process has the node open for writing
    bool serverDied = false;  // the one that had it last is gone
    bool opened = false;      // the node's owner or rights have just changed
};

/**
 * The keeper's rules. A function that somebody serves is never touched. One that nobody serves, or
 * that is not bound, is bound again at once, but a second after the last time at the earliest: a
 * service that opens the node is back within two seconds, however often it goes. When nobody came
 * to serve it, it is tried again after waits that grow from a second to eight, since each new node
 * has to be given to the service's group first, which a busy machine takes its time for; and after
 * the last of them once for whatever happens. A server that died, or one that starts beside the
 * keeper, is given the time to come by itself first; so is one that may open the node only now:
 * where that takes longer than all the waits, each new node would be gone before it could be
 * opened.
 *
 * No clock and no kernel of its own. One thread.
 */
class KeeperPlan {
  public:
    using Time = std::chrono::steady_clock::time_point;
    enum class Step { kNothing, kBind, kRebind };

    /** What is to be done now. Called after whatever may have changed a fact. */
    Step next(const KeeperFacts& facts, Time now);

    /** When next() is to be called again though nothing happens; empty: never. */
    std::optional<Time> wakeUp() const { return mWakeUp; }

    /** How often the function was bound again since somebody served it last. */
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
    Time mLastTry;                 // the first of all times: none yet
    std::optional<Time> mNextTry;  // not before; empty: nothing was ever tried or served
    std::optional<Time> mWakeUp;
    bool mServed = false;
};

}  // namespace korvane::gadget
