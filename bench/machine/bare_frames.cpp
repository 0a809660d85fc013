// SPDX-License-Identifier: Apache-2.0
// bare_frames NODE FOURCC WIDTH HEIGHT BYTES: streams what a camera in another process draws
// through the UVC gadget's node, forever, at thirty frames a second. There is nothing here but what
// every daemon between the two needs: two binder calls a frame, the size of the buffer queue's,
// with hand-written commands; shared memory; one copy, or for YUYV one conversion; a thread that
// takes back buffers. BYTES is a JPEG's size. The camera is a child of this program and the second
// process of that name.

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <stdexcept>
#include <thread>
#include <vector>

#include <linux/videodev2.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <unistd.h>

#include "BareGadget.h"
#include "daemon/BareBinder.h"
#include "uvc/YuyvConverter.h"

namespace korvane::bench {
namespace {

namespace service = hardware::camera::desktop::V2_0::implementation;

constexpr uint32_t kSlots = 4;
constexpr uint32_t kDequeue = 1, kQueue = 2;
// About the size of the buffer queue's calls and replies, with their buffers.
constexpr size_t kCallBytes = 256, kReplyBytes = 256;
constexpr int64_t kBeatNs = 1000000000 / 30;

/** Frames in memory shared by both processes. */
class SharedFrames {
  public:
    SharedFrames(const BareFormat& format, size_t jpegBytes)
        : mFormat(format),
          mBytes(format.fourcc == V4L2_PIX_FMT_YUYV ? size_t{format.width} * format.height * 3 / 2
                                                    : jpegBytes) {
        void* const memory = mmap(nullptr, kSlots * mBytes, PROT_READ | PROT_WRITE,
                                  MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED) throw std::runtime_error("no shared memory");
        mMemory = static_cast<uint8_t*>(memory);
    }

    void draw(uint32_t slot, uint32_t frame) { memset(at(slot), static_cast<int>(frame), mBytes); }

    /** Copies or converts a frame into one of the node's buffers. */
    size_t move(uint32_t slot, uint8_t* out, size_t room) {
        if (mFormat.fourcc == V4L2_PIX_FMT_YUYV) return convert(slot, out);
        const size_t size = std::min(mBytes, room);
        memcpy(out, at(slot), size);
        return size;
    }

  private:
    uint8_t* at(uint32_t slot) { return mMemory + (slot % kSlots) * mBytes; }

    size_t convert(uint32_t slot, uint8_t* out) {
        const size_t pixels = size_t{mFormat.width} * mFormat.height;
        android_ycbcr planes = {};
        planes.y = at(slot);
        planes.cb = at(slot) + pixels;
        planes.cr = at(slot) + pixels + 1;
        planes.ystride = mFormat.width;
        planes.cstride = mFormat.width;
        planes.chroma_step = 2;
        mConverter.convert(planes, mFormat.width, mFormat.height, out);
        return 2 * pixels;
    }

    const BareFormat mFormat;
    const size_t mBytes;
    uint8_t* mMemory = nullptr;
    service::YuyvConverter mConverter;
};

void waitUntil(int64_t ns) {
    const timespec time = {ns / 1000000000, ns % 1000000000};
    clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &time, nullptr);
}

[[noreturn]] void drawFrames(SharedFrames& frames) {
    BareBinder binder;
    std::vector<uint8_t> text(kCallBytes);
    timespec start;
    clock_gettime(CLOCK_MONOTONIC, &start);
    int64_t beat = int64_t{start.tv_sec} * 1000000000 + start.tv_nsec;
    for (uint32_t frame = 1;; ++frame, beat += kBeatNs) {
        waitUntil(beat);
        uint32_t slot = 0, queued = 0;
        binder.call(kDequeue, text, &slot, sizeof(slot));
        frames.draw(slot, frame);
        memcpy(text.data(), &slot, sizeof(slot));
        binder.call(kQueue, text, &queued, sizeof(queued));
    }
}

[[noreturn]] void serveFrames(BareBinder& binder, SharedFrames& frames, BareGadget& gadget) {
    std::vector<uint8_t> reply(kReplyBytes);
    uint32_t next = 0;
    const auto answer = [&](uint32_t code, const void* data, size_t size) -> const auto& {
        uint32_t said = 0;
        if (code == kDequeue) {
            said = next++ % kSlots;
        } else if (size >= sizeof(uint32_t)) {
            uint32_t slot;
            memcpy(&slot, data, sizeof(slot));
            said = gadget.queue(
                    [&](uint8_t* out, size_t room) { return frames.move(slot, out, room); });
        }
        memcpy(reply.data(), &said, sizeof(said));
        return reply;
    };
    binder.serve(answer);
}

/** The camera, in a process of its own that ends with this one; it waits for a byte from `go`. */
void startCamera(SharedFrames& frames, int go) {
    if (fork() != 0) return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    char byte;
    if (read(go, &byte, 1) == 1) drawFrames(frames);
    _exit(1);
}

[[noreturn]] void run(char** arguments) {
    BareFormat format;
    memcpy(&format.fourcc, arguments[1], sizeof(format.fourcc));
    format.width = strtoul(arguments[2], nullptr, 10);
    format.height = strtoul(arguments[3], nullptr, 10);
    SharedFrames frames(format, strtoul(arguments[4], nullptr, 10));
    int go[2];
    if (pipe(go) != 0) throw std::runtime_error("no pipe");
    startCamera(frames, go[0]);
    BareGadget gadget(arguments[0], format);
    std::thread taker([&] {
        pthread_setname_np(pthread_self(), "poll_thread");
        gadget.run();
    });
    BareBinder binder;
    binder.becomeContextManager();
    if (write(go[1], "", 1) != 1) throw std::runtime_error("no camera");
    serveFrames(binder, frames, gadget);
}

}  // namespace
}  // namespace korvane::bench

int main(int argc, char** argv) {
    if (argc != 6 || strlen(argv[2]) != 4) {
        fprintf(stderr, "usage: bare_frames NODE FOURCC WIDTH HEIGHT BYTES\n");
        return 2;
    }
    try {
        korvane::bench::run(argv + 1);
    } catch (const std::exception& failure) {
        fprintf(stderr, "bare_frames: %s\n", failure.what());
        return 1;
    }
}
