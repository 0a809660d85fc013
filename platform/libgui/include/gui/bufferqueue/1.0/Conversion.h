// SPDX-License-Identifier: Apache-2.0
// Conversions between the native types of the buffer queue and those of its HIDL interface.
#pragma once

#include <memory>

#include <android/hardware/graphics/bufferqueue/1.0/IGraphicBufferProducer.h>
#include <android/hardware/graphics/bufferqueue/1.0/IProducerListener.h>
#include <android/hardware/media/1.0/types.h>
#include <cutils/native_handle.h>
#include <gui/IGraphicBufferProducer.h>
#include <gui/IProducerListener.h>
#include <hidl/HidlSupport.h>
#include <ui/Fence.h>
#include <ui/GraphicBuffer.h>
#include <utils/NativeHandle.h>
#include <utils/StrongPointer.h>

namespace android {

using HGraphicBufferProducer =
        ::android::hardware::graphics::bufferqueue::V1_0::IGraphicBufferProducer;
using HProducerListener = ::android::hardware::graphics::bufferqueue::V1_0::IProducerListener;
using BGraphicBufferProducer = ::android::IGraphicBufferProducer;
using BProducerListener = ::android::IProducerListener;

namespace conversion {

using ::android::hardware::hidl_handle;
using ::android::hardware::media::V1_0::AnwBuffer;

struct NativeHandleDelete {
    void operator()(native_handle_t* handle) const { native_handle_delete(handle); }
};

/** A handle whose descriptors are someone else's. */
using BorrowedHandle = std::unique_ptr<native_handle_t, NativeHandleDelete>;

/**
 * wrapAs() makes a HIDL value that borrows the descriptors of the native one: it is valid while
 * both the native value and what wrapAs() returns live.
 *
 * convertTo() makes a native value of its own. What it reads may come from anybody; it returns
 * false, having kept nothing, when that is malformed.
 */

void wrapAs(AnwBuffer* to, const GraphicBuffer& from);

/** An empty handle makes an empty buffer. */
bool convertTo(GraphicBuffer* to, const AnwBuffer& from);

/** The descriptors that a process sends must be at least this; lower ones count as none. */
enum class FenceSide : int {
    /** In the queue's process: a quirk that clients may rely on keeps 0 and 1 out. */
    SERVER = 2,
    CLIENT = 0,
};

/** A fence without a descriptor makes a null handle. */
BorrowedHandle wrapAs(hidl_handle* to, const Fence& from, FenceSide side);

/** The first of several descriptors is taken. A handle without any makes a fence without one. */
bool convertTo(sp<Fence>* to, const hidl_handle& from, FenceSide side);

/** A copy; null for a null handle. */
bool convertTo(sp<NativeHandle>* to, const hidl_handle& from);

BorrowedHandle wrapAs(HGraphicBufferProducer::QueueBufferInput* to,
                      const BGraphicBufferProducer::QueueBufferInput& from);
bool convertTo(BGraphicBufferProducer::QueueBufferInput* to,
               const HGraphicBufferProducer::QueueBufferInput& from);

void wrapAs(HGraphicBufferProducer::QueueBufferOutput* to,
            const BGraphicBufferProducer::QueueBufferOutput& from);
void convertTo(BGraphicBufferProducer::QueueBufferOutput* to,
               const HGraphicBufferProducer::QueueBufferOutput& from);

void wrapAs(HGraphicBufferProducer::FrameEventHistoryDelta* to, const FrameEventHistoryDelta& from);
void convertTo(FrameEventHistoryDelta* to,
               const HGraphicBufferProducer::FrameEventHistoryDelta& from);

}  // namespace conversion
}  // namespace android
