// SPDX-License-Identifier: Apache-2.0
#include "uvc/BufferSlotTable.h"

#include <memory>

#include <gtest/gtest.h>
#include <ui/Fence.h>

#include "support/FrameSourceTest.h"

namespace korvane::test {
namespace {

using android::AcquiredBuffer;
using android::BufferSlotTable;
using android::CachedBuffer;
using android::Fence;
using android::GraphicBuffer;
using android::sp;

class BufferSlotTableTest : public testing::Test {
  protected:
    static std::shared_ptr<AcquiredBuffer> acquire(const std::shared_ptr<CachedBuffer>& buffer) {
        return std::make_shared<AcquiredBuffer>(buffer, Fence::NO_FENCE, [](AcquiredBuffer*) {});
    }

    const sp<GraphicBuffer> first = new GraphicBuffer;
    const sp<GraphicBuffer> second = new GraphicBuffer;
    BufferSlotTable table;
};

using BufferSlotTableDeathTest = BufferSlotTableTest;

TEST_F(BufferSlotTableTest, KnowsNoSlotThatItWasNotTold) {
    table.fill(3, first);
    EXPECT_LT(table.indexOf(2), 0);
    EXPECT_EQ(nullptr, table.find(2));
    EXPECT_EQ(0, table.outstandingAcquires());
}

TEST_F(BufferSlotTableTest, RemembersTheBufferOfEachSlot) {
    const std::shared_ptr<CachedBuffer> buffer = table.fill(3, first);
    table.fill(0, second);  // takes the first place
    EXPECT_EQ(buffer, table.find(3));
    EXPECT_EQ(1, table.indexOf(3));
    EXPECT_EQ(3, buffer->slot());
    EXPECT_EQ(first, buffer->graphicBuffer());
    EXPECT_TRUE(buffer->isCached());
    EXPECT_EQ(second, table.find(0)->graphicBuffer());
}

TEST_F(BufferSlotTableTest, FillsADiscardedSlotAnew) {
    const std::shared_ptr<CachedBuffer> buffer = table.fill(3, first);
    table.discardAt(table.indexOf(3));
    EXPECT_FALSE(buffer->isCached());
    EXPECT_EQ(nullptr, table.find(3));
    EXPECT_EQ(0, table.indexOf(3));
    table.fill(3, second);
    EXPECT_EQ(second, table.find(3)->graphicBuffer());
    EXPECT_EQ(0, table.indexOf(3));
}

TEST_F(BufferSlotTableTest, ForgetsARemovedSlot) {
    table.fill(3, first);
    table.fill(4, second);
    table.discardAt(table.indexOf(3));
    table.removeAt(table.indexOf(3));
    EXPECT_LT(table.indexOf(3), 0);
    EXPECT_EQ(second, table.find(4)->graphicBuffer());
}

TEST_F(BufferSlotTableTest, CountsFramesUntilTheyAreReleased) {
    const std::shared_ptr<CachedBuffer> buffer = table.fill(3, first);
    table.noteAcquired();
    table.noteAcquired();
    EXPECT_EQ(2, table.outstandingAcquires());
    EXPECT_TRUE(table.noteReleased(*buffer));
    EXPECT_EQ(1, table.outstandingAcquires());
}

TEST_F(BufferSlotTableTest, CountsAFrameNoLongerWhoseSlotIsDiscarded) {
    const std::shared_ptr<CachedBuffer> buffer = table.fill(3, first);
    const std::shared_ptr<AcquiredBuffer> frame = acquire(buffer);
    table.noteAcquired();
    table.discardAt(table.indexOf(3));
    EXPECT_EQ(0, table.outstandingAcquires());
    EXPECT_FALSE(table.noteReleased(*buffer));  // nobody waits for it
    EXPECT_EQ(0, table.outstandingAcquires());
}

TEST_F(BufferSlotTableTest, LeavesTheCountAloneWhenADiscardedSlotIsFree) {
    table.fill(3, first);
    table.fill(4, second);
    const std::shared_ptr<AcquiredBuffer> frame = acquire(table.find(4));
    table.noteAcquired();
    table.discardAt(table.indexOf(3));
    EXPECT_EQ(1, table.outstandingAcquires());
}

TEST_F(BufferSlotTableDeathTest, AbortsWhenABufferIsDiscardedThatIsDiscardedAlready) {
    const std::shared_ptr<CachedBuffer> buffer = table.fill(3, first);
    buffer->discard();
    EXPECT_DEATH(table.discardAt(table.indexOf(3)), failedCheck(151, "mIsCached"));
}

}  // namespace
}  // namespace korvane::test
