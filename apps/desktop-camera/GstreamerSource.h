// SPDX-License-Identifier: Apache-2.0
// Any GStreamer pipeline as a source of pictures.
#pragma once

#include <memory>
#include <string>

#include <gst/app/gstappsink.h>
#include <gst/gst.h>

#include "FrameSource.h"

namespace korvane::camera {

/**
 * Runs a pipeline while a stream lasts and takes its latest picture for each frame. What comes out
 * of the description (raw video of any kind, JPEG or anything else that GStreamer decodes) is
 * brought into the stream's format, size and rate. A source that ends is begun again.
 */
class GstreamerSource : public FrameSource {
  public:
    /** Checks a description; returns what is wrong with it, or an empty text. */
    static std::string check(const std::string& description);

    /** `description` in the language of gst-launch-1.0, without a sink. */
    explicit GstreamerSource(std::string description);
    ~GstreamerSource() override;

    bool start(const PictureFormat& format) override;
    Result draw(const testcard::FrameStamp& stamp, const PictureMemory& memory,
                size_t* bytes) override;
    void stop() override;
    Trouble trouble() const override { return mTrouble; }

  private:
    template <typename T>
    struct Unref {
        void operator()(T* object) const { gst_object_unref(object); }
    };

    static std::string pipelineFor(const std::string& description, const PictureFormat& format);
    Result copySample(GstSample* sample, const PictureMemory& memory, size_t* bytes);
    Result copyFile(GstSample* sample, const PictureMemory& memory, size_t* bytes);
    Result copyPlanes(GstSample* sample, const PictureMemory& memory, size_t* bytes);
    Result handleNoSample();
    bool failed();
    void note(testcard::Notice notice, const std::string& text);

    const std::string mDescription;
    PictureFormat mFormat;
    bool mGavePicture = false;  // since the pipeline was built
    Trouble mTrouble;           // of kNone once there was a picture
    std::unique_ptr<GstElement, Unref<GstElement>> mPipeline;
    std::unique_ptr<GstAppSink, Unref<GstAppSink>> mSink;
};

}  // namespace korvane::camera
