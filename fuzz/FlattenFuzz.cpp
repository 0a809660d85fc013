// SPDX-License-Identifier: Apache-2.0
// Graphic buffers and fences as flattened by another process: the input is a handle's descriptors,
// numbers and attributes. Whatever is accepted as a buffer must be one that can be drawn into.
#include <cstring>

#include <sys/mman.h>
#include <unistd.h>

#include <gui/bufferqueue/1.0/Conversion.h>
#include <ui/GraphicBuffer.h>

#include "Fuzzer.h"
#include "support/GraphicBuffers.h"

namespace conversion = android::conversion;
using android::Fence;
using android::GraphicBuffer;
using android::sp;
using android::hardware::hidl_handle;
using korvane::fuzz::FuzzInput;
using korvane::fuzz::mustHold;

namespace {

constexpr size_t kMostInts = 16;

/** A handle from the input, or that of an existing buffer with some of its numbers changed. */
class Handle {
  public:
    explicit Handle(FuzzInput& input) {
        if (input.take<uint8_t>() % 2 == 0) {
            mHandle = native_handle_create(input.take<uint8_t>() % 3,
                                           input.take<uint8_t>() % kMostInts);
            for (int i = 0; i < mHandle->numFds; i++) makeDescriptor(input, i);
            for (int i = 0; i < mHandle->numInts; i++) {
                mHandle->data[mHandle->numFds + i] = input.take<int32_t>();
            }
        } else {
            const sp<GraphicBuffer> buffer = korvane::test::allocate(
                    16, 16, HAL_PIXEL_FORMAT_YCbCr_420_888, korvane::test::kCpu);
            mHandle = native_handle_clone(buffer->handle);
            for (int i = input.take<uint8_t>() % 4; i > 0; i--) {
                const int place = input.take<uint8_t>() % (mHandle->numInts + 1);
                if (place < mHandle->numInts) {
                    mHandle->data[mHandle->numFds + place] = input.take<int32_t>();
                } else {
                    makeDescriptor(input, 0, true);
                }
            }
        }
    }
    ~Handle() {
        native_handle_close(mHandle);
        native_handle_delete(mHandle);
    }

    native_handle_t* get() const { return mHandle; }

  private:
    void makeDescriptor(FuzzInput& input, int place, bool replace = false) {
        if (replace) close(mHandle->data[place]);
        const uint8_t kind = input.take<uint8_t>();
        mHandle->data[place] = kind & 0x80 ? dup(STDERR_FILENO)
                                           : memfd_create("fuzz", MFD_CLOEXEC | MFD_ALLOW_SEALING);
        if (!(kind & 0x80) && ftruncate(mHandle->data[place], (kind & 0x7f) * 1024) != 0) abort();
    }

    native_handle_t* mHandle;
};

void draw(GraphicBuffer& buffer) {
    void* address = nullptr;
    if (buffer.lock(korvane::test::kCpu, &address) == android::NO_ERROR) {
        mustHold(buffer.getMemorySize() > 0, "a buffer that can be locked has memory");
        memset(address, 0x55, buffer.getMemorySize());
        buffer.unlock();
    }
    android_ycbcr planes = {};
    if (buffer.lockYCbCr(korvane::test::kCpu, &planes) != android::NO_ERROR) return;
    const uint32_t width = buffer.getWidth();
    const uint32_t height = buffer.getHeight();
    static_cast<uint8_t*>(planes.y)[(height - 1) * planes.ystride + width - 1] = 1;
    const size_t corner =
            ((height + 1) / 2 - 1) * planes.cstride + ((width + 1) / 2 - 1) * planes.chroma_step;
    static_cast<uint8_t*>(planes.cb)[corner] = 2;
    static_cast<uint8_t*>(planes.cr)[corner] = 3;
    buffer.unlock();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput input(data, size);
    const Handle handle(input);

    sp<Fence> fence;
    if (conversion::convertTo(&fence, hidl_handle(handle.get()), conversion::FenceSide::CLIENT)) {
        fence->wait(0);
        fence->getSignalTime();
    }

    android::hardware::media::V1_0::AnwBuffer flat = {};
    flat.nativeHandle = handle.get();
    flat.attr.width = 16;
    flat.attr.height = 16;
    flat.attr.stride = 16;
    flat.attr.layerCount = 1;
    flat.attr.format = static_cast<android::hardware::graphics::common::V1_0::PixelFormat>(
            HAL_PIXEL_FORMAT_YCbCr_420_888);
    flat.attr.usage = static_cast<uint32_t>(korvane::test::kCpu);
    const uint8_t changed = input.take<uint8_t>();
    if (changed & 1) flat.attr.width = input.take<uint32_t>();
    if (changed & 2) flat.attr.height = input.take<uint32_t>();
    if (changed & 4) flat.attr.stride = input.take<uint32_t>();
    if (changed & 8) {
        flat.attr.format = static_cast<android::hardware::graphics::common::V1_0::PixelFormat>(
                input.take<uint32_t>());
    }
    if (changed & 16) flat.attr.usage = input.take<uint32_t>();
    if (changed & 32) flat.attr.layerCount = input.take<uint64_t>();
    const sp<GraphicBuffer> buffer = new GraphicBuffer;
    if (conversion::convertTo(buffer.get(), flat)) draw(*buffer);
    return 0;
}
