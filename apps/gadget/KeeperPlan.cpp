// SPDX-License-Identifier: Apache-2.0
#include "KeeperPlan.h"

#include <algorithm>

namespace korvane::gadget {

KeeperPlan::Step KeeperPlan::next(const KeeperFacts& facts, Time now) {
    mWakeUp.reset();
    const bool wasServed = mServed;
    mServed = facts.made && !facts.node.empty() && facts.served;
    if (mServed) {
        mTries = 0;
        mNextTry = mLastTry + kFirstWait;
        return Step::NOTHING;
    }
    if (wasServed && facts.serverDied) mNextTry = now + kSuccessor;
    if (!facts.made || !facts.controller) return Step::NOTHING;
    const bool starting = !mNextTry && !wasServed;
    if (starting && facts.bound && !facts.node.empty()) mNextTry = now + kSuccessor;
    if (facts.opened && facts.bound && mNextTry) {
        mNextTry = std::max(*mNextTry, now + kSuccessor);
        mWakeUp = mNextTry;
        return Step::NOTHING;
    }
    if (mNextTry && now < *mNextTry) return waitForNextTry();
    return tryNow(facts.bound ? Step::REBIND : Step::BIND, now);
}

KeeperPlan::Step KeeperPlan::tryNow(Step step, Time now) {
    mLastTry = now;
    mNextTry = now + std::min(kFirstWait * (1 << std::min(mTries, 8)), kLongestWait);
    mTries = std::min(mTries + 1, kMostTries + 1);
    waitForNextTry();
    return step;
}

KeeperPlan::Step KeeperPlan::waitForNextTry() {
    if (!gaveUp()) mWakeUp = mNextTry;
    return Step::NOTHING;
}

}  // namespace korvane::gadget
