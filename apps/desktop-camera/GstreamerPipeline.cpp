// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "desktop-camera"

#include "GstreamerPipeline.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include <log/log.h>

namespace korvane::camera {
namespace {

constexpr GstClockTime kPictureTimeout = 100 * GST_MSECOND;
constexpr char kDecoder[] = " ! decodebin name=korvane-decoder";
constexpr char kDecoderName[] = "korvane-decoder";

using Caps = GstreamerOwned<GstCaps>;
using Element = GstreamerOwned<GstElement>;
using Pad = GstreamerOwned<GstPad>;

Element parse(const std::string& pipeline, std::string* error) {
    GError* raised = nullptr;
    Element element(
            gst_parse_launch_full(pipeline.c_str(), nullptr, GST_PARSE_FLAG_FATAL_ERRORS, &raised));
    if (raised != nullptr) *error = GstreamerOwned<GError>(raised)->message;
    return element;
}

bool isJpeg(const GstStructure* picture) {
    return gst_structure_has_name(picture, "image/jpeg") != FALSE;
}

bool hasSize(const GstStructure* picture, const PictureFormat& format) {
    int width = 0;
    int height = 0;
    return gst_structure_get_int(picture, "width", &width) &&
           gst_structure_get_int(picture, "height", &height) &&
           static_cast<uint32_t>(width) == format.width &&
           static_cast<uint32_t>(height) == format.height;
}

// Whether each buffer is one file. Not so in a byte stream in which JPEG was detected by its
// content.
bool isInFiles(const GstStructure* picture) {
    gboolean parsed = FALSE;
    gst_structure_get_boolean(picture, "parsed", &parsed);
    return parsed || !gst_structure_has_field(picture, "sof-marker");
}

std::string sizeOf(const PictureFormat& format) {
    return std::to_string(format.width) + "x" + std::to_string(format.height);
}

// Like "YUY2 640x480".
std::string nameOf(const GstStructure* picture) {
    int width = 0;
    int height = 0;
    gst_structure_get_int(picture, "width", &width);
    gst_structure_get_int(picture, "height", &height);
    const char* format = gst_structure_get_string(picture, "format");
    return (isJpeg(picture)     ? "MJPG"
            : format == nullptr ? "video"
                                : format) +
           std::string(" ") + std::to_string(width) + "x" + std::to_string(height);
}

const char* elementFor(const Turn& turn) {
    static constexpr const char* kPlain[] = {"", "90r", "180", "90l"};
    // A mirror after a rotation is one of the eight orientations that a picture can have.
    static constexpr const char* kMirrored[] = {"horiz", "ul-lr", "vert", "ur-ll"};
    return (turn.mirrored ? kMirrored : kPlain)[turn.degrees / 90 % 4];
}

}  // namespace

std::string GstreamerPipeline::check(const std::string& description) {
    std::string error;
    parse(description + kDecoder, &error);
    return error;
}

GstreamerPipeline::GstreamerPipeline(const PictureFormat& format, const Turn& turn, bool mayPass)
    : mFormat(format), mTurn(turn), mMayPass(mayPass) {}

// Waits for the pipeline's threads, which use this.
GstreamerPipeline::~GstreamerPipeline() {
    if (mPipeline != nullptr) gst_element_set_state(mPipeline.get(), GST_STATE_NULL);
}

std::string GstreamerPipeline::build(const std::string& description) {
    std::string error;
    mPipeline = parse(description + kDecoder, &error);
    if (mPipeline == nullptr) return error;
    const Element decoder(gst_bin_get_by_name(GST_BIN(mPipeline.get()), kDecoderName));
    g_signal_connect(decoder.get(), "autoplug-continue", G_CALLBACK(onContinue), this);
    g_signal_connect(decoder.get(), "pad-added", G_CALLBACK(onPad), this);
    preferStreamsFormat(decoder.get());
    return addSink() ? "" : "no element \"appsink\"";
}

bool GstreamerPipeline::addSink() {
    GstElement* sink = gst_element_factory_make("appsink", nullptr);
    if (sink == nullptr) return false;
    g_object_set(sink, "max-buffers", 1, "drop", TRUE, nullptr);
    gst_bin_add(GST_BIN(mPipeline.get()), sink);
    mSink = GST_APP_SINK(sink);
    return true;
}

// A camera that is the description's last element delivers what it likes best, unless asked.
void GstreamerPipeline::preferStreamsFormat(GstElement* decoder) const {
    const Pad sink(gst_element_get_static_pad(decoder, "sink"));
    const Pad peer(gst_pad_get_peer(sink.get()));
    if (peer == nullptr) return;
    const Element source(gst_pad_get_parent_element(peer.get()));
    GstElementFactory* factory =
            source == nullptr ? nullptr : gst_element_get_factory(source.get());
    if (factory == nullptr || strcmp(GST_OBJECT_NAME(factory), "v4l2src") != 0) return;
    const Caps caps(gst_caps_from_string(preferredCaps().c_str()));
    gst_element_unlink(source.get(), decoder);
    gst_element_link_filtered(source.get(), decoder, caps.get());
}

// The stream's exact format first, then its size and rate in any format, then anything.
std::string GstreamerPipeline::preferredCaps() const {
    const std::string size =
            ",width=" + std::to_string(mFormat.width) + ",height=" + std::to_string(mFormat.height);
    const long least = std::max(1L, std::lround(mFormat.fps) - 1);
    const std::string rate = ",framerate=[" + std::to_string(least) + "/1,2147483647/1]";
    const std::string jpeg = "image/jpeg";
    const std::string raw = "video/x-raw";
    const bool passes = mFormat.isJpeg() && mMayPass;
    const std::string best =
            passes ? jpeg : raw + ",format=" + (mFormat.isJpeg() ? "I420" : "NV12");
    std::string caps = best + size + rate;
    for (const std::string& ending : {size + rate, size, std::string()}) {
        caps += "; " + (passes ? jpeg : raw) + ending + "; " + (passes ? raw : jpeg) + ending;
    }
    return caps + "; video/x-bayer; video/x-h264; video/x-h265; video/mpeg";
}

bool GstreamerPipeline::play() {
    return gst_element_set_state(mPipeline.get(), GST_STATE_PLAYING) != GST_STATE_CHANGE_FAILURE;
}

// Pictures that come by a clock wait for nobody, and the latest is taken. All others wait to be
// taken: otherwise a source of files would be reading them all day long.
GstreamerOwned<GstSample> GstreamerPipeline::pull() {
    GstreamerOwned<GstSample> sample(gst_app_sink_try_pull_sample(mSink, kPictureTimeout));
    if (sample != nullptr && gst_sample_get_segment(sample.get())->format != GST_FORMAT_TIME) {
        gst_app_sink_set_drop(mSink, FALSE);
    }
    return sample;
}

GstreamerOwned<GstMessage> GstreamerPipeline::takeError() {
    const GstreamerOwned<GstBus> bus(gst_element_get_bus(mPipeline.get()));
    return GstreamerOwned<GstMessage>(gst_bus_pop_filtered(bus.get(), GST_MESSAGE_ERROR));
}

// FALSE when what was found is what is wanted, and nothing needs decoding.
gboolean GstreamerPipeline::onContinue(GstElement* /*decoder*/, GstPad* /*pad*/, GstCaps* caps,
                                       gpointer self) {
    if (gst_caps_is_empty(caps) || gst_caps_is_any(caps)) return TRUE;
    return static_cast<GstreamerPipeline*>(self)->passes(gst_caps_get_structure(caps, 0)) ? FALSE
                                                                                          : TRUE;
}

bool GstreamerPipeline::passes(const GstStructure* picture) {
    if (!mFormat.isJpeg() || !isJpeg(picture)) return false;
    if (!hasSize(picture, mFormat)) {
        mWhyNotPassed = "it is not " + sizeOf(mFormat);
    } else if (!isInFiles(picture)) {
        mWhyNotPassed = "it does not come file by file";
    } else if (!mTurn.isNone()) {
        mWhyNotPassed = "it is turned";
    } else if (!mMayPass) {
        mWhyNotPassed = "its files are too large";
    } else {
        return true;
    }
    return false;
}

void GstreamerPipeline::onPad(GstElement* /*decoder*/, GstPad* pad, gpointer self) {
    Caps caps(gst_pad_get_current_caps(pad));
    if (caps == nullptr) caps.reset(gst_pad_query_caps(pad, nullptr));
    if (gst_caps_get_size(caps.get()) == 0) return;
    static_cast<GstreamerPipeline*>(self)->connect(pad, gst_caps_get_structure(caps.get(), 0));
}

// Only the first video counts: a film may have sound, or a second angle.
void GstreamerPipeline::connect(GstPad* pad, const GstStructure* picture) {
    const bool jpeg = isJpeg(picture);
    if (!jpeg && !gst_structure_has_name(picture, "video/x-raw")) return;
    const Pad sink(gst_element_get_static_pad(GST_ELEMENT(mSink), "sink"));
    if (gst_pad_is_linked(sink.get())) return;
    say(picture);
    if (jpeg) {
        mPassing = true;
        gst_pad_link(pad, sink.get());
    } else {
        convert(pad);
    }
}

// The converters do nothing where nothing needs converting.
void GstreamerPipeline::convert(GstPad* pad) {
    GError* raised = nullptr;
    GstElement* bin = gst_parse_bin_from_description(conversion().c_str(), TRUE, &raised);
    const GstreamerOwned<GError> error(raised);
    if (error != nullptr) {
        ALOGE("the source's pictures cannot be converted: %s", error->message);
    }
    if (bin == nullptr) return;
    gst_bin_add(GST_BIN(mPipeline.get()), bin);
    gst_element_link(bin, GST_ELEMENT(mSink));
    const Pad in(gst_element_get_static_pad(bin, "sink"));
    gst_pad_link(pad, in.get());
    gst_element_sync_state_with_parent(bin);
}

std::string GstreamerPipeline::conversion() const {
    const std::string raw = mFormat.isJpeg() ? "I420" : mFormat.fourcc;
    const std::string turn =
            mTurn.isNone() ? "" : std::string(" ! videoflip video-direction=") + elementFor(mTurn);
    return "videoconvert" + turn +
           " ! videoscale ! videorate ! capsfilter caps=video/x-raw,format=" + raw +
           ",width=" + std::to_string(mFormat.width) + ",height=" + std::to_string(mFormat.height) +
           ",pixel-aspect-ratio=1/1,framerate=" + std::to_string(std::lround(mFormat.fps * 1000)) +
           "/1000" + (mFormat.isJpeg() ? " ! jpegenc" : "");
}

std::string GstreamerPipeline::describe(const GstStructure* picture) const {
    const char* format = gst_structure_get_string(picture, "format");
    const bool same = format != nullptr && mFormat.fourcc == format && hasSize(picture, mFormat);
    const std::string from = nameOf(picture) + " from the source is ";
    if (isJpeg(picture)) return from + "passed on untouched";
    if (!mWhyNotPassed.empty()) return "MJPG from the source is encoded again: " + mWhyNotPassed;
    if (mFormat.isJpeg()) return from + "encoded";
    if (same && mTurn.isNone()) return from + "copied as it is";
    return from + "converted to " + mFormat.fourcc + " " + sizeOf(mFormat);
}

void GstreamerPipeline::say(const GstStructure* picture) {
    const std::lock_guard<std::mutex> guard(mLock);
    mHandling = describe(picture);
    ALOGI("%s", mHandling.c_str());
}

std::string GstreamerPipeline::handling() const {
    const std::lock_guard<std::mutex> guard(mLock);
    return mHandling;
}

}  // namespace korvane::camera
