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

/** How pictures are turned on their way from the source to the host; mirrored after that. */
struct Turn {
    int degrees = 0;  // clockwise: 0, 90, 180 or 270
    bool mirrored = false;

    bool isNone() const { return degrees == 0 && !mirrored; }
};

/**
 * Whatever comes out of a description (raw video of any kind, JPEG or anything else that GStreamer
 * decodes) is brought into a format, size and rate. JPEG files that are as the stream wants them
 * are not touched, and raw video is converted only where it has to be. Used by one thread;
 * GStreamer puts it together on threads of its own.
 */
class GstreamerPipeline {
  public:
    /** What is wrong with a description in the language of gst-launch-1.0; empty if nothing is. */
    static std::string check(const std::string& description);

    /** `mayPass` says whether JPEG files may be left as they are. */
    GstreamerPipeline(const PictureFormat& format, const Turn& turn, bool mayPass);
    ~GstreamerPipeline();
    GstreamerPipeline(const GstreamerPipeline&) = delete;
    GstreamerPipeline& operator=(const GstreamerPipeline&) = delete;

    /** Builds it from a description; returns what is wrong with that, or an empty text. */
    std::string build(const std::string& description);

    /** Lets it run; false if that failed at once. */
    bool play();

    /** The latest picture; null if there is none for a while. */
    GstreamerOwned<GstSample> pull();

    /** Whether the source has ended. */
    bool hasEnded() const { return gst_app_sink_is_eos(mSink) != FALSE; }

    /** Whether what pull() gives is the source's own JPEG files. */
    bool isPassing() const { return mPassing; }

    /** What is done to the pictures, in words; empty before there is one. */
    std::string handling() const;

    /** The oldest error that was not taken yet, null if there is none. */
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
    std::string mWhyNotPassed;  // of the JPEG files that are decoded; the pipeline's threads use it
    GstreamerOwned<GstElement> mPipeline;
    GstAppSink* mSink = nullptr;  // the pipeline's
};

}  // namespace korvane::camera
