// SPDX-License-Identifier: Apache-2.0
#include "gadget/KeeperPlan.h"

#include <chrono>

#include <gtest/gtest.h>

namespace korvane::gadget {
namespace {

using Step = KeeperPlan::Step;
using std::chrono::milliseconds;
using std::chrono::seconds;

class KeeperPlanTest : public testing::Test {
  protected:
    KeeperPlan mPlan;
    KeeperPlan::Time mNow{seconds(1000)};

    static KeeperFacts served() { return {true, true, true, "video0", true, false}; }
    static KeeperFacts unserved() { return {true, true, true, "video0", false, false}; }
    static KeeperFacts unbound() { return {true, false, true, "", false, false}; }

    Step next(const KeeperFacts& facts, milliseconds later = milliseconds(0)) {
        mNow += later;
        return mPlan.next(facts, mNow);
    }

    /** Until it wakes up by itself; 0 if it never does. */
    milliseconds sleep() const {
        if (!mPlan.wakeUp()) return milliseconds(0);
        return std::chrono::duration_cast<milliseconds>(*mPlan.wakeUp() - mNow);
    }

    /** A function that has been served for so long that all is well. */
    void settle() {
        EXPECT_EQ(Step::NOTHING, next(served()));
        EXPECT_EQ(Step::NOTHING, next(served(), seconds(60)));
    }
};

TEST_F(KeeperPlanTest, LeavesAServedFunctionAloneAndSleeps) {
    settle();
    EXPECT_FALSE(mPlan.wakeUp());
    EXPECT_EQ(Step::NOTHING, next(served(), seconds(3600)));
    EXPECT_FALSE(mPlan.wakeUp());
}

TEST_F(KeeperPlanTest, BindsAtOnceWhenTheNodeIsNotServedAnyMore) {
    settle();
    EXPECT_EQ(Step::REBIND, next(unserved()));
    EXPECT_EQ(Step::NOTHING, next(unserved()));
    EXPECT_EQ(seconds(1), sleep());
    EXPECT_EQ(Step::NOTHING, next(served(), milliseconds(200)));
    EXPECT_FALSE(mPlan.wakeUp());
}

TEST_F(KeeperPlanTest, BindsAnUnboundFunctionAtOnce) {
    settle();
    EXPECT_EQ(Step::BIND, next(unbound()));
    KeeperPlan fresh;
    EXPECT_EQ(Step::BIND, fresh.next(unbound(), mNow));
}

TEST_F(KeeperPlanTest, WaitsLongerAfterEachTryThatDidNotHelp) {
    settle();
    EXPECT_EQ(Step::REBIND, next(unserved()));
    for (const int wait : {1000, 2000, 4000, 8000, 8000, 8000}) {
        EXPECT_EQ(milliseconds(wait), sleep());
        EXPECT_FALSE(mPlan.gaveUp());
        EXPECT_EQ(Step::NOTHING, next(unserved(), milliseconds(wait - 1)));
        EXPECT_EQ(Step::REBIND, next(unserved(), milliseconds(1)));
    }
    EXPECT_TRUE(mPlan.gaveUp());
}

TEST_F(KeeperPlanTest, SleepsAfterTheLastTryUntilSomethingHappens) {
    settle();
    EXPECT_EQ(Step::REBIND, next(unserved()));
    for (int i = 0; i < KeeperPlan::kMostTries; ++i) {
        ASSERT_TRUE(mPlan.wakeUp());
        EXPECT_EQ(Step::REBIND, next(unserved(), sleep()));
    }
    EXPECT_FALSE(mPlan.wakeUp());
    EXPECT_TRUE(mPlan.gaveUp());
    EXPECT_EQ(KeeperPlan::kMostTries + 1, mPlan.tries());
    // The events of its own last try change nothing.
    EXPECT_EQ(Step::NOTHING, next(unserved(), milliseconds(500)));
    EXPECT_FALSE(mPlan.wakeUp());
    EXPECT_EQ(Step::REBIND, next(unserved(), seconds(100)));
    EXPECT_FALSE(mPlan.wakeUp());
    EXPECT_EQ(Step::NOTHING, next(unserved(), milliseconds(500)));
    settle();
    EXPECT_EQ(Step::REBIND, next(unserved()));
    EXPECT_EQ(seconds(1), sleep());
    EXPECT_FALSE(mPlan.gaveUp());
}

TEST_F(KeeperPlanTest, BindsOnceASecondWhenAServerComesAndGoes) {
    settle();
    EXPECT_EQ(Step::REBIND, next(unserved()));
    for (int i = 0; i < 3 * KeeperPlan::kMostTries; ++i) {
        EXPECT_EQ(Step::NOTHING, next(served(), milliseconds(100)));
        EXPECT_FALSE(mPlan.wakeUp());
        EXPECT_EQ(Step::NOTHING, next(unserved(), milliseconds(100)));
        EXPECT_EQ(milliseconds(800), sleep());
        EXPECT_EQ(Step::REBIND, next(unserved(), milliseconds(800)));
    }
}

TEST_F(KeeperPlanTest, IsNeverTwoSecondsLateForAServiceThatComes) {
    // Hosts, cables and services that go again after any time, each of them many times over.
    for (int servedFor = 0; servedFor <= 8000; servedFor += 50) {
        settle();
        for (int i = 0; i < 20; ++i) {
            KeeperFacts gone = unserved();
            next(served(), milliseconds(50));
            next(served(), milliseconds(servedFor));
            auto waited = milliseconds(0);
            for (Step step = next(gone); step == Step::NOTHING; step = next(gone, sleep())) {
                ASSERT_TRUE(mPlan.wakeUp()) << "after " << servedFor << " ms, time " << i;
                waited += sleep();
            }
            EXPECT_LT(waited, seconds(2)) << "after " << servedFor << " ms, time " << i;
        }
    }
}

TEST_F(KeeperPlanTest, IsNotLateForWhatHappensToAServiceThatCameBackByItself) {
    settle();
    KeeperFacts died = unserved();
    died.serverDied = true;
    EXPECT_EQ(Step::NOTHING, next(died));
    EXPECT_EQ(Step::NOTHING, next(served(), milliseconds(300)));
    EXPECT_EQ(Step::REBIND, next(unserved(), milliseconds(300)));
}

TEST_F(KeeperPlanTest, GivesAServerThatDiedTheTimeToComeBack) {
    settle();
    KeeperFacts died = unserved();
    died.serverDied = true;
    EXPECT_EQ(Step::NOTHING, next(died));
    EXPECT_EQ(seconds(4), sleep());
    EXPECT_EQ(Step::NOTHING, next(served(), seconds(3)));
    EXPECT_EQ(Step::NOTHING, next(died, seconds(10)));
    EXPECT_EQ(Step::REBIND, next(unserved(), seconds(4)));
}

TEST_F(KeeperPlanTest, GivesAServiceThatStartsBesideItTheTimeToCome) {
    EXPECT_EQ(Step::NOTHING, next(unserved()));
    EXPECT_EQ(seconds(4), sleep());
    EXPECT_EQ(Step::REBIND, next(unserved(), seconds(4)));
}

TEST_F(KeeperPlanTest, GivesAServiceThatMayOpenTheNodeOnlyNowTheTimeToCome) {
    settle();
    EXPECT_EQ(Step::REBIND, next(unserved()));
    for (int i = 0; i < KeeperPlan::kMostTries; ++i) next(unserved(), sleep());
    EXPECT_TRUE(mPlan.gaveUp());
    KeeperFacts opened = unserved();
    opened.opened = true;
    EXPECT_EQ(Step::NOTHING, next(opened, seconds(100)));
    EXPECT_EQ(seconds(4), sleep());
    EXPECT_EQ(Step::NOTHING, next(served(), milliseconds(200)));
    EXPECT_FALSE(mPlan.wakeUp());

    KeeperPlan fresh;
    EXPECT_EQ(Step::BIND, fresh.next(unbound(), mNow));
    EXPECT_EQ(Step::NOTHING, fresh.next(opened, mNow + seconds(2)));
    EXPECT_EQ(Step::NOTHING, fresh.next(unserved(), mNow + milliseconds(5999)));
    EXPECT_EQ(Step::REBIND, fresh.next(unserved(), mNow + seconds(6)));
}

TEST_F(KeeperPlanTest, DoesNothingWithoutAGadgetOrAController) {
    settle();
    KeeperFacts facts = unserved();
    facts.made = false;
    EXPECT_EQ(Step::NOTHING, next(facts));
    EXPECT_FALSE(mPlan.wakeUp());
    facts = unbound();
    facts.controller = false;
    EXPECT_EQ(Step::NOTHING, next(facts));
    EXPECT_FALSE(mPlan.wakeUp());
    EXPECT_EQ(Step::BIND, next(unbound()));
}

}  // namespace
}  // namespace korvane::gadget
