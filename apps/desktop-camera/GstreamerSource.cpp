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

/** A raw picture that can be read for as long as this lives. */
class MappedPicture {
  public:
    explicit MappedPicture(GstSample* sample) {
        GstVideoInfo info;
        mMapped = gst_video_info_from_caps(&info, gst_sample_get_caps(sample)) != FALSE &&
                  gst_video_frame_map(&mFrame, &info, gst_sample_get_buffer(sample),
                                      GST_MAP_READ) != FALSE;
    }
    ~MappedPicture() {
        if (mMapped) gst_video_frame_unmap(&mFrame);
    }
    MappedPicture(const MappedPicture&) = delete;
    MappedPicture& operator=(const MappedPicture&) = delete;

    bool isMapped() const { return mMapped; }

    const uint8_t* line(int plane, uint32_t number) const {
        return static_cast<const uint8_t*>(GST_VIDEO_FRAME_PLANE_DATA(&mFrame, plane)) +
               size_t{number} * GST_VIDEO_FRAME_PLANE_STRIDE(&mFrame, plane);
    }

  private:
    GstVideoFrame mFrame;  // filled in while mapped
    bool mMapped = false;
};

// The details that an element adds to its errors begin with where in its code they were raised.
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
    mError.reset();
    std::string wrong;
    const std::string description = mDescribe(&wrong);
    if (description.empty()) {
        note(Notice::ABSENT, wrong);
        return false;
    }
    mPipeline = std::make_unique<GstreamerPipeline>(mFormat, mTurn, mMayPass);
    wrong = mPipeline->build(description);
    if (!wrong.empty()) {
        note(Notice::FAILED, "the source cannot be built: " + wrong);
    } else if (mPipeline->play()) {
        return true;
    } else if (const auto error = mPipeline->takeError()) {
        noteError(*error);
    } else {
        note(Notice::FAILED, "the source does not start");
    }
    stop();
    return false;
}

// Not every source that ends can be rewound; every one can be built again.
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
    const GstreamerOwned<GstSample> sample = mPipeline->pull();
    if (sample == nullptr) return handleNoSample();
    mGavePicture = true;
    mTrouble = {};
    return copySample(sample.get(), memory, bytes);
}

// Pictures that came before an error are taken before it.
FrameSource::Result GstreamerSource::handleNoSample() {
    if (mError != nullptr) {
        noteError(*mError);
        return Result::FAILED;
    }
    // In this order: a source that fails ends after it has reported the error.
    const bool ended = mPipeline->hasEnded();
    mError = mPipeline->takeError();
    if (mError != nullptr || !ended) return Result::NOT_YET;
    if (!mGavePicture) {
        note(Notice::ENDED, "the source has ended without a picture");
        return Result::FAILED;
    }
    return Result::ENDED;
}

void GstreamerSource::noteError(GstMessage& message) {
    GError* raised = nullptr;
    gchar* added = nullptr;
    gst_message_parse_error(&message, &raised, &added);
    const GstreamerOwned<GError> error(raised);
    const GstreamerOwned<gchar> detail(added);
    const bool absent = g_error_matches(raised, GST_RESOURCE_ERROR, GST_RESOURCE_ERROR_NOT_FOUND);
    note(absent ? Notice::ABSENT : Notice::FAILED,
         std::string("the source failed: ") + GST_MESSAGE_SRC_NAME(&message) + ": " +
                 error->message + " (" + lastLine(detail.get()) + ")");
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
        return Result::NOT_YET;
    }
    gst_buffer_extract(buffer, 0, memory.file, *bytes);
    return Result::DRAWN;
}

// From now on, for the rest of the stream.
FrameSource::Result GstreamerSource::encodeAgain(size_t bytes, size_t limit) {
    ALOGW("a JPEG file of %zu bytes from the source is too large, the host takes %zu", bytes,
          limit);
    mMayPass = false;
    return Result::ENDED;
}

FrameSource::Result GstreamerSource::copyPlanes(GstSample* sample, const PictureMemory& memory,
                                                size_t* bytes) {
    const MappedPicture picture(sample);
    if (!picture.isMapped()) {
        note(Notice::FAILED, "the source gave a picture that cannot be read");
        return Result::FAILED;
    }
    for (uint32_t line = 0; line < mFormat.height; ++line) {
        memcpy(memory.planes.y + line * memory.planes.yStride, picture.line(0, line),
               mFormat.width);
    }
    for (uint32_t line = 0; line < mFormat.height / 2; ++line) {
        memory.planes.putChroma(line, picture.line(1, line), mFormat.width);
    }
    *bytes = size_t{mFormat.width} * mFormat.height * 3 / 2;
    return Result::DRAWN;
}

// A source that is retried fails the same way each time: that is logged once.
void GstreamerSource::note(Notice notice, const std::string& text) {
    if (text != mTrouble.text) ALOGE("%s", text.c_str());
    mTrouble = {notice, text};
}

}  // namespace korvane::camera
