// SPDX-License-Identifier: Apache-2.0
#include "uvc/JpegBlob.h"

#include <cstring>
#include <vector>

#include <gmock/gmock.h>

#include "support/LogRecorder.h"

using korvane::hardware::camera::desktop::V2_0::implementation::takeJpegSize;
using korvane::test::LogLine;
using korvane::test::LogRecorder;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// The odd start makes every footer unaligned.
class Blob {
  public:
    explicit Blob(uint32_t capacity) : mCapacity(capacity), mBytes(1 + capacity, 0xAA) {}

    void setFooter(uint16_t id, uint32_t size) {
        memcpy(data() + mCapacity - 8, &id, sizeof(id));
        memcpy(data() + mCapacity - 4, &size, sizeof(size));
    }
    uint32_t footerSize() {
        uint32_t size;
        memcpy(&size, data() + mCapacity - 4, sizeof(size));
        return size;
    }
    uint8_t* data() { return mBytes.data() + 1; }
    std::vector<uint8_t> bytes() { return mBytes; }
    uint32_t take() { return takeJpegSize(data(), mCapacity); }

  private:
    const uint32_t mCapacity;
    std::vector<uint8_t> mBytes;
};

LogLine noHeader(const std::string& width) {
    return {ANDROID_LOG_WARN, "UVC-V4l2Ctrl",
            "getBlobSizeFromCamera: No JPEG header detected, defaulting to size=width=" + width};
}

class JpegBlobTest : public testing::TestWithParam<uint16_t> {
  protected:
    LogRecorder mLog;
};

TEST_P(JpegBlobTest, GivesTheSizeAndLeavesTheCapacityInItsPlace) {
    Blob blob(100);
    blob.setFooter(GetParam(), 42);
    EXPECT_EQ(42u, blob.take());
    EXPECT_EQ(100u, blob.footerSize());
    EXPECT_THAT(mLog.lines(), IsEmpty());
}

TEST_P(JpegBlobTest, AFooterOfSizeZeroMeansTheWholeCapacity) {
    Blob blob(100);
    blob.setFooter(GetParam(), 0);
    EXPECT_EQ(100u, blob.take());
    EXPECT_EQ(100u, blob.footerSize());
    EXPECT_THAT(mLog.lines(), ElementsAre(noHeader("100")));
}

INSTANTIATE_TEST_SUITE_P(Ids, JpegBlobTest, testing::Values(0x00FF, 0xF0FF));

TEST_F(JpegBlobTest, TouchesNothingButTheFootersSize) {
    Blob blob(100);
    blob.setFooter(0x00FF, 42);
    std::vector<uint8_t> expected = blob.bytes();
    const uint32_t capacity = 100;
    memcpy(expected.data() + 1 + 96, &capacity, sizeof(capacity));
    blob.take();
    EXPECT_EQ(expected, blob.bytes());
}

TEST_F(JpegBlobTest, AnUnknownIdMeansTheWholeCapacityAndStaysUntouched) {
    for (uint16_t id : {0x0000, 0x00FE, 0xFF00, 0xFFFF, 0xF0F0}) {
        Blob blob(100);
        blob.setFooter(id, 42);
        const std::vector<uint8_t> before = blob.bytes();
        mLog.clear();
        EXPECT_EQ(100u, blob.take()) << id;
        EXPECT_EQ(before, blob.bytes()) << id;
        EXPECT_THAT(mLog.lines(), ElementsAre(noHeader("100"))) << id;
    }
}

TEST_F(JpegBlobTest, ABlobOfJustAFooterIsRead) {
    Blob blob(8);
    blob.setFooter(0x00FF, 5);
    EXPECT_EQ(5u, blob.take());
}

TEST_F(JpegBlobTest, ABlobTooSmallForAFooterIsTakenWhole) {
    for (uint32_t capacity : {0u, 1u, 7u}) {
        Blob blob(capacity);
        const std::vector<uint8_t> before = blob.bytes();
        EXPECT_EQ(capacity, blob.take());
        EXPECT_EQ(before, blob.bytes());
    }
    EXPECT_THAT(mLog.lines(), ElementsAre(noHeader("0"), noHeader("1"), noHeader("7")));
}

TEST_F(JpegBlobTest, ReportsASizeBeyondTheCapacityAsItIs) {
    Blob blob(100);
    blob.setFooter(0x00FF, 0xFFFFFFFF);
    EXPECT_EQ(0xFFFFFFFFu, blob.take());
}

}  // namespace
