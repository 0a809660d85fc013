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
};

/**
 * The keeper's rules. A function that somebody serves is never touched. One that nobody serves, or
 * that is not bound, is bound again at once; when that did not help, after waits that grow from a
 * second to four, and after the last of them once for whatever happens. A server that died, or one
 * that starts beside the keeper, is given the time to come by itself first.
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

    /** How often the function was bound again without a server since it last had one for long. */
    int tries() const { return mTries; }

    /** Nothing more is tried until something happens. */
    bool gaveUp() const { return mTries > kMostTries; }

    static constexpr std::chrono::seconds kFirstWait{1};
    static constexpr std::chrono::seconds kLongestWait{4};
    static constexpr std::chrono::seconds kSuccessor{4};  // for a server that died
    static constexpr std::chrono::seconds kCalm{5};       // served for so long: all is well
    static constexpr int kMostTries = 6;

  private:
    Step tryNow(Step step, Time now);
    Step waitForNextTry();
    void noteEnd(const KeeperFacts& facts, Time now);

    int mTries = 0;
    std::optional<Time> mNextTry;   // not before
    std::optional<Time> mServedAt;  // since when somebody serves it
    std::optional<Time> mWakeUp;
    bool mServed = false;
};

}  // namespace korvane::gadget
