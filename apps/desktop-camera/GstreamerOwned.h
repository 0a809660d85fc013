// SPDX-License-Identifier: Apache-2.0
// Owners for what GStreamer and GLib hand out.
#pragma once

#include <memory>

#include <gst/gst.h>

namespace korvane::camera {

/** Releases the one reference that its owner holds. */
struct GstreamerRelease {
    void operator()(GstBus* bus) const { gst_object_unref(bus); }
    void operator()(GstCaps* caps) const { gst_caps_unref(caps); }
    void operator()(GstElement* element) const { gst_object_unref(element); }
    void operator()(GstMessage* message) const { gst_message_unref(message); }
    void operator()(GstPad* pad) const { gst_object_unref(pad); }
    void operator()(GstSample* sample) const { gst_sample_unref(sample); }
    void operator()(GError* error) const { g_error_free(error); }
    void operator()(gchar* text) const { g_free(text); }
};

template <typename T>
using GstreamerOwned = std::unique_ptr<T, GstreamerRelease>;

}  // namespace korvane::camera
