// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "desktop-camera"

#include "GstreamerSource.h"

#include <cstring>
#include <utility>

#include <gst/video/video.h>
#include <log/log.h>

#include "testcard/Planes.h"

namespace korvane::camera {

using testcard::Notice;

namespace {

struct ErrorFree {
    void operator()(GError* error) const { g_error_free(error); }
};

// What an element adds to its errors begins with where in its code they were raised.
std::string lastLine(const gchar* text) {
    const std::string all = text == nullptr ? "" : text;
    return all.substr(all.rfind('\n') + 1);
}

}  // namespace

GstreamerSource::GstreamerSource(const std::string& description, const Turn& turn)
    : GstreamerSource([description](std::string* /*why*/) { return description; }, turn) {}

GstreamerSource::GstreamerSource(Describe describe, const Turn& turn)
    : mDescribe(std::move(describe)), mTurn(turn) {}

bool GstreamerSource::start(const PictureFormat& format) {
    mFormat = format;
    mMayPass = mTurn.isNone();
    return open();
}

bool GstreamerSource::open() {
    stop();
    mGavePicture = false;
    std::string wrong;
    const std::string description = mDescribe(&wrong);
    if (description.empty()) {
        note(Notice::kAbsent, wrong);
        return false;
    }
    mPipeline = std::make_unique<GstreamerPipeline>(mFormat, mTurn, mMayPass);
    wrong = mPipeline->build(description);
    if (!wrong.empty()) {
        note(Notice::kFailed, "the source cannot be built: " + wrong);
    } else if (mPipeline->play()) {
        return true;
    } else if (!failed()) {
        note(Notice::kFailed, "the source does not start");
    }
    stop();
    return false;
}

// Not every source that ends can be sought in; every one can be built again.
bool GstreamerSource::startAgain() {
    return open();
}

void GstreamerSource::stop() {
    mPipeline.reset();
}

std::string GstreamerSource::handling() const {
    return mPipeline == nullptr ? "" : mPipeline->handling();
}

FrameSource::Result GstreamerSource::draw(const testcard::FrameStamp& /*stamp*/,
                                          const PictureMemory& memory, size_t* bytes) {
    GstSample* sample = mPipeline->pull();
    if (sample == nullptr) return handleNoSample();
    mGavePicture = true;
    mTrouble = {};
    const Result result = copySample(sample, memory, bytes);
    gst_sample_unref(sample);
    return result;
}

FrameSource::Result GstreamerSource::handleNoSample() {
    if (failed()) return Result::kFailed;
    if (!mPipeline->hasEnded()) return Result::kNotYet;
    if (!mGavePicture) {
        note(Notice::kEnded, "the source has ended without a picture");
        return Result::kFailed;
    }
    return Result::kEnded;
}

// Whether the pipeline has reported an error since it started; logs it.
bool GstreamerSource::failed() {
    GstMessage* message = mPipeline->takeError();
    if (message == nullptr) return false;
    GError* raised = nullptr;
    gchar* detail = nullptr;
    gst_message_parse_error(message, &raised, &detail);
    const std::unique_ptr<GError, ErrorFree> error(raised);
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
    if (*bytes > memory.fileCapacity && mPipeline->isPassing()) {
        return encodeAgain(*bytes, memory.fileCapacity);
    }
    if (*bytes > memory.fileCapacity) {
        ALOGW("left out a JPEG file of %zu bytes, the host takes %zu", *bytes, memory.fileCapacity);
        return Result::kNotYet;
    }
    gst_buffer_extract(buffer, 0, memory.file, *bytes);
    return Result::kDrawn;
}

// From now on, for the rest of the stream.
FrameSource::Result GstreamerSource::encodeAgain(size_t bytes, size_t limit) {
    ALOGW("a JPEG file of %zu bytes from the source is too large, the host takes %zu", bytes,
          limit);
    mMayPass = false;
    return Result::kEnded;
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
