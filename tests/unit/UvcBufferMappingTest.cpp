// SPDX-License-Identifier: Apache-2.0
// The buffers of a stream are requested, mapped, and all given back.

#include <cerrno>

#include <sys/mman.h>

#include <gmock/gmock.h>

#include "support/UvcBufferOutputTest.h"

using namespace korvane::test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class UvcBufferMappingTest : public UvcBufferOutputTest {};

// The numbers that a dump of a record shows.
static_assert(UvcBufInfo::KIND_NONE == 0);
static_assert(UvcBufInfo::KIND_FRAME == 1);
static_assert(UvcBufInfo::KIND_MAPPED == 3);

// --- Mapping ---

TEST_F(UvcBufferMappingTest, RequestsFourBuffersAndMapsEach) {
    ASSERT_EQ(0, mCtrl->open());
    mKernel.setBufferLength(5000);
    event(UVC_EVENT_STREAMON);

    v4l2_requestbuffers request = {};
    request.count = 4;
    request.type = 2;
    request.memory = V4L2_MEMORY_MMAP;
    EXPECT_TRUE(mKernel.calls("VIDIOC_REQBUFS")[0].is(request));
    const auto queries = mKernel.calls("VIDIOC_QUERYBUF");
    const auto mappings = mKernel.calls("mmap");
    ASSERT_EQ(4u, queries.size());
    ASSERT_EQ(4u, mappings.size());
    for (uint32_t i = 0; i < 4; ++i) {
        v4l2_buffer query = {};
        query.type = 2;
        query.memory = V4L2_MEMORY_MMAP;
        query.index = i;
        EXPECT_TRUE(queries[i].is(query)) << i;
        const auto mapping = mappings[i].as<KernelMapping>();
        EXPECT_EQ(5000u, mapping.length);
        EXPECT_EQ(PROT_READ | PROT_WRITE, mapping.protection);
        EXPECT_EQ(MAP_SHARED, mapping.flags);
        EXPECT_EQ(static_cast<off_t>(8192 * i), mapping.offset);
        EXPECT_EQ(mCtrl->fd, mappings[i].fd);
    }
}

TEST_F(UvcBufferMappingTest, ARecordStartsEmpty) {
    const UvcBufInfo record;
    EXPECT_EQ(0u, record.kind);
    EXPECT_EQ(-1, record.bufFd);
    EXPECT_EQ(nullptr, record.addr);
    EXPECT_EQ(0u, record.length);
    EXPECT_EQ(-1, record.auxFd);
    EXPECT_EQ(-1, record.fenceFd);
    EXPECT_EQ(0, record.timestamp.tv_sec);
    EXPECT_EQ(0, record.timestamp.tv_usec);
    EXPECT_EQ(nullptr, record.graphicBuffer);
}

TEST_F(UvcBufferMappingTest, TheRecordOfAFreeBufferHasItsMappingOnly) {
    streamJpeg(5000);
    mKernel.fillBuffers(0xCD);
    mListener.onEmptied = [](UvcBufInfo* record) {
        EXPECT_EQ(Bytes(5000, 0xCD), Bytes(record->addr, record->addr + 5000));
    };
    for (uint32_t i = 0; i < 4; ++i) EXPECT_EQ(0, giveBack(i));
    ASSERT_EQ(4u, mListener.emptied.size());
    for (uint32_t i = 0; i < 4; ++i) {
        const UvcBufInfo& record = mListener.emptied[i];
        EXPECT_EQ(i, record.index);
        EXPECT_EQ(3u, record.kind);
        EXPECT_EQ(5000u, record.length);
        EXPECT_EQ(-1, record.bufFd);
        EXPECT_EQ(-1, record.auxFd);
        EXPECT_EQ(-1, record.fenceFd);
        EXPECT_EQ(0, record.timestamp.tv_sec);
        EXPECT_EQ(nullptr, record.graphicBuffer);
    }
}

TEST_F(UvcBufferMappingTest, TheRecordOfAReleasedBufferHasItsIndexOnly) {
    streamJpeg(5000);
    event(UVC_EVENT_STREAMOFF);
    EXPECT_EQ(0, giveBack(2));
    ASSERT_EQ(1u, mListener.emptied.size());
    const UvcBufInfo& record = mListener.emptied[0];
    EXPECT_EQ(2u, record.index);
    EXPECT_EQ(0u, record.kind);
    EXPECT_EQ(nullptr, record.addr);
    EXPECT_EQ(0u, record.length);
    EXPECT_EQ(nullptr, record.graphicBuffer);
}

TEST_F(UvcBufferMappingTest, TheDeviceSaysHowManyBuffersThereAre) {
    struct TwoBuffers : public UvcV4l2Ctrl {
        using UvcV4l2Ctrl::UvcV4l2Ctrl;
        uint32_t getBufferNum() override { return 2; }
    };
    mCtrl = std::make_unique<TwoBuffers>(kPath, mStats);
    ASSERT_EQ(0, mCtrl->open());
    event(UVC_EVENT_STREAMON);
    EXPECT_EQ(2u, mKernel.calls("VIDIOC_REQBUFS")[0].as<v4l2_requestbuffers>().count);
    EXPECT_EQ(2u, mKernel.openMappings());
    EXPECT_TRUE(queue(1, makeJpeg(100, 50)));
    EXPECT_FALSE(queue(2, makeJpeg(100, 50)));
    mCtrl->close();
    EXPECT_EQ(0u, mKernel.openMappings());
}

TEST_F(UvcBufferMappingTest, ADeviceOfNoBuffersDoesNotStream) {
    struct NoBuffers : public UvcV4l2Ctrl {
        using UvcV4l2Ctrl::UvcV4l2Ctrl;
        uint32_t getBufferNum() override { return 0; }
    };
    mCtrl = std::make_unique<NoBuffers>(kPath, mStats);
    ASSERT_EQ(0, mCtrl->open());
    event(UVC_EVENT_STREAMON);
    EXPECT_FALSE(mCtrl->isStreaming());
    EXPECT_THAT(mLog.lines(kTag),
                ElementsAre(error("request buffer failed"), error("Failed to alloc buffers")));
}

TEST_F(UvcBufferMappingTest, UnmapsWhatItMapped) {
    ASSERT_EQ(0, mCtrl->open());
    mKernel.setBufferLength(5000);
    event(UVC_EVENT_STREAMON);
    event(UVC_EVENT_STREAMOFF);
    EXPECT_EQ(0u, mKernel.openMappings());
    for (const auto& call : mKernel.calls("munmap")) EXPECT_EQ(5000u, call.as<size_t>());
    v4l2_requestbuffers release = {};
    release.type = 2;
    release.memory = V4L2_MEMORY_MMAP;
    EXPECT_TRUE(mKernel.calls("VIDIOC_REQBUFS")[1].is(release));
}

TEST_F(UvcBufferMappingTest, MoreBuffersThanAskedForAreNotUsed) {
    mKernel.setGrant(6);
    ASSERT_EQ(0, mCtrl->open());
    event(UVC_EVENT_STREAMON);
    EXPECT_TRUE(mCtrl->isStreaming());
    EXPECT_EQ(4u, mKernel.openMappings());
}

TEST_F(UvcBufferMappingTest, FewerBuffersThanAskedForAreNotEnough) {
    ASSERT_EQ(0, mCtrl->open());
    for (uint32_t granted : {3, 2, 1}) {
        mLog.clear();
        mKernel.setGrant(granted);
        event(UVC_EVENT_STREAMON);
        EXPECT_FALSE(mCtrl->isStreaming());
        EXPECT_EQ(0u, mKernel.openMappings());
        EXPECT_THAT(mLog.lines(kTag), ElementsAre(error("failed to mmap all buffers"),
                                                  error("Failed to alloc buffers")));
    }
}

TEST_F(UvcBufferMappingTest, NoBuffersAreAFailedRequest) {
    mKernel.setGrant(0);
    ASSERT_EQ(0, mCtrl->open());
    event(UVC_EVENT_STREAMON);
    EXPECT_FALSE(mCtrl->isStreaming());
    EXPECT_TRUE(mKernel.calls("VIDIOC_QUERYBUF").empty());
    EXPECT_THAT(mLog.lines(),
                ElementsAre(error("request buffer failed"), error("Failed to alloc buffers")));
}

TEST_F(UvcBufferMappingTest, AFailingQueryReleasesTheBuffersMappedSoFar) {
    ASSERT_EQ(0, mCtrl->open());
    for (size_t i = 0; i < 4; ++i) {
        mKernel.clearCalls();
        mLog.clear();
        mKernel.fail("VIDIOC_QUERYBUF", EINVAL, static_cast<int>(i));
        event(UVC_EVENT_STREAMON);
        EXPECT_EQ(i, mKernel.calls("munmap").size());
        EXPECT_EQ(0u, mKernel.openMappings());
        // The driver's buffers are only freed when one of them had been mapped.
        EXPECT_EQ(i > 0 ? 2u : 1u, mKernel.calls("VIDIOC_REQBUFS").size());
        EXPECT_THAT(mLog.lines(kTag), ElementsAre(error("failed to mmap all buffers"),
                                                  error("Failed to alloc buffers")));
    }
}

TEST_F(UvcBufferMappingTest, AFailingMappingReleasesTheBuffersMappedSoFar) {
    ASSERT_EQ(0, mCtrl->open());
    for (size_t i = 0; i < 4; ++i) {
        mKernel.clearCalls();
        mLog.clear();
        mKernel.fail("mmap", ENOMEM, static_cast<int>(i));
        event(UVC_EVENT_STREAMON);
        EXPECT_EQ(i, mKernel.calls("munmap").size());
        EXPECT_EQ(0u, mKernel.openMappings());
        EXPECT_EQ(i > 0 ? 2u : 1u, mKernel.calls("VIDIOC_REQBUFS").size());
        EXPECT_THAT(mLog.lines(), ElementsAre(error("failed to mmap buffers, errno 12"),
                                              error("failed to mmap all buffers"),
                                              error("Failed to alloc buffers")));
    }
}

TEST_F(UvcBufferMappingTest, StreamOnQueuesNothing) {
    streamJpeg();
    EXPECT_THAT(mKernel.sentFrames(), IsEmpty());
}

}  // namespace
