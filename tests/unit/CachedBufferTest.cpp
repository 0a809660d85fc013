// SPDX-License-Identifier: Apache-2.0
#include "uvc/CachedBuffer.h"

#include <memory>
#include <vector>

#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <log/log.h>

#include "support/DescriptorZero.h"
#include "support/FrameSourceTest.h"
#include "support/NoMoreDescriptors.h"

namespace {

using android::AcquiredBuffer;
using android::CachedBuffer;
using android::Fence;
using android::OK;
using android::sp;
using korvane::test::DescriptorZero;
using korvane::test::failedCheck;
using korvane::test::isClosed;
using korvane::test::ManualFence;
using korvane::test::NoMoreDescriptors;
using korvane::test::QueueSpy;
using korvane::test::trespass;
using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::SizeIs;

std::shared_ptr<CachedBuffer> cachedBuffer() {
    return std::make_shared<CachedBuffer>(3, new android::GraphicBuffer);
}

void keepFences(AcquiredBuffer*) {}

TEST(CachedBufferTest, IsCachedUntilItIsDiscarded) {
    const auto buffer = cachedBuffer();
    EXPECT_EQ(3, buffer->slot());
    EXPECT_TRUE(buffer->isCached());
    buffer->discard();
    EXPECT_FALSE(buffer->isCached());
}

TEST(CachedBufferDeathTest, AbortsWhenDiscardedTwice) {
    const auto buffer = cachedBuffer();
    buffer->discard();
    EXPECT_DEATH(buffer->discard(), failedCheck(151, "mIsCached"));
}

TEST(CachedBufferTest, IsAcquiredWhileAnyoneHoldsIt) {
    const auto buffer = cachedBuffer();
    EXPECT_FALSE(buffer->isAcquired());
    auto first = std::make_unique<AcquiredBuffer>(buffer, Fence::NO_FENCE, keepFences);
    auto second = std::make_unique<AcquiredBuffer>(buffer, Fence::NO_FENCE, keepFences);
    first.reset();
    EXPECT_TRUE(buffer->isAcquired());
    second.reset();
    EXPECT_FALSE(buffer->isAcquired());
}

TEST(AcquiredBufferTest, KeepsItsGraphicBufferWhenTheCacheDropsIt) {
    auto buffer = cachedBuffer();
    const android::GraphicBuffer* graphicBuffer = buffer->graphicBuffer().get();
    const AcquiredBuffer acquired(buffer, Fence::NO_FENCE, keepFences);
    buffer->discard();
    buffer.reset();
    EXPECT_EQ(graphicBuffer, acquired.graphicBuffer().get());
}

TEST(AcquiredBufferTest, RunsItsReleaserAtItsEnd) {
    const AcquiredBuffer* released = nullptr;
    auto acquired = std::make_unique<AcquiredBuffer>(
            cachedBuffer(), Fence::NO_FENCE, [&](AcquiredBuffer* buffer) { released = buffer; });
    const AcquiredBuffer* expected = acquired.get();
    EXPECT_EQ(nullptr, released);
    acquired.reset();
    EXPECT_EQ(expected, released);
}

TEST(AcquiredBufferDeathTest, CannotEndWithoutAReleaser) {
    EXPECT_DEATH(AcquiredBuffer(cachedBuffer(), Fence::NO_FENCE, nullptr), "bad_function_call");
}

TEST(AcquiredBufferDeathTest, AbortsWhenReleaseFencesAreLeft) {
    const auto leave = [] {
        android::AcquiredBuffer acquired(cachedBuffer(), Fence::NO_FENCE, keepFences);
        acquired.addReleaseFence(ManualFence().dup());
    };
    EXPECT_DEATH(leave(), AllOf(testing::HasSubstr("KorBufferSource W "),
                                testing::HasSubstr("release fences were not obtained, "
                                                   "closing fds\n"),
                                trespass(259)));
}

class ReleaseFenceTest : public testing::Test {
  protected:
    void SetUp() override { QueueSpy::mergeNames().clear(); }

    // Gives the buffer that many fences to release, each of its own event.
    void addFences(int count) {
        for (int i = 0; i < count; ++i) {
            mFences.emplace_back();
            mFds.push_back(mFences.back().dup());
            mBuffer.addReleaseFence(mFds.back());
        }
    }

    // Signals one event after the other: only with the last one does the fence.
    void expectSignalsWithTheLast(const sp<Fence>& fence) {
        for (ManualFence& manual : mFences) {
            EXPECT_EQ(-ETIME, fence->wait(0));
            manual.signal();
        }
        EXPECT_EQ(OK, fence->wait(10000));
    }

    const sp<Fence> mAcquireFence = new Fence;
    AcquiredBuffer mBuffer{cachedBuffer(), mAcquireFence, keepFences};
    std::vector<ManualFence> mFences;
    std::vector<int> mFds;
};

TEST_F(ReleaseFenceTest, IsTheAcquireFenceWhenNobodyGaveOne) {
    EXPECT_EQ(mAcquireFence, mBuffer.takeReleaseFence());
}

TEST_F(ReleaseFenceTest, IsNoneWhenItWasGivenBackAtOnce) {
    mBuffer.addReleaseFence(-1);
    EXPECT_EQ(Fence::NO_FENCE, mBuffer.takeReleaseFence());
}

TEST_F(ReleaseFenceTest, OwnsTheOneDescriptorThatWasGiven) {
    addFences(1);
    sp<Fence> fence = mBuffer.takeReleaseFence();
    EXPECT_EQ(mFds[0], fence->get());
    fence.clear();
    EXPECT_TRUE(isClosed(mFds[0]));
}

TEST_F(ReleaseFenceTest, OwnsADescriptorThatIsZero) {
    ManualFence manual;
    const DescriptorZero zero;
    mBuffer.addReleaseFence(manual.dup());
    EXPECT_EQ(STDIN_FILENO, mBuffer.takeReleaseFence()->get());
    EXPECT_TRUE(isClosed(STDIN_FILENO));
}

TEST_F(ReleaseFenceTest, DoesNotCountThoseGivenBackAtOnce) {
    mBuffer.addReleaseFence(-1);
    addFences(1);
    EXPECT_EQ(mFds[0], mBuffer.takeReleaseFence()->get());
}

TEST_F(ReleaseFenceTest, MergesTwo) {
    addFences(2);
    const sp<Fence> fence = mBuffer.takeReleaseFence();
    EXPECT_THAT(QueueSpy::mergeNames(), ElementsAre("GBS::AB"));
    expectSignalsWithTheLast(fence);
}

TEST_F(ReleaseFenceTest, MergesMany) {
    addFences(5);
    const sp<Fence> fence = mBuffer.takeReleaseFence();
    EXPECT_THAT(QueueSpy::mergeNames(), AllOf(SizeIs(4), Each("GBS::AB")));
    expectSignalsWithTheLast(fence);
}

TEST_F(ReleaseFenceTest, IsNoneWhenTheyCannotBeMergedAndTheyAreClosed) {
    addFences(2);
    {
        const NoMoreDescriptors none;
        EXPECT_EQ(Fence::NO_FENCE, mBuffer.takeReleaseFence());
    }
    for (int fd : mFds) EXPECT_TRUE(isClosed(fd));
}

TEST_F(ReleaseFenceTest, IsTakenOnce) {
    addFences(1);
    mBuffer.takeReleaseFence();
    EXPECT_EQ(Fence::NO_FENCE, mBuffer.takeReleaseFence());
}

}  // namespace
