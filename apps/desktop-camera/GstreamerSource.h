// SPDX-License-Identifier: Apache-2.0
// Any GStreamer pipeline as a source of pictures.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include <gst/gst.h>

#include "FrameSource.h"
#include "GstreamerPipeline.h"

namespace korvane::camera {

/**
 * Runs a pipeline for as long as a stream lasts and takes its latest picture for each frame. The
 * pipeline ends with its source, or when its JPEG files turn out to be too large; they are
 * re-encoded from then on.
 */
class GstreamerSource : public FrameSource {
  public:
    /** Returns the description for a start, or an empty text and why there is none. */
    using Describe = std::function<std::string(std::string* why)>;

    /** `description` in gst-launch-1.0 syntax, without a sink. */
    explicit GstreamerSource(const std::string& description, const Turn& turn = {});

    /** Asks for the description at each start. */
    GstreamerSource(Describe describe, const Turn& turn);

    bool start(const PictureFormat& format) override;
    bool startAgain() override;
    Result draw(const testcard::FrameStamp& stamp, const PictureMemory& memory,
                size_t* bytes) override;
    void stop() override;
    Trouble trouble() const override { return mTrouble; }
    std::string handling() const override;

  private:
    bool open();
    Result copySample(GstSample* sample, const PictureMemory& memory, size_t* bytes);
    Result copyFile(GstSample* sample, const PictureMemory& memory, size_t* bytes);
    Result copyPlanes(GstSample* sample, const PictureMemory& memory, size_t* bytes);
    Result handleNoSample();
    Result encodeAgain(size_t bytes, size_t limit);
    void noteError(GstMessage& message);
    void note(testcard::Notice notice, const std::string& text);

    const Describe mDescribe;
    const Turn mTurn;
    PictureFormat mFormat;
    bool mMayPass = true;               // whether the source's JPEG files fit, as far as is known
    bool mGavePicture = false;          // since the pipeline was built
    GstreamerOwned<GstMessage> mError;  // the pipeline's error, once the source has failed
    Trouble mTrouble;                   // NONE once there has been a picture
    std::unique_ptr<GstreamerPipeline> mPipeline;
};

}  // namespace korvane::camera
