// SPDX-License-Identifier: Apache-2.0
#include "uvc/CodecBuffers.h"

#include <memory>

#include <gtest/gtest.h>

#include "support/FrameSourceTest.h"

namespace korvane::test {
namespace {

using android::AcquiredBuffer;
using android::CachedBuffer;
using android::CodecBuffers;

std::shared_ptr<AcquiredBuffer> frame() {
    const auto buffer = std::make_shared<CachedBuffer>(0, new android::GraphicBuffer);
    return std::make_shared<AcquiredBuffer>(buffer, nullptr, [](AcquiredBuffer*) {});
}

class CodecBuffersTest : public testing::Test {
  protected:
    /** What codec buffer `id` was lent with. */
    std::shared_ptr<AcquiredBuffer> takeBack(int id) {
        std::shared_ptr<AcquiredBuffer> buffer;
        EXPECT_TRUE(buffers.takeBack(id, &buffer)) << id;
        return buffer;
    }

    CodecBuffers buffers;
};

using CodecBuffersDeathTest = CodecBuffersTest;

TEST_F(CodecBuffersTest, HasNoneUntilOneIsAdded) {
    EXPECT_FALSE(buffers.haveFree());
    buffers.add(7);
    EXPECT_TRUE(buffers.haveFree());
    EXPECT_EQ(7, buffers.nextFree());
}

TEST_F(CodecBuffersTest, LendsThemInTheirOrder) {
    for (int id : {7, 3}) buffers.add(id);
    EXPECT_EQ(7, buffers.nextFree());
    EXPECT_EQ(7, buffers.nextFree());  // still free
    buffers.lendNext(frame());
    EXPECT_EQ(3, buffers.nextFree());
    buffers.lendNext(frame());
    EXPECT_FALSE(buffers.haveFree());
}

TEST_F(CodecBuffersTest, FreesOneAfterThoseThatAreFreeAlready) {
    for (int id : {0, 1}) buffers.add(id);
    buffers.lendNext(frame());
    takeBack(0);
    EXPECT_EQ(1, buffers.nextFree());
    buffers.lendNext(frame());
    EXPECT_EQ(0, buffers.nextFree());
}

TEST_F(CodecBuffersTest, GivesEachFrameBackWithItsCodecBuffer) {
    const auto first = frame();
    const auto second = frame();
    for (int id : {0, 1}) buffers.add(id);
    buffers.lendNext(first);
    buffers.lendNext(second);
    EXPECT_EQ(second, takeBack(1));
    EXPECT_EQ(first, takeBack(0));
}

TEST_F(CodecBuffersTest, GivesNothingBackForTheEndOfTheStream) {
    buffers.add(0);
    buffers.lendNext(nullptr);
    std::shared_ptr<AcquiredBuffer> buffer = frame();
    EXPECT_TRUE(buffers.takeBack(0, &buffer));
    EXPECT_EQ(nullptr, buffer);
    EXPECT_TRUE(buffers.haveFree());
}

TEST_F(CodecBuffersTest, TakesBackOnlyWhatIsLent) {
    buffers.add(0);
    std::shared_ptr<AcquiredBuffer> buffer;
    EXPECT_FALSE(buffers.takeBack(0, &buffer));  // free
    EXPECT_FALSE(buffers.takeBack(7, &buffer));
    buffers.lendNext(frame());
    takeBack(0);
    EXPECT_FALSE(buffers.takeBack(0, &buffer));  // twice
    buffers.lendNext(frame());
    EXPECT_FALSE(buffers.haveFree());  // it was free once only
}

TEST_F(CodecBuffersTest, LetsGoOfAFrameWhoseCodecBufferIsLentAgain) {
    for (int i = 0; i < 2; ++i) buffers.add(0);
    std::shared_ptr<AcquiredBuffer> first = frame();
    const std::weak_ptr<AcquiredBuffer> held = first;
    const auto second = frame();
    buffers.lendNext(first);
    first.reset();
    EXPECT_FALSE(held.expired());
    buffers.lendNext(second);
    EXPECT_TRUE(held.expired());
    EXPECT_EQ(second, takeBack(0));
}

TEST_F(CodecBuffersTest, LetsGoOfTheFramesOfAllThatAreLent) {
    buffers.add(0);
    std::shared_ptr<AcquiredBuffer> buffer = frame();
    const std::weak_ptr<AcquiredBuffer> held = buffer;
    buffers.lendNext(buffer);
    buffer.reset();
    buffers.forgetLent();
    EXPECT_TRUE(held.expired());
    EXPECT_FALSE(buffers.takeBack(0, &buffer));
    EXPECT_FALSE(buffers.haveFree());
}

TEST_F(CodecBuffersDeathTest, AbortsWithoutAFreeOne) {
    EXPECT_DEATH(buffers.nextFree(), failedCheck(886, "!mFreeCodecBuffers.empty()"));
}

}  // namespace
}  // namespace korvane::test
