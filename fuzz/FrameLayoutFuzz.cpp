// SPDX-License-Identifier: Apache-2.0
// What a camera renders into: blobs with a footer, pictures of any size, chroma layout and padding,
// all between pages that nobody may touch.
#include <algorithm>
#include <cstring>
#include <memory>
#include <utility>

#include "Fuzzer.h"
#include "support/GuardedMemory.h"
#include "uvc/JpegBlob.h"
#include "uvc/Nv12Copy.h"
#include "uvc/YuyvConverter.h"

namespace implementation = korvane::hardware::camera::desktop::V2_0::implementation;
using korvane::fuzz::FuzzInput;
using korvane::fuzz::mustHold;
using korvane::test::GuardedMemory;
using korvane::test::GuardedPicture;
using korvane::test::Tight;
using korvane::test::YCbCrPicture;

namespace {

/** Small pictures are enough: they show everything that depends on size. */
constexpr uint32_t kMostPixels = 96;

void blob(FuzzInput& input, Tight tight) {
    const std::vector<uint8_t> bytes = input.rest();
    const GuardedMemory memory(bytes.size(), tight);
    if (!bytes.empty()) memcpy(memory.data(), bytes.data(), bytes.size());
    implementation::takeJpegSize(memory.data(), static_cast<uint32_t>(bytes.size()));
    const uint32_t again =
            implementation::takeJpegSize(memory.data(), static_cast<uint32_t>(bytes.size()));
    mustHold(again == bytes.size(), "a footer counts once");
}

void picture(FuzzInput& input, Tight tight) {
    static constexpr YCbCrPicture::Layout kLayouts[] = {YCbCrPicture::NV12, YCbCrPicture::NV21,
                                                        YCbCrPicture::I420, YCbCrPicture::YV12};
    const YCbCrPicture::Layout layout = kLayouts[input.take<uint8_t>() % std::size(kLayouts)];
    implementation::YuyvConverter converter;
    // A converted frame stays readable until the next one has been converted.
    std::unique_ptr<GuardedMemory> latest;
    for (int frames = input.take<uint8_t>() % 3; frames >= 0; frames--) {
        const uint32_t width = 2 + 2 * (input.take<uint8_t>() % (kMostPixels / 2));
        const uint32_t height = 2 + 2 * (input.take<uint8_t>() % (kMostPixels / 2));
        const GuardedPicture frame(layout, width, height, input.take<uint8_t>() % 64,
                                   input.take<uint8_t>() % 2 == 1, tight);
        auto out = std::make_unique<GuardedMemory>(implementation::yuyvSize(width, height), tight);
        converter.convert(frame.planes(), width, height, out->data());
        latest = std::move(out);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput input(data, size);
    const uint8_t what = input.take<uint8_t>();
    const Tight tight = what & 2 ? Tight::FRONT : Tight::BEHIND;
    if (what & 1) {
        picture(input, tight);
    } else {
        blob(input, tight);
    }
    return 0;
}
