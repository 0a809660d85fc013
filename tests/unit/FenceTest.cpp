// SPDX-License-Identifier: Apache-2.0
// Fences: waiting, merging, times, and whose descriptors they are.
#include <cerrno>
#include <chrono>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <android-base/unique_fd.h>
#include <gtest/gtest.h>
#include <sync/sync.h>
#include <ui/Fence.h>
#include <ui/FenceTime.h>

#include "support/LogRecorder.h"
#include "support/NoMoreDescriptors.h"

using android::Fence;
using android::FenceTime;
using android::NO_ERROR;
using android::sp;
using android::base::unique_fd;
using korvane::test::LogRecorder;
using korvane::test::NoMoreDescriptors;

namespace {

constexpr int kSoonMs = 20;
constexpr int kPlentyMs = 10000;

/** An eventfd that stands for work going on elsewhere; the fences of it are duplicates. */
class Work {
  public:
    sp<Fence> fence() const { return new Fence(fcntl(mEvent.get(), F_DUPFD_CLOEXEC, 0)); }
    int fd() const { return mEvent.get(); }
    void finish() const { EXPECT_EQ(0, eventfd_write(mEvent.get(), 1)); }

  private:
    const unique_fd mEvent{eventfd(0, EFD_CLOEXEC)};
};

bool isOpen(int fd) {
    return fcntl(fd, F_GETFD) != -1;
}

/** A descriptor that polls with an error: the writing end of a pipe without a reader. */
unique_fd brokenDescriptor() {
    int ends[2];
    EXPECT_EQ(0, pipe2(ends, O_CLOEXEC));
    close(ends[0]);
    return unique_fd(ends[1]);
}

}  // namespace

TEST(FenceTest, IsValidOnlyWithADescriptor) {
    EXPECT_FALSE(Fence::NO_FENCE->isValid());
    EXPECT_FALSE(sp<Fence>(new Fence())->isValid());
    EXPECT_TRUE(Work().fence()->isValid());
    EXPECT_EQ(-1, Fence::NO_FENCE->get());
}

TEST(FenceTest, WithoutADescriptorCountsAsSignalled) {
    EXPECT_EQ(NO_ERROR, Fence::NO_FENCE->wait(0));
    EXPECT_EQ(NO_ERROR, Fence::NO_FENCE->wait(Fence::TIMEOUT_NEVER));
    EXPECT_EQ(NO_ERROR, Fence::NO_FENCE->waitForever("test"));
    EXPECT_EQ(Fence::Status::Signaled, Fence::NO_FENCE->getStatus());
    EXPECT_EQ(Fence::SIGNAL_TIME_INVALID, Fence::NO_FENCE->getSignalTime());
}

TEST(FenceTest, WaitRunsOutOfTimeWithETIME) {
    const sp<Fence> fence = Work().fence();
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(-ETIME, fence->wait(kSoonMs));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(kSoonMs - 1));
    EXPECT_EQ(-ETIME, fence->wait(0));
}

TEST(FenceTest, WaitEndsWithTheSignal) {
    Work work;
    const sp<Fence> fence = work.fence();
    std::thread worker([&] { work.finish(); });
    EXPECT_EQ(NO_ERROR, fence->wait(Fence::TIMEOUT_NEVER));
    worker.join();
    EXPECT_EQ(NO_ERROR, fence->wait(0));
}

TEST(FenceTest, WaitReportsADescriptorInError) {
    const sp<Fence> fence = new Fence(brokenDescriptor());
    EXPECT_EQ(-EINVAL, fence->wait(kPlentyMs));
    EXPECT_EQ(Fence::Status::Invalid, fence->getStatus());
    EXPECT_EQ(Fence::SIGNAL_TIME_INVALID, fence->getSignalTime());
}

TEST(FenceTest, StatusFollowsTheSignal) {
    Work work;
    const sp<Fence> fence = work.fence();
    EXPECT_EQ(Fence::Status::Unsignaled, fence->getStatus());
    work.finish();
    EXPECT_EQ(Fence::Status::Signaled, fence->getStatus());
}

TEST(FenceTest, ClosesItsDescriptorAtTheEnd) {
    const int fd = eventfd(0, EFD_CLOEXEC);
    sp<Fence> fence = new Fence(fd);
    EXPECT_TRUE(isOpen(fd));
    fence.clear();
    EXPECT_FALSE(isOpen(fd));
}

TEST(FenceTest, DupGivesADescriptorOfTheCallersOwn) {
    sp<Fence> fence = Work().fence();
    const unique_fd copy(fence->dup());
    EXPECT_NE(fence->get(), copy.get());
    fence.clear();
    EXPECT_TRUE(isOpen(copy.get()));
}

TEST(FenceTest, DupFailsWithoutADescriptor) {
    errno = 0;
    EXPECT_EQ(-1, Fence::NO_FENCE->dup());
    EXPECT_EQ(EBADF, errno);
}

TEST(FenceTest, SignalTimeIsWhenTheSignalWasFirstSeen) {
    Work work;
    const sp<Fence> fence = work.fence();
    EXPECT_EQ(Fence::SIGNAL_TIME_PENDING, fence->getSignalTime());
    const nsecs_t before = systemTime(SYSTEM_TIME_MONOTONIC);
    work.finish();
    const nsecs_t signalTime = fence->getSignalTime();
    EXPECT_GE(signalTime, before);
    EXPECT_LE(signalTime, systemTime(SYSTEM_TIME_MONOTONIC));
    EXPECT_EQ(signalTime, fence->getSignalTime());
    EXPECT_TRUE(Fence::isValidTimestamp(signalTime));
    EXPECT_FALSE(Fence::isValidTimestamp(Fence::SIGNAL_TIME_PENDING));
    EXPECT_FALSE(Fence::isValidTimestamp(Fence::SIGNAL_TIME_INVALID));
}

TEST(FenceMergeTest, OfNothingIsNothing) {
    EXPECT_EQ(Fence::NO_FENCE, Fence::merge("m", new Fence(), Fence::NO_FENCE));
}

TEST(FenceMergeTest, SignalsOnceBothHave) {
    Work first;
    Work second;
    const sp<Fence> merged = Fence::merge("m", first.fence(), second.fence());
    ASSERT_TRUE(merged->isValid());
    EXPECT_EQ(-ETIME, merged->wait(0));
    first.finish();
    EXPECT_EQ(-ETIME, merged->wait(kSoonMs));
    second.finish();
    EXPECT_EQ(NO_ERROR, merged->wait(kPlentyMs));
    EXPECT_EQ(NO_ERROR, merged->wait(0));
}

TEST(FenceMergeTest, SignalsInEitherOrder) {
    Work first;
    Work second;
    const sp<Fence> merged = Fence::merge(android::String8("m"), first.fence(), second.fence());
    second.finish();
    EXPECT_EQ(-ETIME, merged->wait(kSoonMs));
    first.finish();
    EXPECT_EQ(NO_ERROR, merged->wait(kPlentyMs));
}

TEST(FenceMergeTest, OfTwoThatHaveSignalledHasToo) {
    Work first;
    Work second;
    first.finish();
    second.finish();
    EXPECT_EQ(NO_ERROR, Fence::merge("m", first.fence(), second.fence())->wait(0));
}

TEST(FenceMergeTest, OfOneAloneIsANewDescriptorOfIt) {
    Work work;
    const sp<Fence> alone = work.fence();
    for (const auto& merged :
         {Fence::merge("m", alone, Fence::NO_FENCE), Fence::merge("m", Fence::NO_FENCE, alone)}) {
        ASSERT_TRUE(merged->isValid());
        EXPECT_NE(alone->get(), merged->get());
        EXPECT_EQ(-ETIME, merged->wait(0));
    }
    const sp<Fence> merged = Fence::merge("m", alone, Fence::NO_FENCE);
    work.finish();
    EXPECT_EQ(NO_ERROR, merged->wait(kPlentyMs));
}

TEST(FenceMergeTest, OutlivesWhatItWasMadeOf) {
    Work work;
    sp<Fence> first = work.fence();
    sp<Fence> second = work.fence();
    const sp<Fence> merged = Fence::merge("m", first, second);
    first.clear();
    second.clear();
    work.finish();
    EXPECT_EQ(NO_ERROR, merged->wait(kPlentyMs));
}

TEST(FenceMergeTest, ADescriptorInErrorCountsAsSignalled) {
    Work work;
    const sp<Fence> merged = Fence::merge("m", new Fence(brokenDescriptor()), work.fence());
    EXPECT_EQ(-ETIME, merged->wait(0));
    work.finish();
    EXPECT_EQ(NO_ERROR, merged->wait(kPlentyMs));
}

TEST(FenceMergeTest, MergesAgain) {
    std::vector<Work> works(5);
    sp<Fence> merged = works[0].fence();
    for (const Work& work : works) merged = Fence::merge("m", merged, work.fence());
    for (const Work& work : works) {
        EXPECT_EQ(-ETIME, merged->wait(0));
        work.finish();
    }
    EXPECT_EQ(NO_ERROR, merged->wait(kPlentyMs));
}

// The process's first merge in particular.
TEST(FenceMergeTest, FailsWithoutDescriptorsAndWorksOnceThereAreSome) {
    const Work first;
    const Work second;
    const sp<Fence> fences[] = {first.fence(), second.fence()};
    {
        const NoMoreDescriptors none;
        EXPECT_FALSE(Fence::merge("none", fences[0], fences[1])->isValid());
    }
    const sp<Fence> merged = Fence::merge("both", fences[0], fences[1]);
    first.finish();
    second.finish();
    EXPECT_EQ(NO_ERROR, merged->wait(kPlentyMs));
}

TEST(FenceMergeTest, IsRefusedWhenTooManyWait) {
    LogRecorder log;
    Work work;
    std::vector<sp<Fence>> waiting;
    for (;;) {
        waiting.push_back(Fence::merge("many", work.fence(), work.fence()));
        if (!waiting.back()->isValid()) break;
        ASSERT_LT(waiting.size(), 1000u);
    }
    EXPECT_EQ(Fence::NO_FENCE, waiting.back());
    ASSERT_EQ(1u, log.lines("Fence").size());
    EXPECT_NE(std::string::npos, log.lines("Fence")[0].message.find("Too many open files"));

    // What nobody waits for any longer leaves its place to others.
    waiting.clear();
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kPlentyMs);
    while (!Fence::merge("again", work.fence(), work.fence())->isValid()) {
        ASSERT_LT(std::chrono::steady_clock::now(), deadline);
        std::this_thread::yield();
    }
}

TEST(FenceMergeTest, SignallingWhatWasJustDroppedHarmsNobody) {
    for (int i = 0; i < 1000; ++i) {
        Work work;
        Fence::merge("m", work.fence(), work.fence());
        work.finish();
    }
}

TEST(FenceMergeTest, FailsForWhatIsNoDescriptor) {
    Work work;
    errno = 0;
    EXPECT_EQ(-1, sync_merge("m", work.fd(), -1));
    EXPECT_EQ(EBADF, errno);
}

TEST(FenceTimeTest, IsInvalidWithoutADescriptor) {
    EXPECT_FALSE(FenceTime::NO_FENCE->isValid());
    EXPECT_FALSE(FenceTime(nullptr).isValid());
    EXPECT_EQ(Fence::SIGNAL_TIME_INVALID, FenceTime::NO_FENCE->getSignalTime());
    EXPECT_EQ(NO_ERROR, FenceTime::NO_FENCE->wait(0));
}

TEST(FenceTimeTest, KeepsTheTimeAndLetsGoOfTheFence) {
    Work work;
    const int fd = work.fence()->dup();
    FenceTime time(new Fence(fd));
    EXPECT_TRUE(time.isValid());
    EXPECT_EQ(-ETIME, time.wait(0));
    EXPECT_EQ(Fence::SIGNAL_TIME_PENDING, time.getSignalTime());
    work.finish();
    EXPECT_EQ(NO_ERROR, time.wait(kPlentyMs));
    const nsecs_t signalTime = time.getSignalTime();
    EXPECT_TRUE(Fence::isValidTimestamp(signalTime));
    EXPECT_FALSE(isOpen(fd));
    EXPECT_TRUE(time.isValid());
    EXPECT_EQ(signalTime, time.getSignalTime());
}
