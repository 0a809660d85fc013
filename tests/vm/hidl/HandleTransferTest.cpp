// SPDX-License-Identifier: Apache-2.0
// Handles, structs and objects on their way between processes.

#include <algorithm>
#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <mutex>
#include <numeric>
#include <string>

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "ServiceFixture.h"
#include "support/StubProducer.h"

namespace korvane::test {
namespace {

using ::android::sp;
using ::android::hardware::hidl_array;
using ::android::hardware::hidl_handle;
using ::android::hardware::hidl_string;
using ::android::hardware::Return;
using ::android::hardware::Void;
using ::android::hardware::graphics::bufferqueue::V1_0::IProducerListener;
using ::android::hardware::graphics::common::V1_0::Dataspace;
using desktop_v2::ClientType;

size_t openDescriptors() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return std::distance(begin(all), end(all));
}

/** A handle that owns the given descriptors. */
hidl_handle handleOf(std::initializer_list<int> fds, std::initializer_list<int> ints = {}) {
    native_handle_t* const native = native_handle_create(fds.size(), ints.size());
    std::copy(ints.begin(), ints.end(), std::copy(fds.begin(), fds.end(), native->data));
    hidl_handle handle;
    handle.setTo(native, true /* shouldOwn */);
    return handle;
}

int memory(const std::string& contents) {
    const int fd = memfd_create("test", MFD_CLOEXEC);
    EXPECT_EQ(static_cast<ssize_t>(contents.size()), write(fd, contents.data(), contents.size()));
    return fd;
}

std::string contentsOf(int fd) {
    char bytes[64] = {};
    const ssize_t length = pread(fd, bytes, sizeof(bytes), 0);
    return length < 0 ? "unreadable" : std::string(bytes, length);
}

/** Hands out a buffer with two descriptors, and keeps what it is told about others. */
class HandleProducer : public StubProducer {
  public:
    Return<void> requestBuffer(int32_t slot, requestBuffer_cb reply) override {
        AnwBuffer buffer{};
        if (slot >= 0) {
            buffer.nativeHandle = handleOf({memory("first"), memory("second")}, {slot, 77});
            buffer.attr.width = 640;
            buffer.attr.id = 0x123456789abcdef0;
        }
        reply(slot, buffer);
        return Void();
    }
    Return<int32_t> cancelBuffer(int32_t /*slot*/, const hidl_handle& fence) override {
        if (fence.getNativeHandle() == nullptr) return -1;
        return fence->numFds * 100 + static_cast<int>(contentsOf(fence->data[0]).size());
    }
    Return<void> queueBuffer(int32_t slot, const QueueBufferInput& input,
                             queueBuffer_cb reply) override {
        QueueBufferOutput output{};
        output.width = input.surfaceDamage.size();
        output.height = input.surfaceDamage[1].bottom;
        output.nextFrameNumber = input.timestamp;
        output.numPendingBuffers = contentsOf(input.fence->data[0]).size();
        output.frameTimestamps.deltas.resize(2);
        output.frameTimestamps.deltas[1].releaseFence.fence = handleOf({memory("release")});
        reply(slot, output);
        return Void();
    }
    Return<void> getLastQueuedBuffer(getLastQueuedBuffer_cb reply) override {
        std::array<float, 16> matrix;
        std::iota(matrix.begin(), matrix.end(), 0.5f);
        reply(0, AnwBuffer{}, hidl_handle(), hidl_array<float, 16>(matrix));
        return Void();
    }
    Return<void> getUniqueId(getUniqueId_cb reply) override {
        reply(0, openDescriptors());
        return Void();
    }
    Return<void> connect(const Listener& listener, int32_t, bool, connect_cb reply) override {
        Return<bool> wanted = listener->needsReleaseNotify();
        QueueBufferOutput output{};
        output.bufferReplaced = wanted.withDefault(false);
        for (int i = 0; i < 3; ++i) listener->onBufferReleased().assertOk();
        reply(0, output);
        return Void();
    }
};

struct Producing : StubDesktop {
    Producing() { surfaces[ClientType::WEBCAM_CONTROLLER] = new HandleProducer(); }
};

class HandleTransferTest : public ServiceFixture {
  protected:
    void SetUp() override { serve<Producing>(); }

    static StubDesktop::SurfaceV1 producer() {
        const Return<StubDesktop::SurfaceV1> surface =
                find()->getSurface(ClientType::WEBCAM_CONTROLLER);
        EXPECT_TRUE(surface.isOk());
        return surface;
    }
    static uint64_t descriptorsOfTheService(const StubDesktop::SurfaceV1& producer) {
        uint64_t count = 0;
        EXPECT_TRUE(producer->getUniqueId([&](int32_t, uint64_t n) { count = n; }).isOk());
        return count;
    }
};

TEST_F(HandleTransferTest, BringsAHandleInAStruct) {
    runClient([](Line&) {
        hidl_handle kept;
        int lent = -1;
        EXPECT_TRUE(producer()
                            ->requestBuffer(5,
                                            [&](int32_t status, const auto& buffer) {
                                                EXPECT_EQ(5, status);
                                                EXPECT_EQ(640u, buffer.attr.width);
                                                EXPECT_EQ(0x123456789abcdef0u, buffer.attr.id);
                                                ASSERT_NE(nullptr,
                                                          buffer.nativeHandle.getNativeHandle());
                                                EXPECT_EQ(2, buffer.nativeHandle->numFds);
                                                EXPECT_EQ(2, buffer.nativeHandle->numInts);
                                                EXPECT_EQ(5, buffer.nativeHandle->data[2]);
                                                EXPECT_EQ(77, buffer.nativeHandle->data[3]);
                                                EXPECT_EQ("first",
                                                          contentsOf(buffer.nativeHandle->data[0]));
                                                lent = buffer.nativeHandle->data[0];
                                                kept = buffer.nativeHandle;
                                            })
                            .isOk());
        EXPECT_EQ("unreadable", contentsOf(lent)) << "a received descriptor outlives its call";
        EXPECT_EQ("second", contentsOf(kept->data[1]));
    });
}

TEST_F(HandleTransferTest, BringsANullHandleInAStruct) {
    runClient([](Line&) {
        bool replied = false;
        EXPECT_TRUE(producer()
                            ->requestBuffer(-1,
                                            [&](int32_t, const auto& buffer) {
                                                EXPECT_EQ(nullptr,
                                                          buffer.nativeHandle.getNativeHandle());
                                                replied = true;
                                            })
                            .isOk());
        EXPECT_TRUE(replied);
    });
}

TEST_F(HandleTransferTest, BringsAHandleAsAnArgument) {
    runClient([](Line&) {
        const auto surface = producer();
        const hidl_handle fence = handleOf({memory("fence")});
        EXPECT_EQ(105, surface->cancelBuffer(0, fence).withDefault(0));
        EXPECT_EQ("fence", contentsOf(fence->data[0])) << "the sender keeps its descriptor";
        EXPECT_EQ(-1, surface->cancelBuffer(0, hidl_handle()).withDefault(0));
    });
}

TEST_F(HandleTransferTest, RefusesAHandleWithABadDescriptor) {
    runClient([](Line&) {
        const auto surface = producer();
        native_handle_t* const native = native_handle_create(1, 0);
        native->data[0] = 12345;
        const Return<int32_t> cancelled = surface->cancelBuffer(0, native);
        EXPECT_FALSE(cancelled.isOk());
        EXPECT_FALSE(cancelled.isDeadObject());
        native_handle_delete(native);
        EXPECT_EQ(-1, surface->cancelBuffer(0, nullptr).withDefault(0));
    });
}

TEST_F(HandleTransferTest, BringsNestedStructsBothWays) {
    runClient([](Line&) {
        StubProducer::QueueBufferInput input{};
        input.timestamp = 1234567890123;
        input.dataSpace = Dataspace::V0_JFIF;
        input.fence = handleOf({memory("fence")});
        input.surfaceDamage = {{0, 0, 1, 2}, {3, 4, 5, 6}};
        bool replied = false;
        EXPECT_TRUE(producer()
                            ->queueBuffer(
                                    1, input,
                                    [&](int32_t, const auto& output) {
                                        EXPECT_EQ(2u, output.width);
                                        EXPECT_EQ(6u, output.height);
                                        EXPECT_EQ(1234567890123u, output.nextFrameNumber);
                                        EXPECT_EQ(5u, output.numPendingBuffers);
                                        const auto& deltas = output.frameTimestamps.deltas;
                                        ASSERT_EQ(2u, deltas.size());
                                        EXPECT_EQ(nullptr,
                                                  deltas[0].releaseFence.fence.getNativeHandle());
                                        EXPECT_EQ(
                                                "release",
                                                contentsOf(deltas[1].releaseFence.fence->data[0]));
                                        replied = true;
                                    })
                            .isOk());
        EXPECT_TRUE(replied);
    });
}

TEST_F(HandleTransferTest, BringsAnArray) {
    runClient([](Line&) {
        hidl_array<float, 16> matrix;
        EXPECT_TRUE(producer()
                            ->getLastQueuedBuffer([&](int32_t, const auto&, const auto&,
                                                      const auto& received) { matrix = received; })
                            .isOk());
        EXPECT_EQ(0.5f, matrix[0]);
        EXPECT_EQ(15.5f, matrix[15]);
    });
}

TEST_F(HandleTransferTest, LeavesNoDescriptorBehind) {
    runClient([](Line&) {
        const auto surface = producer();
        const hidl_handle fence = handleOf({memory("fence")});
        const auto exchange = [&] {
            EXPECT_EQ(105, surface->cancelBuffer(0, fence).withDefault(0));
            EXPECT_TRUE(surface->requestBuffer(1, [](int32_t, const auto&) {}).isOk());
        };
        exchange();
        const uint64_t inService = descriptorsOfTheService(surface);
        const size_t here = openDescriptors();
        for (int i = 0; i < 100; ++i) exchange();
        EXPECT_EQ(inService, descriptorsOfTheService(surface));
        EXPECT_EQ(here, openDescriptors());
    });
}

TEST_F(HandleTransferTest, GivesAnObjectBackToItsOwnerAsItself) {
    runClient([](const Desktop& service) {
        const sp<StubProducer> own = new StubProducer();
        ASSERT_TRUE(service->setSurface(ClientType::STREAM, own).isOk());
        const Return<StubDesktop::SurfaceV1> back = service->getSurface(ClientType::STREAM);
        EXPECT_EQ(own.get(), static_cast<StubDesktop::SurfaceV1>(back).get());
    });
}

TEST_F(HandleTransferTest, ReleasesAnObjectThatNobodyHoldsAnyMore) {
    runClient([](const Desktop& service) {
        sp<StubProducer> own = new StubProducer();
        const ::android::wp<StubProducer> weak = own;
        ASSERT_TRUE(service->setSurface(ClientType::STREAM, own).isOk());
        own = nullptr;
        EXPECT_NE(nullptr, weak.promote()) << "the service holds it";
        ASSERT_TRUE(service->setSurface(ClientType::STREAM, nullptr).isOk());
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (weak.promote() != nullptr && std::chrono::steady_clock::now() < end) {
            EXPECT_TRUE(service->ping().isOk());
        }
        EXPECT_EQ(nullptr, weak.promote());
    });
}

/** Counts what it is told. */
class CountingListener : public IProducerListener {
  public:
    Return<void> onBufferReleased() override {
        std::lock_guard<std::mutex> guard(mLock);
        ++mReleased;
        mChanged.notify_all();
        return Void();
    }
    Return<bool> needsReleaseNotify() override { return true; }

    bool waitForReleases(int count) {
        std::unique_lock<std::mutex> guard(mLock);
        return mChanged.wait_for(guard, std::chrono::seconds(30),
                                 [&] { return mReleased == count; });
    }

  private:
    std::mutex mLock;
    std::condition_variable mChanged;
    int mReleased = 0;
};

TEST_F(HandleTransferTest, CallsAListenerWithAndWithoutWaitingForIt) {
    runClient([](Line&) {
        const sp<CountingListener> listener = new CountingListener();
        bool needsNotify = false;
        EXPECT_TRUE(producer()
                            ->connect(listener, 2, false,
                                      [&](int32_t, const auto& output) {
                                          needsNotify = output.bufferReplaced;
                                      })
                            .isOk());
        EXPECT_TRUE(needsNotify);
        EXPECT_TRUE(listener->waitForReleases(3));
    });
}

TEST_F(HandleTransferTest, WritesADebugDumpToTheCallersDescriptor) {
    mServer.reset();
    struct Dumping : StubDesktop {
        Return<void> debug(const hidl_handle& handle,
                           const ::android::hardware::hidl_vec<hidl_string>& options) override {
            for (const hidl_string& option : options) {
                dprintf(handle->data[0], "%s.", option.c_str());
            }
            return Void();
        }
    };
    serve<Dumping>();
    runClient([](const Desktop& service) {
        const hidl_handle target = handleOf({memory("")});
        EXPECT_TRUE(service->debug(target, {"one", "", "three"}).isOk());
        EXPECT_EQ("one..three.", contentsOf(target->data[0]));
    });
}

}  // namespace
}  // namespace korvane::test
