// SPDX-License-Identifier: Apache-2.0
#include "ui/BufferLayoutOptions.h"

#include <mutex>

#include <android-base/thread_annotations.h>

namespace android {
namespace {

constexpr uint32_t kMaxStrideAlignment = 4096;
constexpr uint32_t kMaxHeightAlignment = 256;
constexpr uint32_t kMaxPlaneGap = 65536;

std::mutex gMutex;
BufferLayoutOptions gOptions GUARDED_BY(gMutex);

bool isPowerOfTwo(uint32_t value) {
    return value != 0 && (value & (value - 1)) == 0;
}

}  // namespace

bool setBufferLayoutOptions(const BufferLayoutOptions& options) {
    if (!isPowerOfTwo(options.strideAlignment) || options.strideAlignment > kMaxStrideAlignment ||
        !isPowerOfTwo(options.heightAlignment) || options.heightAlignment > kMaxHeightAlignment ||
        options.planeGap > kMaxPlaneGap) {
        return false;
    }
    std::lock_guard<std::mutex> lock(gMutex);
    gOptions = options;
    return true;
}

BufferLayoutOptions getBufferLayoutOptions() {
    std::lock_guard<std::mutex> lock(gMutex);
    return gOptions;
}

}  // namespace android
