// SPDX-License-Identifier: Apache-2.0
// Attacks on the stream's queue.
#include "Queue.h"

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include <gui/IProducerListener.h>
#include <system/window.h>
#include <utils/NativeHandle.h>

#include "Scenario.h"

namespace korvane::hostile {

using android::Fence;
using android::GraphicBuffer;
using android::IGraphicBufferProducer;
using android::NativeHandle;
using android::sp;
using android::status_t;

namespace {

constexpr int kApi = NATIVE_WINDOW_API_CAMERA;

/** Asks to be told of everything. */
struct Listener : android::BnProducerListener {
    void onBufferReleased() override {}
    bool needsReleaseNotify() override { return true; }
    void onBuffersDiscarded(const std::vector<int32_t>&) override {}
};

status_t connect(const sp<IGraphicBufferProducer>& queue) {
    IGraphicBufferProducer::QueueBufferOutput output;
    return queue->connect(new Listener(), kApi, false, &output);
}

/** A sideband stream with this many descriptors. */
sp<NativeHandle> streamOf(int descriptors) {
    native_handle_t* const handle = native_handle_create(descriptors, 0);
    for (int i = 0; i < descriptors; i++) {
        handle->data[i] = open("/dev/null", O_RDONLY | O_CLOEXEC);
    }
    return NativeHandle::create(handle, true);
}

}  // namespace

/** Takes 64 MB buffers until the queue has no more, writes to them, and stays. */
bool fillTheQueue(const std::string&) {
    constexpr uint32_t kSide = 4096;
    constexpr int kMost = 10;
    const Service desktop = service();
    StreamWatch watch(desktop);
    say("registered");
    watch.waitForStart();
    if (!createSurface(desktop)) return false;
    const sp<IGraphicBufferProducer> queue = queueOf(desktop);
    if (queue == nullptr || connect(queue) != android::OK) return wrong("can't connect");
    queue->setMaxDequeuedBufferCount(kMost);
    std::vector<sp<GraphicBuffer>> buffers;
    status_t status = android::OK;
    while (static_cast<int>(buffers.size()) < kMost) {
        int slot = -1;
        sp<Fence> fence;
        status = queue->dequeueBuffer(&slot, &fence, kSide, kSide, HAL_PIXEL_FORMAT_RGBA_8888,
                                      kUsage, nullptr, nullptr);
        if (status < 0) break;
        buffers.emplace_back();
        queue->requestBuffer(slot, &buffers.back());
        void* pixels = nullptr;
        // A machine of this size can bear six; the others stay unwritten.
        if (buffers.size() <= 6 && buffers.back()->lock(kUsage, &pixels) == android::OK) {
            memset(pixels, 1, size_t{kSide} * kSide * 4);
        }
    }
    say("buffers " + std::to_string(buffers.size()) + ", then status " + std::to_string(status));
    if (buffers.size() != 8 || status != android::NO_MEMORY)
        return wrong("8, then NO_MEMORY (-12)");
    hold("holding");
}

/** Hands the queue one sideband stream after another, even once the queue is gone. */
bool keepSideband(const std::string&) {
    const Service desktop = service();
    StreamWatch watch(desktop);
    say("registered");
    watch.waitForStart();
    if (!createSurface(desktop)) return false;
    const sp<IGraphicBufferProducer> queue = queueOf(desktop);
    if (queue == nullptr || connect(queue) != android::OK) return wrong("can't connect");
    for (int i = 0; i < 10; i++) {
        const status_t status = queue->setSidebandStream(streamOf(100));
        if (status != android::OK) return wrong("a live queue says " + std::to_string(status));
    }
    say("the live queue has a hundred");
    while (queue->setSidebandStream(streamOf(100)) == android::OK) usleep(100000);
    const status_t status = queue->setSidebandStream(streamOf(400));
    if (status != android::NO_INIT) {
        return wrong("the queue that is no more says " + std::to_string(status));
    }
    hold("refused");
}

/**
 * Queues frames whose fences never signal, as this kind of producer: of everything that comes back,
 * it would only have to wait for its own drawing. It stays connected until the stream ends, since a
 * frame whose fence comes back later ends the service, as it must.
 */
bool neverSignal(const std::string& api) {
    const Service desktop = service();
    StreamWatch watch(desktop);
    say("registered");
    watch.waitForStart();
    if (!createSurface(desktop)) return false;
    const sp<IGraphicBufferProducer> queue = queueOf(desktop);
    IGraphicBufferProducer::QueueBufferOutput output;
    if (queue == nullptr || queue->connect(new Listener(), static_cast<int>(number(api)), false,
                                           &output) != android::OK) {
        return wrong("can't connect");
    }
    queue->setDequeueTimeout(100000000);
    status_t status = android::OK;
    for (int frames = 0; status == android::OK || status == android::TIMED_OUT;) {
        int slot = -1;
        sp<Fence> fence;
        status = queue->dequeueBuffer(&slot, &fence, kBlobSize, 1, HAL_PIXEL_FORMAT_BLOB, kUsage,
                                      nullptr, nullptr);
        if (status < 0) continue;
        sp<GraphicBuffer> buffer;
        queue->requestBuffer(slot, &buffer);
        say("queueing " + std::to_string(++frames));
        status = queue->queueBuffer(slot, frame(fenceForEver()), &output);
    }
    say("the queue says " + std::to_string(status));
    if (status != android::NO_INIT) return wrong("a queue that is no more says NO_INIT (-19)");
    hold("over");
}

namespace {

/** Does whatever can be done with a queue, in random order. */
class Brawler {
  public:
    Brawler(sp<IGraphicBufferProducer> queue, unsigned long seed)
        : mQueue(std::move(queue)), mRandom(seed) {
        // Waiting forever would hold up everyone else, which is not what is tested here.
        mQueue->setDequeueTimeout(0);
    }

    /** One call; false once the queue is gone. */
    bool step() {
        const status_t status = call();
        return status != android::DEAD_OBJECT;
    }

  private:
    int below(int bound) { return std::uniform_int_distribution<int>(0, bound - 1)(mRandom); }
    int someSlot() { return below(8) == 0 ? below(80) - 8 : below(6); }
    sp<Fence> someFence() { return below(4) == 0 ? fenceForEver() : sp<Fence>(Fence::NO_FENCE); }

    /** A buffer of its own, of any size but the stream's. */
    sp<GraphicBuffer> someBuffer() {
        static constexpr uint32_t kSizes[] = {1, 16, 640, 4000, 30000};
        const uint32_t width = kSizes[below(5)];
        const uint32_t height = below(2) == 0 ? 1 : kSizes[below(4)];
        const bool isBlob = below(2) == 0;
        return new GraphicBuffer(width, isBlob ? 1 : height,
                                 isBlob ? HAL_PIXEL_FORMAT_BLOB : HAL_PIXEL_FORMAT_YCrCb_420_SP, 1,
                                 kUsage);
    }

    status_t dequeue() {
        int slot = -1;
        sp<Fence> fence;
        const bool isPlain = below(2) == 0;
        const status_t status = mQueue->dequeueBuffer(
                &slot, &fence, isPlain ? kBlobSize : static_cast<uint32_t>(below(700)),
                isPlain ? 1 : static_cast<uint32_t>(below(500)),
                isPlain ? HAL_PIXEL_FORMAT_BLOB : below(40), kUsage, nullptr, nullptr);
        sp<GraphicBuffer> buffer;
        if (status >= 0) mQueue->requestBuffer(slot, &buffer);
        return status;
    }

    status_t call() {
        IGraphicBufferProducer::QueueBufferOutput output;
        switch (below(16)) {
            case 0:
                return mQueue->connect(new Listener(), 1 + below(4), below(2) == 0, &output);
            case 1:
                return mQueue->disconnect(below(3) == 0 ? -1 : below(6));
            case 2:
                return mQueue->setMaxDequeuedBufferCount(below(10));
            case 3:
                return mQueue->setAsyncMode(below(2) == 0);
            case 4:
                return mQueue->detachBuffer(someSlot());
            case 5: {
                sp<GraphicBuffer> buffer;
                sp<Fence> fence;
                return mQueue->detachNextBuffer(&buffer, &fence);
            }
            case 6: {
                int slot = -1;
                return mQueue->attachBuffer(&slot, someBuffer());
            }
            case 7:
                return mQueue->cancelBuffer(someSlot(), someFence());
            case 8:
                return mQueue->setDequeueTimeout(below(2) == 0 ? 0 : 50000000);
            case 9:
                return mQueue->setGenerationNumber(static_cast<uint32_t>(below(2)));
            case 10:
            case 11:
            case 12:
                return dequeue();
            default:
                // Without a fence: one that comes back after its slot was discarded ends the
                // daemon, as it must.
                return mQueue->queueBuffer(someSlot(), frame(), &output);
        }
    }

    const sp<IGraphicBufferProducer> mQueue;
    std::mt19937_64 mRandom;
};

}  // namespace

/** Uses the surface of whatever stream is running, in competition with everyone else. */
bool fight(const std::string& seed) {
    constexpr int kRound = 500;
    const Service desktop = service();
    say("waiting");
    sp<IGraphicBufferProducer> queue;
    while ((queue = queueOf(desktop)) == nullptr) usleep(20000);
    Brawler brawler(queue, number(seed));
    for (int calls = 0; brawler.step(); calls++) {
        if (calls % kRound == 0) say("calls " + std::to_string(calls));
    }
    return wrong("the daemon has gone");
}

}  // namespace korvane::hostile
