// SPDX-License-Identifier: Apache-2.0
// One fault at every call of a stream's life: nothing is left behind, and the next stream works.

#include <cerrno>
#include <functional>
#include <string>
#include <tuple>
#include <vector>

#include <sys/eventfd.h>
#include <unistd.h>

#include <gmock/gmock.h>

#include "support/OpenDescriptors.h"
#include "support/UvcBufferOutputTest.h"

using namespace korvane::test;

namespace {

constexpr size_t kSteps = 10;

// Lives through whole streams, step by step, whether the steps work or not.
class UvcLifeTest : public UvcBufferOutputTest {
  protected:
    static constexpr uint32_t kFrames = 3;

    void SetUp() override {
        UvcBufferOutputTest::SetUp();
        if (IsSkipped()) return;
        for (uint32_t i = 0; i < kFrames; ++i) mPictures.push_back(makePicture(64, 32));
        mListener.onEmptied = [this](UvcBufInfo* record) {
            mListener.emptied.clear();
            if (record->fenceFd >= 0) close(record->fenceFd);
        };
        mKernel.setBufferLength(64 * 32 * 2);
        ASSERT_EQ(kSteps, mSteps.size());
    }

    // The whole life; the node goes before the step of that number, if there is one.
    void live(size_t removeBefore = kSteps) {
        for (size_t i = 0; i < mSteps.size(); ++i) {
            if (i == removeBefore) mKernel.remove();
            mSteps[i]();
        }
    }

    void expectNothingLeft() {
        EXPECT_EQ(-1, mCtrl->fd);
        EXPECT_FALSE(mCtrl->isStreaming());
        EXPECT_EQ(0u, mKernel.openDescriptors());
        EXPECT_EQ(0u, mKernel.openMappings());
        for (const auto& picture : mPictures) {
            EXPECT_EQ(1, picture->getStrongCount());
            EXPECT_EQ(0, takeLocks(picture));
        }
    }

    // Of a life without a fault: the frames that the driver got and those that came back.
    void expectToStream() {
        const size_t framesBefore = mKernel.sentFrames().size();
        mListener.events.clear();
        live();
        EXPECT_EQ(framesBefore + kFrames + 1, mKernel.sentFrames().size());
        EXPECT_THAT(mListener.events, testing::ElementsAre("start", "emptied", "emptied", "stop"));
    }

    std::vector<sp<GraphicBuffer>> mPictures;

  private:
    void queueWithFence(uint32_t index) {
        const int fence = eventfd(0, EFD_CLOEXEC);
        if (!queue(index, mPictures[index], {0, 0}, fence)) close(fence);
    }
    void sendAndTakeBack() {
        mKernel.send();
        writable();
    }
    void handle(uint32_t type) {
        mKernel.sendEvent(type);
        exception();
    }
    void announceData() {
        mKernel.sendSetup(0x21, 0x01, kCommit << 8, 1, 34);
        exception();
    }
    void sendData() {
        mKernel.sendData({1, 0, kUncompressed, kSmallFrame, 0x15, 0x16, 0x05, 0});
        exception();
    }

    const std::vector<std::function<void()>> mSteps{
            [this] { (void)mCtrl->open(); },  // the fault may be in it
            [this] { announceData(); },
            [this] { sendData(); },
            [this] { handle(UVC_EVENT_STREAMON); },
            [this] {
                for (uint32_t i = 0; i < kFrames; ++i) queueWithFence(i);
            },
            [this] { sendAndTakeBack(); },
            [this] { sendAndTakeBack(); },
            [this] { queueWithFence(0); },
            [this] { handle(UVC_EVENT_STREAMOFF); },
            [this] { mCtrl->close(); },
    };
};

TEST_F(UvcLifeTest, LeavesNothingBehindWithoutAFault) {
    expectToStream();
    const int descriptors = countOpenDescriptors();
    expectToStream();
    expectNothingLeft();
    EXPECT_EQ(descriptors, countOpenDescriptors());
}

// --- A call that fails ---

using Fault = std::tuple<std::string, int>;

class UvcFaultTest : public UvcLifeTest, public testing::WithParamInterface<Fault> {};

TEST_P(UvcFaultTest, AFaultAnywhereLeavesNothingBehindAndTheNextStreamWorks) {
    const auto& [name, errorNumber] = GetParam();
    expectToStream();
    const int descriptors = countOpenDescriptors();
    const int places = static_cast<int>(mKernel.calls(name).size());
    ASSERT_GT(places, 0);
    for (int passing = 0; passing < places; ++passing) {
        mKernel.clearCalls();
        mKernel.fail(name, errorNumber, passing);
        live();
        ASSERT_EQ(errorNumber, mKernel.calls(name).at(passing).error);
        expectNothingLeft();
        EXPECT_EQ(descriptors, countOpenDescriptors()) << passing;

        mLog.clear();
        expectToStream();
        EXPECT_TRUE(mLog.lines("UVC-V4l2CtrlBase").empty()) << passing;
    }
}

std::string nameOf(const Fault& fault) {
    return std::get<0>(fault) + "_" + strerrorname_np(std::get<1>(fault));
}

INSTANTIATE_TEST_SUITE_P(
        Calls, UvcFaultTest,
        testing::Combine(testing::Values("open", "close", "mmap", "VIDIOC_SUBSCRIBE_EVENT",
                                         "VIDIOC_S_FMT", "VIDIOC_DQEVENT", "UVCIOC_SEND_RESPONSE",
                                         "VIDIOC_REQBUFS", "VIDIOC_QUERYBUF", "VIDIOC_STREAMON",
                                         "VIDIOC_STREAMOFF", "VIDIOC_QBUF", "VIDIOC_DQBUF"),
                         testing::Values(EIO, EAGAIN, EBADF, ENODEV, ESHUTDOWN)),
        [](const auto& info) { return nameOf(info.param); });

// --- A node that goes ---

class UvcVanishingNodeTest : public UvcLifeTest, public testing::WithParamInterface<size_t> {};

TEST_P(UvcVanishingNodeTest, LeavesNothingBehind) {
    const int descriptors = countOpenDescriptors();
    live(GetParam());
    expectNothingLeft();
    EXPECT_EQ(descriptors, countOpenDescriptors());
    EXPECT_EQ(-19, mCtrl->open());
}

INSTANTIATE_TEST_SUITE_P(BeforeStep, UvcVanishingNodeTest, testing::Range(size_t{0}, kSteps));

}  // namespace
