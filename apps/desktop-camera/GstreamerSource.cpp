// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "desktop-camera"

#include "GstreamerSource.h"

#include <cmath>
#include <cstring>
#include <utility>

#include <gst/video/video.h>
#include <log/log.h>

#include "testcard/Planes.h"

namespace korvane::camera {

using testcard::Notice;

namespace {

constexpr GstClockTime kPictureTimeout = 100 * GST_MSECOND;
constexpr char kSinkName[] = "korvane-pictures";

struct ErrorFree {
    void operator()(GError* error) const { g_error_free(error); }
};
using Error = std::unique_ptr<GError, ErrorFree>;

// decodebin hands raw video through and decodes the rest; the conversions behind it do nothing
// where nothing is to be done.
std::string converted(const std::string& description) {
    return description + " ! decodebin ! videoconvert ! videoscale ! videorate";
}

GstElement* parse(const std::string& pipeline, std::string* error) {
    GError* raised = nullptr;
    GstElement* element =
            gst_parse_launch_full(pipeline.c_str(), nullptr, GST_PARSE_FLAG_FATAL_ERRORS, &raised);
    if (raised != nullptr) *error = Error(raised)->message;
    return element;
}

// What an element adds to its errors begins with where in its code they were raised.
std::string lastLine(const gchar* text) {
    const std::string all = text == nullptr ? "" : text;
    return all.substr(all.rfind('\n') + 1);
}

}  // namespace

std::string GstreamerSource::check(const std::string& description) {
    std::string error;
    GstElement* pipeline = parse(converted(description) + " ! fakesink", &error);
    if (pipeline != nullptr) gst_object_unref(pipeline);
    return error;
}

GstreamerSource::GstreamerSource(std::string description) : mDescription(std::move(description)) {}

GstreamerSource::~GstreamerSource() {
    stop();
}

std::string GstreamerSource::pipelineFor(const std::string& description,
                                         const PictureFormat& format) {
    const std::string raw = format.isJpeg() ? "I420" : format.fourcc;
    return converted(description) + " ! video/x-raw,format=" + raw +
           ",width=" + std::to_string(format.width) + ",height=" + std::to_string(format.height) +
           ",framerate=" + std::to_string(std::lround(format.fps * 1000)) + "/1000 ! " +
           (format.isJpeg() ? "jpegenc ! " : "") + "appsink name=" + kSinkName +
           " max-buffers=1 drop=true";
}

bool GstreamerSource::start(const PictureFormat& format) {
    stop();
    mFormat = format;
    mGavePicture = false;
    std::string error;
    mPipeline.reset(parse(pipelineFor(mDescription, format), &error));
    if (mPipeline == nullptr) {
        note(Notice::kFailed, "the source cannot be built: " + error);
        return false;
    }
    mSink.reset(GST_APP_SINK(gst_bin_get_by_name(GST_BIN(mPipeline.get()), kSinkName)));
    if (gst_element_set_state(mPipeline.get(), GST_STATE_PLAYING) != GST_STATE_CHANGE_FAILURE) {
        return true;
    }
    if (!failed()) note(Notice::kFailed, "the source does not start");
    stop();
    return false;
}

void GstreamerSource::stop() {
    if (mPipeline != nullptr) gst_element_set_state(mPipeline.get(), GST_STATE_NULL);
    mSink.reset();
    mPipeline.reset();
}

FrameSource::Result GstreamerSource::draw(const testcard::FrameStamp& /*stamp*/,
                                          const PictureMemory& memory, size_t* bytes) {
    GstSample* sample = gst_app_sink_try_pull_sample(mSink.get(), kPictureTimeout);
    if (sample == nullptr) return handleNoSample();
    mGavePicture = true;
    mTrouble = {};
    const Result result = copySample(sample, memory, bytes);
    gst_sample_unref(sample);
    return result;
}

FrameSource::Result GstreamerSource::handleNoSample() {
    if (failed()) return Result::kFailed;
    if (!gst_app_sink_is_eos(mSink.get())) return Result::kNotYet;
    if (!mGavePicture) {
        note(Notice::kEnded, "the source has ended without a picture");
        return Result::kFailed;
    }
    // Not every source that ends can be sought in; every one can be built again.
    const PictureFormat format = mFormat;
    return start(format) ? Result::kNotYet : Result::kFailed;
}

// Whether the pipeline has reported an error since it started; logs it.
bool GstreamerSource::failed() {
    GstBus* bus = gst_element_get_bus(mPipeline.get());
    GstMessage* message = gst_bus_pop_filtered(bus, GST_MESSAGE_ERROR);
    gst_object_unref(bus);
    if (message == nullptr) return false;
    GError* raised = nullptr;
    gchar* detail = nullptr;
    gst_message_parse_error(message, &raised, &detail);
    const Error error(raised);
    const bool absent = g_error_matches(raised, GST_RESOURCE_ERROR, GST_RESOURCE_ERROR_NOT_FOUND);
    note(absent ? Notice::kAbsent : Notice::kFailed,
         std::string("the source failed: ") + GST_MESSAGE_SRC_NAME(message) + ": " +
                 error->message + " (" + lastLine(detail) + ")");
    g_free(detail);
    gst_message_unref(message);
    return true;
}

FrameSource::Result GstreamerSource::copySample(GstSample* sample, const PictureMemory& memory,
                                                size_t* bytes) {
    return mFormat.isJpeg() ? copyFile(sample, memory, bytes) : copyPlanes(sample, memory, bytes);
}

FrameSource::Result GstreamerSource::copyFile(GstSample* sample, const PictureMemory& memory,
                                              size_t* bytes) {
    GstBuffer* buffer = gst_sample_get_buffer(sample);
    *bytes = gst_buffer_get_size(buffer);
    if (*bytes > memory.fileCapacity) {
        ALOGW("left out a JPEG file of %zu bytes, the host takes %zu", *bytes, memory.fileCapacity);
        return Result::kNotYet;
    }
    gst_buffer_extract(buffer, 0, memory.file, *bytes);
    return Result::kDrawn;
}

FrameSource::Result GstreamerSource::copyPlanes(GstSample* sample, const PictureMemory& memory,
                                                size_t* bytes) {
    GstVideoInfo info;
    GstVideoFrame frame;
    if (!gst_video_info_from_caps(&info, gst_sample_get_caps(sample)) ||
        !gst_video_frame_map(&frame, &info, gst_sample_get_buffer(sample), GST_MAP_READ)) {
        note(Notice::kFailed, "the source gave a picture that cannot be read");
        return Result::kFailed;
    }
    const auto plane = [&](int number, uint32_t line) {
        return static_cast<const uint8_t*>(GST_VIDEO_FRAME_PLANE_DATA(&frame, number)) +
               size_t{line} * GST_VIDEO_FRAME_PLANE_STRIDE(&frame, number);
    };
    for (uint32_t line = 0; line < mFormat.height; ++line) {
        memcpy(memory.planes.y + line * memory.planes.yStride, plane(0, line), mFormat.width);
    }
    for (uint32_t line = 0; line < mFormat.height / 2; ++line) {
        memory.planes.putChroma(line, plane(1, line), mFormat.width);
    }
    gst_video_frame_unmap(&frame);
    *bytes = size_t{mFormat.width} * mFormat.height * 3 / 2;
    return Result::kDrawn;
}

// A source that is tried again and again fails in the same way: that is logged once.
void GstreamerSource::note(Notice notice, const std::string& text) {
    if (text != mTrouble.text) ALOGE("%s", text.c_str());
    mTrouble = {notice, text};
}

}  // namespace korvane::camera
