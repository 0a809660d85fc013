// SPDX-License-Identifier: Apache-2.0
// One-call wrappers around the V4L2 ioctls that the UVC gadget needs.
#pragma once

#include <cstdint>

#include <linux/videodev2.h>

namespace korvane::hardware::camera::desktop::V2_0::implementation {

/**
 * A V4L2 node without state of its own: the descriptor, the buffer type and the name come from the
 * subclass.
 *
 * Each operation asks the subclass for the descriptor first, then for the buffer type if it needs
 * that, issues exactly one ioctl, never retries, and returns the ioctl's own result: -1 with errno
 * set on failure, which it also logs. It takes no lock; callers on several threads bring their own.
 */
class V4l2CtrlBase {
  public:
    virtual ~V4l2CtrlBase() = default;

    /** The path of the node, for as long as the object lives. */
    virtual const char* getV4l2DevName() = 0;
    /** A v4l2_buf_type. */
    virtual uint32_t getV4l2BufferType() = 0;
    /** The open descriptor of the node, still owned by the subclass; -1 while it is closed. */
    virtual int getV4l2DeviceFd() = 0;

    /** Sets fmt, which the caller has filled; the driver may change it. */
    [[nodiscard]] int32_t setFormat(v4l2_format* fmt);
    /** Starts streaming of the buffer type. */
    [[nodiscard]] int32_t streamOn();
    /** Stops streaming of the buffer type. */
    [[nodiscard]] int32_t streamOff();
    /** Subscribes to the events of one type. */
    [[nodiscard]] int32_t subscribe(int type);
    /** Takes the oldest pending event. */
    [[nodiscard]] int32_t dqevent(v4l2_event* ev);
    /**
     * Asks for count buffers, or frees all of them when count is 0.
     *
     * @return the driver's answer, which for a UVC gadget is the number of buffers granted
     */
    [[nodiscard]] int32_t requestBuffer(unsigned int count, v4l2_memory memory);
    /** Fills buf; the caller has set its type, memory and index. */
    [[nodiscard]] int32_t queryBuffer(v4l2_buffer* buf);
    /** Hands buf, filled by the caller, to the driver. */
    [[nodiscard]] int32_t queueBuffer(v4l2_buffer* buf);
    /** Takes a buffer that the driver has finished with; the caller has set type and memory. */
    [[nodiscard]] int32_t dequeBuffer(v4l2_buffer* buf);

  protected:
    /** An ioctl has failed and is about to be logged. Must leave errno alone; may count it. */
    virtual void onFailure() {}

  private:
    [[gnu::format(printf, 4, 0)]] int32_t control(int node, unsigned long request,
                                                  const char* failure, void* argument);
};

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
