// SPDX-License-Identifier: Apache-2.0
// The configuration of the gadget's UVC function, and what the host has selected from it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <linux/usb/video.h>

#include "uvc/UvcFunctionConfig.h"

namespace korvane::hardware::camera::desktop::V2_0::implementation {

/**
 * Reads the function's configuration once, when constructed, and from it answers the host's probe
 * and commit requests. Later changes in configfs are not seen.
 *
 * The selection (format, frame, interval) exists twice, for probe and for commit; every operation
 * uses the one that setControlSelector() made active last. A new object has probe active and the
 * first frame of the first format selected in both, at an interval of 666666.
 *
 * Not thread-safe: the owner's lock guards it. An index that the configuration doesn't have, as
 * when there is no format at all, reads as a mode of zeros.
 */
class UvcConfig {
  public:
    /** Reads configfs; an attribute that is no number ends the process, after a log line. */
    UvcConfig();
    virtual ~UvcConfig();

    /**
     * Makes the probe (1) or commit (2) selection active. Any other selector is logged, and counts
     * as probe.
     */
    void setControlSelector(int32_t selector);
    /** The last selector given to setControlSelector(); 0 before the first. */
    int32_t getControlSelector() const { return mControlSelector; }

    /**
     * Stores the host's choice in the active selection.
     *
     * @param format host's format index, from 1
     * @param frame host's frame index, from 1
     * @param interval in units of 100 ns; taken as it is, listed or not
     * @return false, with nothing changed, when there is no such format or frame
     */
    [[nodiscard]] bool setVideoStreamConfig(int32_t format, int32_t frame, uint32_t interval);

    /** Of the selected frame, in pixels. */
    uint32_t getWidth() const;
    uint32_t getHeight() const;
    /** Selected, in units of 100 ns. */
    uint32_t getFrameInterval() const;
    /** V4L2 code of the selected format; 0 without formats. */
    uint32_t getFormat() const;
    /** The code as four characters ("NV12", "YUYV", "MJPG"); empty without formats. */
    std::string getFormatName() const;
    /** The UVC version of the function's control header, binary-coded: 336 (0x150) is UVC 1.5. */
    uint32_t getBcdUVC() const { return mBcdUVC; }

    // The fill operations write the 34 bytes up to bMaxVersion, and nothing after them.

    /** The selected format's smallest frame at the last interval listed for it. */
    void fillMinCtrl(uvc_streaming_control* ctrl) const;
    /** The same as the minimum. */
    void fillDefaultCtrl(uvc_streaming_control* ctrl) const { fillMinCtrl(ctrl); }
    /**
     * As many frames as the first format has, and the selected format's frame of that number at the
     * first interval listed for it; its size and interval are 0 where the format has fewer.
     */
    void fillMaxCtrl(uvc_streaming_control* ctrl) const;
    /** The selection itself. */
    void fillCurCtrl(uvc_streaming_control* ctrl) const;

    /** The main fields in one line, for the log. */
    static std::string ctrlValsToString(const uvc_streaming_control* ctrl);

  private:
    void buildDataStruct();
    const uvc_function_config_format& selectedFormat() const;
    const uvc_function_config_frame& selectedFrame() const;
    void fillCommon(uvc_streaming_control* ctrl) const;

    uint32_t mStreamingInterval = 0;
    uint32_t mStreamingMaxBurst = 0;
    uint32_t mStreamingMaxPacket = 0;
    std::vector<uvc_function_config_format> mFormats;
    int32_t mControlSelector = 0;
    int32_t mActiveSlot = 0;
    // Positions from 0, one for each selection: probe, commit.
    int32_t mFormatIndex[2] = {0, 0};
    int32_t mFrameIndex[2] = {0, 0};
    uint32_t mFrameInterval[2] = {666666, 666666};
    uint32_t mBcdUVC = 0;
};

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
