// SPDX-License-Identifier: Apache-2.0
// A buffer queue's producer behind its HIDL wrapper, and its clients.
#pragma once

#include <string>
#include <vector>

#include <sys/eventfd.h>

#include <android-base/unique_fd.h>
#include <gtest/gtest.h>
#include <gui/bufferqueue/1.0/H2BGraphicBufferProducer.h>
#include <gui/bufferqueue/1.0/WGraphicBufferProducer.h>
#include <hidl/HidlSupport.h>

#include "support/BufferHandles.h"
#include "support/BufferQueueTest.h"
#include "support/OpenDescriptors.h"

namespace korvane::test {

using android::base::unique_fd;
using android::hardware::hidl_array;
using android::hardware::hidl_handle;
using android::hardware::hidl_string;
using android::hardware::hidl_vec;
using android::hardware::Return;
using android::hardware::Void;
using android::hardware::graphics::bufferqueue::V1_0::utils::H2BGraphicBufferProducer;
using android::hardware::graphics::common::V1_0::Dataspace;
using android::hardware::media::V1_0::AnwBuffer;
using HDelta = HGraphicBufferProducer::FrameEventHistoryDelta;
using HFormat = android::hardware::graphics::common::V1_0::PixelFormat;
using HInput = HGraphicBufferProducer::QueueBufferInput;
using HMode = HGraphicBufferProducer::DisconnectMode;
using HOutput = HGraphicBufferProducer::QueueBufferOutput;
using HRect = android::hardware::media::V1_0::Rect;

inline unique_fd makeEvent() {
    return unique_fd(eventfd(0, EFD_CLOEXEC));
}

constexpr auto kDefaultFormat = static_cast<HFormat>(0);

/** A client's listener; `wants` is its answer. */
struct ClientListener : public HProducerListener {
    Return<void> onBufferReleased() override {
        ++released;
        return Void();
    }
    Return<bool> needsReleaseNotify() override {
        ++asked;
        return wants;
    }

    bool wants = true;
    int asked = 0;
    int released = 0;
};

/** A dead client, as seen by calls to it. */
struct DeadListener : public HProducerListener {
    static android::hardware::Status dead() {
        return android::hardware::Status::fromStatusT(DEAD_OBJECT);
    }
    Return<void> onBufferReleased() override { return dead(); }
    Return<bool> needsReleaseNotify() override {
        if (diesLater) return true;
        return dead();
    }

    bool diesLater = false;
};

/** A handle with these descriptors, which it doesn't own, and this many numbers. */
class BorrowingHandle {
  public:
    explicit BorrowingHandle(const std::vector<int>& fds, int numInts = 0)
        : mHandle(native_handle_create(static_cast<int>(fds.size()), numInts)) {
        for (size_t i = 0; i < fds.size(); ++i) mHandle->data[i] = fds[i];
        for (int i = 0; i < numInts; ++i) mHandle->data[fds.size() + static_cast<size_t>(i)] = 0;
    }
    ~BorrowingHandle() { native_handle_delete(mHandle); }
    native_handle_t* get() const { return mHandle; }

  private:
    native_handle_t* const mHandle;
};

class ProducerWrapperTest : public BufferQueueTest {
  protected:
    ProducerWrapperTest() { wrap(new TWGraphicBufferProducer<HGraphicBufferProducer>(producer)); }

    /** From now on clients go through this wrapper. */
    void wrap(const sp<HGraphicBufferProducer>& newWrapper) {
        wrapper = newWrapper;
        client = new H2BGraphicBufferProducer(wrapper);
    }

    void connectClient(const sp<HProducerListener>& clientListener = nullptr) {
        ASSERT_EQ(NO_ERROR, connectConsumer());
        EXPECT_EQ(NO_ERROR, wrappedConnect(clientListener));
        EXPECT_EQ(NO_ERROR, static_cast<int32_t>(wrapper->setDequeueTimeout(0)));
    }

    int32_t wrappedConnect(const sp<HProducerListener>& clientListener,
                           int32_t api = NATIVE_WINDOW_API_CPU) {
        int32_t result = 1;
        wrapper->connect(clientListener, api, false, [&](int32_t status, const HOutput& output) {
            result = status;
            lastOutput = output;
        });
        return result;
    }

    int32_t wrappedDequeue() {
        int32_t result = 1000;
        wrapper->dequeueBuffer(
                0, 0, kDefaultFormat, kCpuUsage, false,
                [&](int32_t status, int32_t dequeued, const hidl_handle& handle, const HDelta&) {
                    result = status;
                    slot = dequeued;
                    fenceFds = handle.getNativeHandle() == nullptr
                                       ? -1
                                       : handle.getNativeHandle()->numFds;
                    fenceFd = fenceFds > 0 ? handle->data[0] : -1;
                });
        return result;
    }

    int32_t wrappedRequest(int32_t ofSlot) {
        int32_t result = 1000;
        wrapper->requestBuffer(ofSlot, [&](int32_t status, const AnwBuffer& anw) {
            result = status;
            lastBuffer = anw;
        });
        return result;
    }

    static HInput goodInput() {
        HInput input = {};
        input.surfaceDamage = {HRect{0, 0, 0, 0}};
        return input;
    }

    int32_t wrappedQueue(const HInput& input) {
        int32_t result = 1000;
        wrapper->queueBuffer(slot, input, [&](int32_t status, const HOutput& output) {
            result = status;
            lastOutput = output;
        });
        return result;
    }

    int32_t wrappedAttach(const AnwBuffer& anw) {
        int32_t result = 1000;
        wrapper->attachBuffer(anw, [&](int32_t status, int32_t attached) {
            result = status;
            slot = attached;
        });
        return result;
    }

    /** A slot held by the client, ready to be queued. */
    void prepareSlot() {
        ASSERT_LE(NO_ERROR, wrappedDequeue());
        ASSERT_EQ(NO_ERROR, wrappedRequest(slot));
    }

    int32_t queueWithDamage(const std::vector<HRect>& damage) {
        HInput input = goodInput();
        input.surfaceDamage = damage;
        return wrappedQueue(input);
    }

    /** A client's buffer, as it would send it; `sent` keeps it alive. */
    AnwBuffer wrapBuffer(const sp<GraphicBuffer>& from) {
        sent = from;
        AnwBuffer anw = {};
        conversion::wrapAs(&anw, *from);
        return anw;
    }

    sp<HGraphicBufferProducer> wrapper;
    sp<IGraphicBufferProducer> client;
    sp<GraphicBuffer> sent;
    AnwBuffer lastBuffer = {};
    HOutput lastOutput = {};
    /** -1 for a null handle. */
    int fenceFds = -1;
    int fenceFd = -1;
};

}  // namespace korvane::test
