// SPDX-License-Identifier: Apache-2.0
// soak-host: a USB host that opens its camera window again and again. Each line of standard input
// is one stream, "NODE FOURCC WIDTHxHEIGHT RATE COUNT [SUMS]", each line of standard output its
// result: "ok FIRST LAST SWAPPED", the numbers of the first and the last frame and how many came
// before the one that they follow, or "WRONG: " and why. Every frame is checked: the kernel has
// lost none and found no fault, and the card is readable, in one piece and the next in order. With
// SUMS, a file, nothing is kept in memory: each frame's size and checksum are written there, to be
// compared with the camera's log.
//
// Order is that of the kernel's numbers. Its driver copies frames out of the transfers on several
// processors at once and hands each over when it is done, so that of two frames that end at the
// same time the second may come first.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cinttypes>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <linux/videodev2.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/mman.h>

#include <android-base/unique_fd.h>

#include "testcard/FrameChecker.h"

namespace {

using android::base::unique_fd;
using korvane::testcard::CardReading;
using korvane::testcard::Frame;
using korvane::testcard::Picture;
using korvane::testcard::StripLayout;

constexpr int kBuffers = 16;
/** One second's worth, which is how long a host that shares its processors may be away. */
constexpr int kBuffersOfLong = 32;
/** A stream whose frames aren't kept can have any number of them. */
constexpr int kMostKept = 64;
/** More than the transfers that the driver has under way: a frame that is later than this is lost.
 */
constexpr size_t kMostAhead = 8;
/** A machine that shares its host can be this slow. */
constexpr int kPatienceMs = 30000;

struct Order {
    char node[64] = "";
    char fourcc[5] = "";
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t rate = 0;
    int count = 0;
    char sums[128] = "";

    bool read(const char* line) {
        const int fields = sscanf(line, "%63s %4s %" SCNu32 "x%" SCNu32 " %" SCNu32 " %d %127s",
                                  node, fourcc, &width, &height, &rate, &count, sums);
        return fields >= 6 && rate > 0 && count > 0 && (fields == 7 || count <= kMostKept) &&
               korvane::testcard::formatFromName(fourcc) && StripLayout::forSize(width, height);
    }
};

using Bytes = std::vector<uint8_t>;

/** One stream, from opening the node to closing it. */
class Stream {
  public:
    explicit Stream(const Order& order) : mOrder(order) {}
    ~Stream() {
        for (const auto& [data, size] : mMapped) munmap(data, size);
    }

    /** Empty if all is right. */
    std::string run() {
        if (open() && choose() && map() && begin() && receive() && end()) look();
        return mWrong;
    }

    uint32_t first() const { return mFirst; }
    uint32_t last() const { return mLast; }
    int swapped() const { return mSwapped; }

  private:
    bool wrong(const char* format, ...) __attribute__((format(printf, 2, 3))) {
        char text[200];
        va_list values;
        va_start(values, format);
        vsnprintf(text, sizeof(text), format, values);
        va_end(values);
        if (mWrong.empty()) mWrong = text;
        return false;
    }

    bool call(unsigned long request, void* argument, const char* name) {
        int result;
        do {
            result = ioctl(mNode.get(), request, argument);
        } while (result != 0 && errno == EINTR);
        return result == 0 || wrong("%s: %s", name, strerror(errno));
    }

    bool open() {
        mNode.reset(::open(mOrder.node, O_RDWR | O_CLOEXEC | O_NONBLOCK));
        if (mNode.get() == -1) return wrong("cannot open %s: %s", mOrder.node, strerror(errno));
        if (mOrder.sums[0] == '\0') return true;
        mSums.reset(fopen(mOrder.sums, "we"));
        return mSums != nullptr || wrong("cannot write %s: %s", mOrder.sums, strerror(errno));
    }

    bool choose() {
        const char* name = mOrder.fourcc;
        v4l2_format format = {};
        format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        format.fmt.pix.width = mOrder.width;
        format.fmt.pix.height = mOrder.height;
        format.fmt.pix.pixelformat = v4l2_fourcc(name[0], name[1], name[2], name[3]);
        const v4l2_pix_format asked = format.fmt.pix;
        if (!call(VIDIOC_S_FMT, &format, "S_FMT")) return false;
        const v4l2_pix_format& given = format.fmt.pix;
        if (given.width != asked.width || given.height != asked.height ||
            given.pixelformat != asked.pixelformat) {
            return wrong("another format was given: %ux%u", given.width, given.height);
        }
        v4l2_streamparm parm = {};
        parm.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        parm.parm.capture.timeperframe = {1, mOrder.rate};
        return call(VIDIOC_S_PARM, &parm, "S_PARM");
    }

    bool map() {
        v4l2_requestbuffers buffers = {};
        buffers.count = mSums ? kBuffersOfLong : kBuffers;
        buffers.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        buffers.memory = V4L2_MEMORY_MMAP;
        if (!call(VIDIOC_REQBUFS, &buffers, "REQBUFS")) return false;
        for (uint32_t i = 0; i < buffers.count; i++) {
            v4l2_buffer buffer = bufferAt(i);
            if (!call(VIDIOC_QUERYBUF, &buffer, "QUERYBUF")) return false;
            void* data = mmap(nullptr, buffer.length, PROT_READ, MAP_SHARED, mNode.get(),
                              buffer.m.offset);
            if (data == MAP_FAILED) return wrong("cannot map a buffer: %s", strerror(errno));
            mMapped.emplace_back(static_cast<uint8_t*>(data), buffer.length);
            if (!call(VIDIOC_QBUF, &buffer, "QBUF")) return false;
        }
        return true;
    }

    static v4l2_buffer bufferAt(uint32_t index) {
        v4l2_buffer buffer = {};
        buffer.index = index;
        buffer.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        buffer.memory = V4L2_MEMORY_MMAP;
        return buffer;
    }

    bool begin() {
        int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        return call(VIDIOC_STREAMON, &type, "STREAMON");
    }

    bool receive() {
        while (mInOrder < mOrder.count) {
            pollfd node = {mNode.get(), POLLIN, 0};
            if (poll(&node, 1, kPatienceMs) != 1) {
                return wrong("frame %d of %d did not come within %d s", mInOrder + 1, mOrder.count,
                             kPatienceMs / 1000);
            }
            v4l2_buffer buffer = bufferAt(0);
            if (!call(VIDIOC_DQBUF, &buffer, "DQBUF")) return false;
            if (!take(buffer) || !call(VIDIOC_QBUF, &buffer, "QBUF")) return false;
        }
        return true;
    }

    bool take(const v4l2_buffer& buffer) {
        if ((buffer.flags & V4L2_BUF_FLAG_ERROR) != 0) {
            return wrong("frame %d of %d is damaged: %u bytes", mInOrder + 1, mOrder.count,
                         buffer.bytesused);
        }
        // The host may have lost some itself, if it was away too long to give the kernel buffers.
        const int64_t awayMs = millisecondsSince(&mLatest);
        if (mNext) mLongestMs = std::max(mLongestMs, awayMs);
        if (!mNext) mNext = buffer.sequence;
        const uint8_t* data = mMapped[buffer.index].first;
        mAhead.emplace(buffer.sequence, mSums ? sumOf(data, buffer.bytesused)
                                              : Bytes(data, data + buffer.bytesused));
        if (buffer.sequence != *mNext) mSwapped++;
        putInOrder();
        return mAhead.size() < kMostAhead ||
               wrong("frame %d of %d is lost; the host was away for up to %" PRId64 " ms",
                     mInOrder + 1, mOrder.count, mLongestMs);
    }

    /** A line about a frame, in place of its bytes. */
    static Bytes sumOf(const uint8_t* data, size_t size) {
        char line[32];
        const int length = snprintf(line, sizeof(line), "%zu %08x\n", size,
                                    korvane::testcard::crc32Of(data, size));
        return Bytes(line, line + length);
    }

    void putInOrder() {
        for (auto next = mAhead.find(*mNext); next != mAhead.end() && mInOrder < mOrder.count;
             next = mAhead.find(*mNext)) {
            if (mSums) {
                fwrite(next->second.data(), 1, next->second.size(), mSums.get());
            } else {
                mFrames.push_back(std::move(next->second));
            }
            mAhead.erase(next);
            ++*mNext;
            mInOrder++;
        }
    }

    /** Also restarts the count from now. */
    static int64_t millisecondsSince(std::chrono::steady_clock::time_point* begin) {
        const auto now = std::chrono::steady_clock::now();
        const auto passed = now - std::exchange(*begin, now);
        return std::chrono::duration_cast<std::chrono::milliseconds>(passed).count();
    }

    bool end() {
        int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        return call(VIDIOC_STREAMOFF, &type, "STREAMOFF");
    }

    void look() {
        const auto format = *korvane::testcard::formatFromName(mOrder.fourcc);
        const auto layout = *StripLayout::forSize(mOrder.width, mOrder.height);
        for (const Bytes& bytes : mFrames) {
            Picture picture;
            std::string error;
            if (!decodeFrame(Frame{bytes.data(), bytes.size()}, format, mOrder.width, mOrder.height,
                             &picture, &error)) {
                wrong("a frame after %u can't be decoded: %s", mLast, error.c_str());
                return;
            }
            if (!isNext(readCard(layout, picture.luma()))) return;
        }
    }

    bool isNext(const CardReading& card) {
        if (!card.readable()) return wrong("the frame after %u can't be read", mLast);
        if (card.torn()) return wrong("the frame after %u is torn", mLast);
        const uint32_t number = card.top->number;
        if (mLast != 0 && number != mLast + 1) return wrong("frame %u after %u", number, mLast);
        if (mFirst == 0) mFirst = number;
        mLast = number;
        return true;
    }

    struct Close {
        void operator()(FILE* file) const { fclose(file); }
    };

    const Order& mOrder;
    unique_fd mNode;
    std::unique_ptr<FILE, Close> mSums;
    std::vector<std::pair<uint8_t*, size_t>> mMapped;
    std::vector<Bytes> mFrames;
    std::map<uint32_t, Bytes> mAhead;  // by the kernel's number, those that wait for another
    std::optional<uint32_t> mNext;     // the kernel's number of the next in order
    int mInOrder = 0;
    int mSwapped = 0;
    std::chrono::steady_clock::time_point mLatest;
    int64_t mLongestMs = 0;
    uint32_t mFirst = 0;
    uint32_t mLast = 0;
    std::string mWrong;
};

}  // namespace

int main(int argc, char**) {
    if (argc != 1) {
        fprintf(stderr, "soak-host: takes no arguments, but streams on standard input\n");
        return 2;
    }
    char line[512];
    while (fgets(line, sizeof(line), stdin) != nullptr) {
        Order order;
        if (!order.read(line)) {
            fprintf(stderr,
                    "soak-host: not 'NODE FOURCC WIDTHxHEIGHT RATE COUNT [SUMS]', with a COUNT of "
                    "%d at most without SUMS: %s",
                    kMostKept, line);
            return 2;
        }
        Stream stream(order);
        const std::string wrong = stream.run();
        if (wrong.empty()) {
            printf("ok %u %u %d\n", stream.first(), stream.last(), stream.swapped());
        } else {
            printf("WRONG: %s\n", wrong.c_str());
        }
        fflush(stdout);
    }
    return 0;
}
