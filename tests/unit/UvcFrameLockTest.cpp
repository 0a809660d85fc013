// SPDX-License-Identifier: Apache-2.0
// How the device locks a frame for the processor, and what it does when that gives no address.

#include <cinttypes>
#include <cstdio>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "support/PendingCall.h"
#include "support/UvcBufferOutputTest.h"

using namespace korvane::test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// What the linker makes of the calls to the buffers (--wrap): they are noted, and a test may change
// what they give.
struct Spy {
    std::vector<std::string> calls;
    std::function<void(void**)> changeAddress;
    std::function<void(android_ycbcr*)> changePlanes;
    std::function<void()> onUnlock;
};

Spy& spy() {
    static auto* sSpy = new Spy;
    return *sSpy;
}

void note(const char* call, uint32_t usage) {
    char text[32];
    snprintf(text, sizeof(text), "%s 0x%" PRIx32, call, usage);
    spy().calls.emplace_back(text);
}

class UvcFrameLockTest : public UvcBufferOutputTest {
  protected:
    UvcFrameLockTest() { spy() = {}; }
    ~UvcFrameLockTest() override { spy() = {}; }

    // From here on; the pictures have been drawn before.
    bool queueSpied(const sp<GraphicBuffer>& buffer) {
        spy().calls.clear();
        return queue(0, buffer);
    }
};

TEST_F(UvcFrameLockTest, ABlobIsLockedForAllAccessUntilItsBufferComesBack) {
    streamJpeg();
    EXPECT_TRUE(queueSpied(makeJpeg(100, 50)));
    EXPECT_THAT(spy().calls, ElementsAre("lock 0xff"));
    sendOne();
    EXPECT_THAT(spy().calls, ElementsAre("lock 0xff", "unlock"));
}

TEST_F(UvcFrameLockTest, APictureIsLockedForReadingUntilItsBufferComesBack) {
    streamYuyv();
    EXPECT_TRUE(queueSpied(makePicture(64, 32)));
    EXPECT_THAT(spy().calls, ElementsAre("lockYCbCr 0x2"));
    sendOne();
    EXPECT_THAT(spy().calls, ElementsAre("lockYCbCr 0x2", "unlock"));
}

TEST_F(UvcFrameLockTest, ADroppedBlobIsUnlockedAtOnce) {
    streamJpeg(40);
    EXPECT_FALSE(queueSpied(makeJpeg(100, 50)));
    EXPECT_THAT(spy().calls, ElementsAre("lock 0xff", "unlock"));
}

TEST_F(UvcFrameLockTest, ABlobWithoutAnAddressIsUnlockedAndRefused) {
    streamJpeg();
    const auto blob = makeBlob(100);
    spy().changeAddress = [](void** address) { *address = nullptr; };
    EXPECT_FALSE(queueSpied(blob));
    EXPECT_THAT(mLog.lines(), ElementsAre(error("null ptr for image dequeued")));
    EXPECT_THAT(spy().calls, ElementsAre("lock 0xff", "unlock"));
    EXPECT_EQ(1, blob->getStrongCount());
}

// The driver, which gets its size all the same, refuses it.
TEST_F(UvcFrameLockTest, APictureThatDoesNotFitIsUnlockedAtOnce) {
    streamYuyv(100);
    EXPECT_FALSE(queueSpied(makePicture(64, 32)));
    EXPECT_THAT(spy().calls, ElementsAre("lockYCbCr 0x2", "unlock"));
}

TEST_F(UvcFrameLockTest, TheNextFrameDoesNotUnlockAPictureThatDidNotFit) {
    streamYuyv(4096);
    const auto tooLarge = makePicture(640, 480);
    EXPECT_FALSE(queueSpied(tooLarge));
    EXPECT_THAT(spy().calls, ElementsAre("lockYCbCr 0x2", "unlock"));
    EXPECT_TRUE(queueSpied(makePicture(64, 32)));
    EXPECT_THAT(spy().calls, ElementsAre("lockYCbCr 0x2"));
}

TEST_F(UvcFrameLockTest, AStopUnmapsEachBufferBeforeItUnlocksItsFrame) {
    streamJpeg();
    const auto first = makeJpeg(100, 50);
    const auto second = makeJpeg(100, 50);
    queue(0, first);
    queue(2, second);
    std::vector<size_t> mappings;
    spy().onUnlock = [&] { mappings.push_back(mKernel.openMappings()); };
    event(UVC_EVENT_STREAMOFF);
    EXPECT_THAT(mappings, ElementsAre(3, 1));
}

TEST_F(UvcFrameLockTest, AStopDoesNotUnlockAPictureThatDidNotFit) {
    streamYuyv(100);
    EXPECT_FALSE(queueSpied(makePicture(64, 32)));
    event(UVC_EVENT_STREAMOFF);
    EXPECT_THAT(spy().calls, ElementsAre("lockYCbCr 0x2", "unlock"));
}

TEST_F(UvcFrameLockTest, APictureWithoutChromaIsNotUnlockedAgainWhenItsBufferComesBack) {
    streamYuyv();
    const auto picture = makePicture(64, 32);
    spy().changePlanes = [](android_ycbcr* planes) { planes->cb = nullptr; };
    EXPECT_TRUE(queueSpied(picture));
    sendOne();
    EXPECT_THAT(spy().calls, ElementsAre("lockYCbCr 0x2", "unlock"));
}

TEST_F(UvcFrameLockTest, APictureWithoutLumaOrChromaIsUnlockedAndGoesOutEmpty) {
    for (void* android_ycbcr::*plane : {&android_ycbcr::y, &android_ycbcr::cb}) {
        streamYuyv();
        mKernel.fillBuffers(0xCD);
        const auto picture = makePicture(64, 32);
        spy().changePlanes = [plane](android_ycbcr* planes) { planes->*plane = nullptr; };
        EXPECT_TRUE(queueSpied(picture));
        EXPECT_THAT(mLog.lines(), ElementsAre(error("null ptr for ycbcr dequeued")));
        EXPECT_THAT(spy().calls, ElementsAre("lockYCbCr 0x2", "unlock"));
        EXPECT_EQ(0u, queued().bytesused);
        EXPECT_EQ(Bytes(kYuyvLength, 0xCD), mKernel.bufferContents(0));
        spy().changePlanes = nullptr;
        mCtrl->close();
    }
}

TEST_F(UvcFrameLockTest, TheHostsChoiceWaitsForAFrameThatIsBeingConverted) {
    streamYuyv();
    const auto picture = makePicture(64, 32);
    request(0x21, 0x01, kCommit << 8, 1);
    mKernel.sendData({1, 0, kMjpeg, kSmallFrame, 0x15, 0x16, 0x05, 0});
    std::optional<PendingCall<int>> choosing;
    spy().changePlanes = [&](android_ycbcr*) {
        choosing.emplace([this] { return exception(); });
        EXPECT_TRUE(choosing->isHeldUp());
    };
    EXPECT_TRUE(queueSpied(picture));
    EXPECT_EQ(0, choosing->get());
    EXPECT_EQ(64u * 32 * 2, queued().bytesused);
    EXPECT_EQ(uint32_t{V4L2_PIX_FMT_MJPEG}, mCtrl->getStreamSettings().format);
}

// Only luma and cb are looked at; without cr the picture that the conversion had before goes out.
TEST_F(UvcFrameLockTest, APictureWithoutCrGoesOutAndStaysLocked) {
    streamYuyv();
    const auto picture = makePicture(64, 32);
    spy().changePlanes = [](android_ycbcr* planes) { planes->cr = nullptr; };
    EXPECT_TRUE(queueSpied(picture));
    EXPECT_THAT(spy().calls, ElementsAre("lockYCbCr 0x2"));
    EXPECT_THAT(mLog.lines(), IsEmpty());
    EXPECT_EQ(Bytes(64 * 32 * 2, 0), lastFrame());
    sendOne();
    EXPECT_THAT(spy().calls, ElementsAre("lockYCbCr 0x2", "unlock"));
}

}  // namespace

// --- The linker's side ---

namespace android {

status_t realLock(GraphicBuffer*, uint32_t, void**, int32_t*,
                  int32_t*) asm("__real__ZN7android13GraphicBuffer4lockEjPPvPiS3_");
status_t spiedLock(GraphicBuffer*, uint32_t, void**, int32_t*,
                   int32_t*) asm("__wrap__ZN7android13GraphicBuffer4lockEjPPvPiS3_");
status_t realLockYCbCr(GraphicBuffer*, uint32_t, android_ycbcr*) asm(
        "__real__ZN7android13GraphicBuffer9lockYCbCrEjP13android_ycbcr");
status_t spiedLockYCbCr(GraphicBuffer*, uint32_t, android_ycbcr*) asm(
        "__wrap__ZN7android13GraphicBuffer9lockYCbCrEjP13android_ycbcr");
status_t realUnlock(GraphicBuffer*) asm("__real__ZN7android13GraphicBuffer6unlockEv");
status_t spiedUnlock(GraphicBuffer*) asm("__wrap__ZN7android13GraphicBuffer6unlockEv");

status_t spiedLock(GraphicBuffer* buffer, uint32_t usage, void** address, int32_t* bytesPerPixel,
                   int32_t* bytesPerStride) {
    note("lock", usage);
    const status_t status = realLock(buffer, usage, address, bytesPerPixel, bytesPerStride);
    if (spy().changeAddress) spy().changeAddress(address);
    return status;
}

status_t spiedLockYCbCr(GraphicBuffer* buffer, uint32_t usage, android_ycbcr* planes) {
    note("lockYCbCr", usage);
    const status_t status = realLockYCbCr(buffer, usage, planes);
    if (spy().changePlanes) spy().changePlanes(planes);
    return status;
}

status_t spiedUnlock(GraphicBuffer* buffer) {
    spy().calls.emplace_back("unlock");
    if (spy().onUnlock) spy().onUnlock();
    return realUnlock(buffer);
}

}  // namespace android
