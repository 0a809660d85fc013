// SPDX-License-Identifier: Apache-2.0
// A UVC gadget's video node that a test scripts: it maps, it queues, it fails when told to.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <linux/usb/g_uvc.h>
#include <linux/videodev2.h>
#include <sys/select.h>
#include <sys/types.h>

namespace korvane::test {

/** The arguments of an mmap. */
struct KernelMapping {
    size_t length;
    int protection;
    int flags;
    off_t offset;
};

/** One system call that reached a scripted node. */
struct KernelCall {
    /** "open", "close", "mmap", "munmap", or the ioctl's name such as "VIDIOC_QBUF". */
    std::string name;
    /** The descriptor; the new one for "open". -1 if the call has none. */
    int fd;
    /** What the call returned; 0 for an mmap that succeeded. */
    int result;
    /** The errno that it set; 0 if it succeeded. */
    int error;
    /**
     * An ioctl's argument block as passed in by the caller. "open": the flags (int); "mmap": a
     * KernelMapping; "munmap": the length (size_t).
     */
    std::vector<uint8_t> argument;

    /** Whether the argument block is this one, to the byte. */
    template <typename T>
    bool is(const T& block) const {
        const auto* const bytes = reinterpret_cast<const uint8_t*>(&block);
        return std::equal(bytes, bytes + sizeof(T), argument.begin(), argument.end());
    }

    /** The argument block as a T; a block that is too short is padded with zeros. */
    template <typename T>
    T as() const {
        T value = {};
        memcpy(&value, argument.data(), std::min(sizeof(T), argument.size()));
        return value;
    }
};

/**
 * A video node at a path that need not exist. While the object exists, this process's open, close,
 * ioctl, select, mmap, munmap and stat answer for that path and for the descriptors opened from it;
 * for everything else they are the C library's. Several objects with different paths may exist at
 * once, created before or after threads start. Test programs get this by linking
 * `korvane_scripted_kernel`.
 *
 * Unscripted, it behaves like the gadget driver, which one test checks on both:
 *  - VIDIOC_REQBUFS grants what is asked for, up to 32, and returns the count; the buffers are
 *    shared memory of bufferLength() bytes, at page-aligned offsets.
 *  - a mapping is shared, writable and within one buffer.
 *  - VIDIOC_QBUF appends to the queue and keeps a copy of the bytes used (sentFrames()), all bytes
 *    if the caller says 0. It fails with EINVAL for a buffer that doesn't exist, is already
 *    queued, has another type or memory, or has fewer bytes than are used.
 *  - VIDIOC_DQBUF returns the oldest queued buffer that send() (or setAutoSend) has sent, or fails
 *    with EAGAIN; with EINVAL if nothing streams. VIDIOC_STREAMOFF forgets the queue.
 *  - VIDIOC_STREAMON needs buffers. Any call with a buffer type other than video output fails.
 *  - VIDIOC_DQEVENT returns the test's oldest event, or fails with ENOENT.
 *  - `select` finds the node writable if a sent buffer waits or nothing streams, exceptional if an
 *    event waits, and wakes up when either happens. It never finds it readable.
 *  - closing the last descriptor ends the stream and drops everything queued, including events.
 *  - any other ioctl fails with ENOTTY; a descriptor opened before remove() gets ENODEV.
 *
 * All operations may be called from any thread.
 */
class ScriptedKernel {
  public:
    /** Answers one ioctl in place of the node: returns its result, and sets errno if that is -1. */
    using Answer = std::function<int(void* argument)>;

    explicit ScriptedKernel(const std::string& path);
    ~ScriptedKernel();
    ScriptedKernel(const ScriptedKernel&) = delete;
    ScriptedKernel& operator=(const ScriptedKernel&) = delete;

    const std::string& path() const { return mPath; }

    // --- The script ---

    /** What VIDIOC_QUERYCAP reports; "g_uvc" unless set. */
    void setDriver(const std::string& driver);

    /** The driver's length for every buffer requested from now on; 64 KiB unless set. */
    void setBufferLength(uint32_t length);

    /** Makes every mapping work: for a node that isn't a video node. */
    void mapAnything();

    /** Grants this many buffers to whoever asks for any, instead of the number asked for. */
    void setGrant(uint32_t count);

    /**
     * Makes a call fail with error: after `passing` calls of that name that still work, the next
     * `times` of them fail. By name as in KernelCall, or "select", which fails even while it is
     * waiting, whatever it waits for. Several may be set; each counts its own calls.
     */
    void fail(const std::string& name, int error, int passing = 0, int times = 1);

    /**
     * Lets the test answer the next ioctl of that name. Runs with the node locked, so it must not
     * use this object.
     */
    void answerNext(const std::string& name, Answer answer);
    /** The same for every ioctl of that name that answerNext() has no answer for. */
    void answerAll(const std::string& name, Answer answer);

    /** Queues an event; no subscription is needed. */
    void sendEvent(const v4l2_event& event);
    void sendEvent(uint32_t type);
    /** UVC_EVENT_SETUP with this request; values in host order. */
    void sendSetup(uint8_t requestType, uint8_t request, uint16_t value, uint16_t index,
                   uint16_t length);
    /** UVC_EVENT_DATA with these bytes, 60 at most. */
    void sendData(const std::vector<uint8_t>& data);

    /** Sends the oldest queued buffer to the imaginary host; false if none is queued. */
    bool send();
    /** Whether a queued buffer counts as sent at once. */
    void setAutoSend(bool automatic);

    /**
     * Whether VIDIOC_QBUF and VIDIOC_DQBUF leave no trace: they behave as usual, but are neither
     * recorded nor scripted, keep no frame's bytes and allocate nothing, so that only the caller's
     * work is counted or timed.
     */
    void setQuiet(bool quiet);

    /** Unplugs the node: its path is gone, its open descriptors answer ENODEV. */
    void remove();

    // --- What happened ---

    /** Every call so far, oldest first; `select` and `stat` are not recorded. */
    std::vector<KernelCall> calls() const;
    /** Only the names, for comparing an order. */
    std::vector<std::string> callNames() const;
    /** The calls with one name. */
    std::vector<KernelCall> calls(const std::string& name) const;
    /** Forgets the calls so far, but not the node's state. */
    void clearCalls();
    /** Waits until there have been count calls of that name; false after ten seconds. */
    bool waitForCalls(const std::string& name, size_t count) const;

    /** Waits until everything sent has been taken and a thread waits in `select` for more. */
    void waitUntilIdle() const;

    /** The bytes used of every queued buffer, oldest first. */
    std::vector<std::vector<uint8_t>> sentFrames() const;
    /** The responses to the host's requests, oldest first. */
    std::vector<uvc_request_data> responses() const;
    /** The node's own view of a buffer's bytes, all bufferLength() of them. */
    std::vector<uint8_t> bufferContents(uint32_t index) const;
    /** Overwrites all buffers with one value. */
    void fillBuffers(uint8_t value);

    /** The node's descriptors and mappings that the code under test has not released. */
    size_t openDescriptors() const;
    size_t openMappings() const;
    bool isStreaming() const;

    /** The interposed calls. Not for tests. */
    struct Hooks;

  private:
    friend struct Hooks;
    struct Failure {
        int error;
        int passing;
        int times;
    };

    int ioctl_l(int fd, unsigned long request, void* argument);
    int answer_l(const std::string& name, unsigned long request, void* argument);
    int behave_l(unsigned long request, void* argument);
    int queryCapability_l(v4l2_capability* capability) const;
    int subscribe_l(const v4l2_event_subscription& subscription) const;
    int requestBuffers_l(const v4l2_requestbuffers& request);
    bool hasBuffer_l(const v4l2_buffer& buffer) const;
    int queryBuffer_l(v4l2_buffer* buffer) const;
    /** The errno with which the driver refuses a mapping, otherwise 0. */
    int refuseMapping_l(const KernelMapping& mapping) const;
    bool isQuiet_l(unsigned long request) const;
    /** Must be called when events or sent buffers have been added or taken. */
    void countUntaken_l();
    int queueBuffer_l(const v4l2_buffer& buffer);
    void dropQueue_l();
    int dequeueBuffer_l(v4l2_buffer* buffer);
    int dequeueEvent_l(v4l2_event* event);
    int setStreaming_l(uint32_t type, bool streaming);
    void forget_l();
    /** Counts a call of that name; true if the script wants it to fail. */
    bool failsNow_l(const std::string& name, int* error);
    void record_l(const std::string& name, int fd, int result, int error,
                  std::vector<uint8_t> argument);
    off_t offsetOf_l(uint32_t index) const;
    std::vector<uint8_t> read_l(uint32_t index, size_t size) const;

    const std::string mPath;
    const int mMemory;  // what the buffers map

    std::string mDriver = "g_uvc";
    std::map<std::string, std::vector<Failure>> mFailures;
    std::map<std::string, std::deque<Answer>> mAnswers;
    std::map<std::string, Answer> mStandingAnswers;
    bool mPresent = true;

    std::vector<KernelCall> mCalls;
    std::set<int> mDescriptors;
    std::map<void*, size_t> mMappings;

    uint32_t mBufferLength = 65536;
    std::optional<uint32_t> mGrant;
    std::vector<v4l2_buffer> mBuffers;  // as VIDIOC_QUERYBUF describes them
    bool mStreaming = false;
    bool mAutoSend = false;
    bool mQuiet = false;
    bool mMapsAnything = false;
    std::deque<v4l2_event> mEvents;
    std::vector<uint32_t> mQueued;
    std::vector<uint32_t> mSent;
    std::atomic<size_t> mUntaken{0};  // the number of entries in mEvents and mSent
    std::vector<std::vector<uint8_t>> mFrames;
};

}  // namespace korvane::test
