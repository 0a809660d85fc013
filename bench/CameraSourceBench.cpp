// SPDX-License-Identifier: Apache-2.0
// The processor time that a camera's frame costs on its way from the source to the stream's buffer:
// passed through or copied as it is, or decoded, converted or encoded where necessary. Everything
// that GStreamer does is counted, including reading the file; the rate is the source's, 30 frames a
// second.

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <gst/gst.h>

#include "desktop-camera/GstreamerSource.h"

namespace korvane::camera {
namespace {

constexpr uint32_t kWidth = 1280;
constexpr uint32_t kHeight = 720;
constexpr int kFrames = 60;
constexpr char kSize[] = "width=1280,height=720,framerate=30/1";

/** Files in the formats that cameras deliver, made once. */
class Material {
  public:
    Material() {
        gst_init(nullptr, nullptr);
        char name[] = "/tmp/camera-source-bench-XXXXXX";
        mFolder = mkdtemp(name);
        // Webcams halve the chroma in one direction only.
        make("Y42B", " ! jpegenc", "jpeg", 1);
        make("NV12", "", "nv12", 100);
        make("YUY2", "", "yuy2", 100);
    }
    ~Material() { std::filesystem::remove_all(mFolder); }

    std::string jpeg() const {
        return "multifilesrc location=" + mFolder + "/jpeg caps=image/jpeg," + kSize + " loop=true";
    }
    std::string raw(const std::string& format) const {
        return "filesrc location=" + mFolder + "/" + format + " blocksize=1048576 ! rawvideoparse" +
               " format=" + format + " width=1280 height=720 framerate=30/1";
    }

  private:
    void make(const std::string& format, const std::string& encoder, const std::string& file,
              int pictures) const {
        const std::string line = "videotestsrc num-buffers=" + std::to_string(pictures) +
                                 " ! video/x-raw,format=" + format + "," + kSize + encoder +
                                 " ! filesink location=" + mFolder + "/" + file;
        GstElement* pipeline = gst_parse_launch(line.c_str(), nullptr);
        gst_element_set_state(pipeline, GST_STATE_PLAYING);
        GstBus* bus = gst_element_get_bus(pipeline);
        GstMessage* end = gst_bus_timed_pop_filtered(bus, GST_CLOCK_TIME_NONE, GST_MESSAGE_EOS);
        gst_message_unref(end);
        gst_object_unref(bus);
        gst_element_set_state(pipeline, GST_STATE_NULL);
        gst_object_unref(pipeline);
    }

    std::string mFolder;
};

const Material& material() {
    static const Material kMaterial;
    return kMaterial;
}

void drawFrames(benchmark::State& state, const std::string& description, const char* fourcc,
                const Turn& turn) {
    GstreamerSource source(description, turn);
    std::vector<uint8_t> memory(kWidth * kHeight * 3 / 2);
    PictureMemory picture;
    picture.planes = testcard::Planes::nv12(memory.data(), kWidth, kHeight);
    picture.file = memory.data();
    picture.fileCapacity = kWidth * kHeight;
    size_t bytes = 0;
    const auto draw = [&] {
        FrameSource::Result result = FrameSource::Result::NOT_YET;
        while (result == FrameSource::Result::NOT_YET ||
               (result == FrameSource::Result::ENDED && source.startAgain())) {
            result = source.draw({}, picture, &bytes);
        }
        return result == FrameSource::Result::DRAWN;
    };
    if (!source.start({fourcc, kWidth, kHeight, 30}) || !draw()) {
        return state.SkipWithError("there is no picture");
    }
    for (auto _ : state) {
        if (!draw()) return state.SkipWithError("there is no picture");
    }
}

void jpegPassedOn(benchmark::State& state) {
    drawFrames(state, material().jpeg(), "MJPG", {});
}
void jpegEncodedAgain(benchmark::State& state) {
    drawFrames(state, material().jpeg(), "MJPG", {180, false});
}
void nv12Copied(benchmark::State& state) {
    drawFrames(state, material().raw("nv12"), "NV12", {});
}
void yuyvConverted(benchmark::State& state) {
    drawFrames(state, material().raw("yuy2"), "NV12", {});
}
void jpegDecoded(benchmark::State& state) {
    drawFrames(state, material().jpeg(), "NV12", {});
}

BENCHMARK(jpegPassedOn)
        ->Iterations(kFrames)
        ->MeasureProcessCPUTime()
        ->Unit(benchmark::kMillisecond);
BENCHMARK(jpegEncodedAgain)
        ->Iterations(kFrames)
        ->MeasureProcessCPUTime()
        ->Unit(benchmark::kMillisecond);
BENCHMARK(nv12Copied)->Iterations(kFrames)->MeasureProcessCPUTime()->Unit(benchmark::kMillisecond);
BENCHMARK(yuyvConverted)
        ->Iterations(kFrames)
        ->MeasureProcessCPUTime()
        ->Unit(benchmark::kMillisecond);
BENCHMARK(jpegDecoded)->Iterations(kFrames)->MeasureProcessCPUTime()->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace korvane::camera

BENCHMARK_MAIN();
