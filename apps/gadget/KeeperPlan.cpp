// SPDX-License-Identifier: Apache-2.0
#include "KeeperPlan.h"

#include <algorithm>

namespace korvane::gadget {

KeeperPlan::Step KeeperPlan::next(const KeeperFacts& facts, Time now) {
    mWakeUp.reset();
    const bool wasServed = mServed;
    mServed = facts.made && !facts.node.empty() && facts.served;
    if (mServed) {
        if (!wasServed) mServedAt = now;
        return Step::kNothing;
    }
    if (wasServed) noteEnd(facts, now);
    if (!facts.made || !facts.controller) return Step::kNothing;
    if (!mNextTry && !wasServed && facts.bound && !facts.node.empty()) mNextTry = now + kSuccessor;
    if (mNextTry && now < *mNextTry) return waitForNextTry();
    return tryNow(facts.bound ? Step::kRebind : Step::kBind, now);
}

void KeeperPlan::noteEnd(const KeeperFacts& facts, Time now) {
    if (now - *mServedAt >= kCalm) {
        mTries = 0;
        mNextTry = now;
    }
    if (facts.serverDied) mNextTry = now + kSuccessor;
}

KeeperPlan::Step KeeperPlan::tryNow(Step step, Time now) {
    mNextTry = now + std::min(kFirstWait * (1 << std::min(mTries, 8)), kLongestWait);
    mTries = std::min(mTries + 1, kMostTries + 1);
    waitForNextTry();
    return step;
}

KeeperPlan::Step KeeperPlan::waitForNextTry() {
    if (!gaveUp()) mWakeUp = mNextTry;
    return Step::kNothing;
}

}  // namespace korvane::gadget
