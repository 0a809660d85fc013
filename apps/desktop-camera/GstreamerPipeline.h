// SPDX-License-Identifier: Apache-2.0
// A GStreamer pipeline that ends in pictures of a stream's format.
#pragma once

#include <atomic>
#include <mutex>
#include <string>

#include <android-base/thread_annotations.h>
#include <gst/app/gstappsink.h>
#include <gst/gst.h>

#include "GstreamerOwned.h"
#include "PictureFormat.h"

namespace korvane::camera {

/** How pictures are rotated on the way from the source to the host; mirroring comes after that. */
struct Turn {
    int degrees = 0;  // clockwise: 0, 90, 180 or 270
    bool mirrored = false;

    bool isNone() const { return degrees == 0 && !mirrored; }
};

/**
 * Whatever a description produces (raw video of any kind, JPEG or anything else that GStreamer
 * decodes) is converted to one format, size and rate. JPEG files that already suit the stream are
 * passed through, and raw video is converted only where necessary. Used by one thread; GStreamer
 * builds it on threads of its own.
 */
class GstreamerPipeline {
  public:
    /** What is wrong with a description in gst-launch-1.0 syntax; empty if nothing is. */
    static std::string check(const std::string& description);

    /** `mayPass` says whether JPEG files may be passed through. */
    GstreamerPipeline(const PictureFormat& format, const Turn& turn, bool mayPass);
    ~GstreamerPipeline();
    GstreamerPipeline(const GstreamerPipeline&) = delete;
    GstreamerPipeline& operator=(const GstreamerPipeline&) = delete;

    /** Builds it from a description; returns what is wrong with that, or an empty text. */
    std::string build(const std::string& description);

    /** Starts it; false if that failed at once. */
    bool play();

    /** The latest picture; null if none arrives for a while. */
    GstreamerOwned<GstSample> pull();

    /** Whether the source has ended. */
    bool hasEnded() const { return gst_app_sink_is_eos(mSink) != FALSE; }

    /** Whether pull() returns the source's own JPEG files. */
    bool isPassing() const { return mPassing; }

    /** How the pictures are processed, in words; empty before the first one. */
    std::string handling() const;

    /** The oldest error not yet taken, null if there is none. */
    GstreamerOwned<GstMessage> takeError();

  private:
    static gboolean onContinue(GstElement* decoder, GstPad* pad, GstCaps* caps, gpointer self);
    static void onPad(GstElement* decoder, GstPad* pad, gpointer self);

    bool addSink();
    void preferStreamsFormat(GstElement* decoder) const;
    std::string preferredCaps() const;
    bool passes(const GstStructure* picture);
    void connect(GstPad* pad, const GstStructure* picture);
    void convert(GstPad* pad);
    std::string conversion() const;
    std::string describe(const GstStructure* picture) const;
    void say(const GstStructure* picture);

    const PictureFormat mFormat;
    const Turn mTurn;
    const bool mMayPass;
    std::atomic<bool> mPassing{false};
    mutable std::mutex mLock;
    std::string mHandling GUARDED_BY(mLock);
    std::string mWhyNotPassed;  // why JPEG files are decoded; the pipeline's threads use it
    GstreamerOwned<GstElement> mPipeline;
    GstAppSink* mSink = nullptr;  // owned by the pipeline
};

}  // namespace korvane::camera
