// SPDX-License-Identifier: Apache-2.0
// The UVC gadget's node without the daemon: what any program must do to stream through it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>

#include <linux/usb/g_uvc.h>
#include <linux/usb/video.h>

#include <android-base/thread_annotations.h>
#include <android-base/unique_fd.h>

namespace korvane::bench {

/** What the program streams; it knows no other format. */
struct BareFormat {
    uint32_t fourcc;
    uint32_t width;
    uint32_t height;
};

/**
 * Answers the host on one thread, run(), and takes back sent buffers there; another thread queues
 * frames. Throws if something can't be set up.
 */
class BareGadget {
  public:
    BareGadget(const std::string& node, const BareFormat& format);

    /** Serves the node, forever. */
    [[noreturn]] void run();

    /** Writes a frame to memory of that size and returns its number of bytes. */
    using Fill = std::function<size_t(uint8_t* memory, size_t size)>;

    /** Fills a free buffer and queues it; false if there is none, or no stream. */
    bool queue(const Fill& fill);

  private:
    static constexpr size_t kBuffers = 4;

    struct Buffer {
        uint8_t* memory = nullptr;
        size_t size = 0;
        bool isFree = false;
    };

    void request(unsigned long name, void* argument, const char* what) const;
    void handleEvent();
    void answer(const usb_ctrlrequest& asked);
    void respond(const void* data, int32_t length) const;
    void take(const uvc_request_data& data);
    void setFormat() const;
    void start();
    void stop();
    void takeBack();

    const BareFormat mFormat;
    const android::base::unique_fd mNode;
    uvc_streaming_control mControl = {};
    uint8_t mSelector = 0;

    std::mutex mLock;
    bool mIsStreaming GUARDED_BY(mLock) = false;
    std::array<Buffer, kBuffers> mBuffers GUARDED_BY(mLock);
};

}  // namespace korvane::bench
