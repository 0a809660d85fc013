// SPDX-License-Identifier: Apache-2.0
// How the structs and enums of the interfaces look in memory, as they travel. The other side lays
// them out by its own copy of the interfaces: a field moved here is misread there.

#include <cstddef>

#include <android/hardware/graphics/bufferqueue/1.0/IGraphicBufferProducer.h>
#include <android/hardware/graphics/bufferqueue/2.0/IGraphicBufferProducer.h>
#include <android/hardware/graphics/common/1.2/types.h>
#include <android/hardware/media/1.0/types.h>
#include <android/hidl/base/1.0/types.h>
#include <android/hidl/manager/1.0/IServiceManager.h>
#include <gtest/gtest.h>
#include <hidl/HidlSupport.h>
#include <hidl/MQDescriptor.h>

namespace android {
namespace hardware {
namespace {

#define EXPECT_SIZE(size, type) EXPECT_EQ(size##u, sizeof(type))
#define EXPECT_AT(offset, type, field) EXPECT_EQ(offset##u, offsetof(type, field))

template <typename Enum>
int64_t valueOf(Enum value) {
    return static_cast<int64_t>(value);
}

TEST(HidlLayoutTest, OfTheValueTypes) {
    EXPECT_SIZE(16, hidl_handle);
    EXPECT_SIZE(40, hidl_memory);
    EXPECT_SIZE(16, hidl_string);
    EXPECT_SIZE(16, hidl_vec<char>);
    EXPECT_SIZE(8, details::hidl_pointer<char>);
    using Queue = MQDescriptor<char, kSynchronizedReadWrite>;
    EXPECT_SIZE(32, Queue);
    EXPECT_EQ(0u, size_t{hidl_string::kOffsetOfBuffer});
    EXPECT_EQ(0u, size_t{hidl_vec<char>::kOffsetOfBuffer});
    EXPECT_EQ(0u, size_t{hidl_handle::kOffsetOfNativeHandle});
}

/** The fields after the pointer, where a receiver in another process looks for them. */
TEST(HidlLayoutTest, OfTheFieldsOfTheValueTypes) {
    struct Fields {
        const void* pointer;
        uint32_t size;
        bool owns;
    };
    const auto fieldsOf = [](const auto& value) {
        static_assert(sizeof(value) == sizeof(Fields), "same layout");
        return reinterpret_cast<const Fields&>(value);
    };
    const hidl_string text("four");
    EXPECT_EQ(text.c_str(), fieldsOf(text).pointer);
    EXPECT_EQ(4u, fieldsOf(text).size);
    EXPECT_TRUE(fieldsOf(text).owns);
    hidl_string borrowed;
    borrowed.setToExternal("four", 4);
    EXPECT_FALSE(fieldsOf(borrowed).owns);
    const hidl_vec<int> numbers{1, 2, 3};
    EXPECT_EQ(numbers.data(), fieldsOf(numbers).pointer);
    EXPECT_EQ(3u, fieldsOf(numbers).size);
    EXPECT_TRUE(fieldsOf(numbers).owns);
}

TEST(HidlLayoutTest, OfDebugInfo) {
    using hidl::base::V1_0::DebugInfo;
    EXPECT_SIZE(24, DebugInfo);
    EXPECT_AT(0, DebugInfo, pid);
    EXPECT_AT(8, DebugInfo, ptr);
    EXPECT_AT(16, DebugInfo, arch);
    EXPECT_EQ(0, valueOf(DebugInfo::Architecture::UNKNOWN));
    EXPECT_EQ(1, valueOf(DebugInfo::Architecture::IS_64BIT));
    EXPECT_EQ(2, valueOf(DebugInfo::Architecture::IS_32BIT));
}

TEST(HidlLayoutTest, OfTheRegister) {
    using hidl::manager::V1_0::IServiceManager;
    using Info = IServiceManager::InstanceDebugInfo;
    EXPECT_SIZE(64, Info);
    EXPECT_AT(0, Info, interfaceName);
    EXPECT_AT(16, Info, instanceName);
    EXPECT_AT(32, Info, pid);
    EXPECT_AT(40, Info, clientPids);
    EXPECT_AT(56, Info, arch);
    EXPECT_SIZE(1, IServiceManager::Transport);
    EXPECT_EQ(0, valueOf(IServiceManager::Transport::EMPTY));
    EXPECT_EQ(1, valueOf(IServiceManager::Transport::HWBINDER));
    EXPECT_EQ(2, valueOf(IServiceManager::Transport::PASSTHROUGH));
    EXPECT_EQ(-1, valueOf(IServiceManager::PidConstant::NO_PID));
}

TEST(HidlLayoutTest, OfTheMediaTypes) {
    using media::V1_0::AnwBuffer;
    using media::V1_0::AnwBufferAttributes;
    EXPECT_SIZE(16, media::V1_0::Fence);
    EXPECT_SIZE(40, AnwBufferAttributes);
    EXPECT_AT(0, AnwBufferAttributes, width);
    EXPECT_AT(4, AnwBufferAttributes, height);
    EXPECT_AT(8, AnwBufferAttributes, stride);
    EXPECT_AT(12, AnwBufferAttributes, format);
    EXPECT_AT(16, AnwBufferAttributes, usage);
    EXPECT_AT(20, AnwBufferAttributes, generationNumber);
    EXPECT_AT(24, AnwBufferAttributes, layerCount);
    EXPECT_AT(32, AnwBufferAttributes, id);
    EXPECT_SIZE(56, AnwBuffer);
    EXPECT_AT(0, AnwBuffer, nativeHandle);
    EXPECT_AT(16, AnwBuffer, attr);
    using media::V1_0::Rect;
    EXPECT_SIZE(16, Rect);
    EXPECT_AT(0, Rect, left);
    EXPECT_AT(4, Rect, top);
    EXPECT_AT(8, Rect, right);
    EXPECT_AT(12, Rect, bottom);
}

TEST(HidlLayoutTest, OfTheFrameTimestampsOfTheFirstBufferQueue) {
    using Queue = graphics::bufferqueue::V1_0::IGraphicBufferProducer;
    using Snapshot = Queue::FenceTimeSnapshot;
    EXPECT_SIZE(32, Snapshot);
    EXPECT_AT(0, Snapshot, state);
    EXPECT_AT(8, Snapshot, fence);
    EXPECT_AT(24, Snapshot, signalTimeNs);
    EXPECT_EQ(0, valueOf(Snapshot::State::EMPTY));
    EXPECT_EQ(1, valueOf(Snapshot::State::FENCE));
    EXPECT_EQ(2, valueOf(Snapshot::State::SIGNAL_TIME));
    using Delta = Queue::FrameEventsDelta;
    EXPECT_SIZE(200, Delta);
    EXPECT_AT(0, Delta, index);
    EXPECT_AT(8, Delta, frameNumber);
    EXPECT_AT(16, Delta, addPostCompositeCalled);
    EXPECT_AT(17, Delta, addRetireCalled);
    EXPECT_AT(18, Delta, addReleaseCalled);
    EXPECT_AT(24, Delta, postedTimeNs);
    EXPECT_AT(32, Delta, requestedPresentTimeNs);
    EXPECT_AT(40, Delta, latchTimeNs);
    EXPECT_AT(48, Delta, firstRefreshStartTimeNs);
    EXPECT_AT(56, Delta, lastRefreshStartTimeNs);
    EXPECT_AT(64, Delta, dequeueReadyTime);
    EXPECT_AT(72, Delta, gpuCompositionDoneFence);
    EXPECT_AT(104, Delta, displayPresentFence);
    EXPECT_AT(136, Delta, displayRetireFence);
    EXPECT_AT(168, Delta, releaseFence);
    EXPECT_SIZE(24, Queue::CompositorTiming);
    EXPECT_AT(0, Queue::CompositorTiming, deadlineNs);
    EXPECT_AT(8, Queue::CompositorTiming, intervalNs);
    EXPECT_AT(16, Queue::CompositorTiming, presentLatencyNs);
    EXPECT_SIZE(40, Queue::FrameEventHistoryDelta);
    EXPECT_AT(0, Queue::FrameEventHistoryDelta, deltas);
    EXPECT_AT(16, Queue::FrameEventHistoryDelta, compositorTiming);
}

TEST(HidlLayoutTest, OfTheFirstBufferQueue) {
    using Queue = graphics::bufferqueue::V1_0::IGraphicBufferProducer;
    EXPECT_EQ(0, valueOf(Queue::DisconnectMode::API));
    EXPECT_EQ(1, valueOf(Queue::DisconnectMode::ALL_LOCAL));
    using Input = Queue::QueueBufferInput;
    EXPECT_SIZE(88, Input);
    EXPECT_AT(0, Input, timestamp);
    EXPECT_AT(8, Input, isAutoTimestamp);
    EXPECT_AT(12, Input, dataSpace);
    EXPECT_AT(16, Input, crop);
    EXPECT_AT(32, Input, scalingMode);
    EXPECT_AT(36, Input, transform);
    EXPECT_AT(40, Input, stickyTransform);
    EXPECT_AT(48, Input, fence);
    EXPECT_AT(64, Input, surfaceDamage);
    EXPECT_AT(80, Input, getFrameTimestamps);
    using Output = Queue::QueueBufferOutput;
    EXPECT_SIZE(72, Output);
    EXPECT_AT(0, Output, width);
    EXPECT_AT(4, Output, height);
    EXPECT_AT(8, Output, transformHint);
    EXPECT_AT(12, Output, numPendingBuffers);
    EXPECT_AT(16, Output, nextFrameNumber);
    EXPECT_AT(24, Output, bufferReplaced);
    EXPECT_AT(32, Output, frameTimestamps);
}

TEST(HidlLayoutTest, OfTheSecondBufferQueue) {
    using Queue = graphics::bufferqueue::V2_0::IGraphicBufferProducer;
    using DequeueInput = Queue::DequeueBufferInput;
    EXPECT_SIZE(24, DequeueInput);
    EXPECT_AT(0, DequeueInput, width);
    EXPECT_AT(4, DequeueInput, height);
    EXPECT_AT(8, DequeueInput, format);
    EXPECT_AT(16, DequeueInput, usage);
    using DequeueOutput = Queue::DequeueBufferOutput;
    EXPECT_SIZE(32, DequeueOutput);
    EXPECT_AT(0, DequeueOutput, bufferAge);
    EXPECT_AT(8, DequeueOutput, bufferNeedsReallocation);
    EXPECT_AT(9, DequeueOutput, releaseAllBuffers);
    EXPECT_AT(16, DequeueOutput, fence);
    using Input = Queue::QueueBufferInput;
    EXPECT_SIZE(72, Input);
    EXPECT_AT(0, Input, timestamp);
    EXPECT_AT(8, Input, isAutoTimestamp);
    EXPECT_AT(12, Input, dataSpace);
    EXPECT_AT(16, Input, crop);
    EXPECT_AT(32, Input, transform);
    EXPECT_AT(36, Input, stickyTransform);
    EXPECT_AT(40, Input, fence);
    EXPECT_AT(56, Input, surfaceDamage);
    using Output = Queue::QueueBufferOutput;
    EXPECT_SIZE(32, Output);
    EXPECT_AT(0, Output, width);
    EXPECT_AT(4, Output, height);
    EXPECT_AT(8, Output, transformHint);
    EXPECT_AT(12, Output, numPendingBuffers);
    EXPECT_AT(16, Output, nextFrameNumber);
    EXPECT_AT(24, Output, bufferReplaced);
}

TEST(HidlLayoutTest, OfTheStatesOfTheSecondBufferQueue) {
    using graphics::bufferqueue::V2_0::ConnectionType;
    using graphics::bufferqueue::V2_0::SlotIndex;
    using BufferQueueStatus = graphics::bufferqueue::V2_0::Status;
    EXPECT_EQ(0, valueOf(BufferQueueStatus::OK));
    EXPECT_EQ(-12, valueOf(BufferQueueStatus::NO_MEMORY));
    EXPECT_EQ(-19, valueOf(BufferQueueStatus::NO_INIT));
    EXPECT_EQ(-22, valueOf(BufferQueueStatus::BAD_VALUE));
    EXPECT_EQ(-32, valueOf(BufferQueueStatus::DEAD_OBJECT));
    EXPECT_EQ(-38, valueOf(BufferQueueStatus::INVALID_OPERATION));
    EXPECT_EQ(-110, valueOf(BufferQueueStatus::TIMED_OUT));
    EXPECT_EQ(-5, valueOf(BufferQueueStatus::WOULD_BLOCK));
    EXPECT_EQ(-1, valueOf(BufferQueueStatus::UNKNOWN_ERROR));
    EXPECT_EQ(-1, valueOf(SlotIndex::INVALID));
    EXPECT_EQ(-1, valueOf(SlotIndex::UNSPECIFIED));
    EXPECT_EQ(-1, valueOf(ConnectionType::CURRENTLY_CONNECTED));
    EXPECT_EQ(1, valueOf(ConnectionType::EGL));
    EXPECT_EQ(2, valueOf(ConnectionType::CPU));
    EXPECT_EQ(3, valueOf(ConnectionType::MEDIA));
    EXPECT_EQ(4, valueOf(ConnectionType::CAMERA));
}

TEST(HidlLayoutTest, OfAHardwareBuffer) {
    using graphics::common::V1_2::HardwareBuffer;
    EXPECT_SIZE(56, HardwareBuffer);
    EXPECT_AT(0, HardwareBuffer, description);
    EXPECT_AT(40, HardwareBuffer, nativeHandle);
    EXPECT_SIZE(40, graphics::common::V1_2::HardwareBufferDescription);
    EXPECT_SIZE(16, graphics::common::V1_2::Rect);
}

TEST(HidlLayoutTest, OfThePixelFormats) {
    using graphics::common::V1_2::PixelFormat;
    EXPECT_EQ(1, valueOf(PixelFormat::RGBA_8888));
    EXPECT_EQ(2, valueOf(PixelFormat::RGBX_8888));
    EXPECT_EQ(3, valueOf(PixelFormat::RGB_888));
    EXPECT_EQ(4, valueOf(PixelFormat::RGB_565));
    EXPECT_EQ(5, valueOf(PixelFormat::BGRA_8888));
    EXPECT_EQ(0x10, valueOf(PixelFormat::YCBCR_422_SP));
    EXPECT_EQ(0x11, valueOf(PixelFormat::YCRCB_420_SP));
    EXPECT_EQ(0x14, valueOf(PixelFormat::YCBCR_422_I));
    EXPECT_EQ(0x16, valueOf(PixelFormat::RGBA_FP16));
    EXPECT_EQ(0x20, valueOf(PixelFormat::RAW16));
    EXPECT_EQ(0x21, valueOf(PixelFormat::BLOB));
    EXPECT_EQ(0x22, valueOf(PixelFormat::IMPLEMENTATION_DEFINED));
    EXPECT_EQ(0x23, valueOf(PixelFormat::YCBCR_420_888));
    EXPECT_EQ(0x24, valueOf(PixelFormat::RAW_OPAQUE));
    EXPECT_EQ(0x25, valueOf(PixelFormat::RAW10));
    EXPECT_EQ(0x26, valueOf(PixelFormat::RAW12));
    EXPECT_EQ(0x2b, valueOf(PixelFormat::RGBA_1010102));
    EXPECT_EQ(0x30, valueOf(PixelFormat::DEPTH_16));
    EXPECT_EQ(0x31, valueOf(PixelFormat::DEPTH_24));
    EXPECT_EQ(0x32, valueOf(PixelFormat::DEPTH_24_STENCIL_8));
    EXPECT_EQ(0x33, valueOf(PixelFormat::DEPTH_32F));
    EXPECT_EQ(0x34, valueOf(PixelFormat::DEPTH_32F_STENCIL_8));
    EXPECT_EQ(0x35, valueOf(PixelFormat::STENCIL_8));
    EXPECT_EQ(0x36, valueOf(PixelFormat::YCBCR_P010));
    EXPECT_EQ(0x37, valueOf(PixelFormat::HSV_888));
    EXPECT_EQ(0x20203859, valueOf(PixelFormat::Y8));
    EXPECT_EQ(0x20363159, valueOf(PixelFormat::Y16));
    EXPECT_EQ(0x32315659, valueOf(PixelFormat::YV12));
}

TEST(HidlLayoutTest, OfTheBufferUsages) {
    using graphics::common::V1_2::BufferUsage;
    const auto bit = [](int number) { return int64_t{1} << number; };
    EXPECT_EQ(0xf, valueOf(BufferUsage::CPU_READ_MASK));
    EXPECT_EQ(0, valueOf(BufferUsage::CPU_READ_NEVER));
    EXPECT_EQ(2, valueOf(BufferUsage::CPU_READ_RARELY));
    EXPECT_EQ(3, valueOf(BufferUsage::CPU_READ_OFTEN));
    EXPECT_EQ(0xf0, valueOf(BufferUsage::CPU_WRITE_MASK));
    EXPECT_EQ(0, valueOf(BufferUsage::CPU_WRITE_NEVER));
    EXPECT_EQ(0x20, valueOf(BufferUsage::CPU_WRITE_RARELY));
    EXPECT_EQ(0x30, valueOf(BufferUsage::CPU_WRITE_OFTEN));
    EXPECT_EQ(bit(8), valueOf(BufferUsage::GPU_TEXTURE));
    EXPECT_EQ(bit(9), valueOf(BufferUsage::GPU_RENDER_TARGET));
    EXPECT_EQ(bit(11), valueOf(BufferUsage::COMPOSER_OVERLAY));
    EXPECT_EQ(bit(12), valueOf(BufferUsage::COMPOSER_CLIENT_TARGET));
    EXPECT_EQ(bit(14), valueOf(BufferUsage::PROTECTED));
    EXPECT_EQ(bit(15), valueOf(BufferUsage::COMPOSER_CURSOR));
    EXPECT_EQ(bit(16), valueOf(BufferUsage::VIDEO_ENCODER));
    EXPECT_EQ(bit(17), valueOf(BufferUsage::CAMERA_OUTPUT));
    EXPECT_EQ(bit(18), valueOf(BufferUsage::CAMERA_INPUT));
    EXPECT_EQ(bit(20), valueOf(BufferUsage::RENDERSCRIPT));
    EXPECT_EQ(bit(22), valueOf(BufferUsage::VIDEO_DECODER));
    EXPECT_EQ(bit(23), valueOf(BufferUsage::SENSOR_DIRECT_DATA));
    EXPECT_EQ(bit(24), valueOf(BufferUsage::GPU_DATA_BUFFER));
    EXPECT_EQ(bit(25), valueOf(BufferUsage::GPU_CUBE_MAP));
    EXPECT_EQ(bit(26), valueOf(BufferUsage::GPU_MIPMAP_COMPLETE));
    EXPECT_EQ(bit(27), valueOf(BufferUsage::HW_IMAGE_ENCODER));
    EXPECT_EQ(0xf0000000, valueOf(BufferUsage::VENDOR_MASK));
    EXPECT_EQ(static_cast<int64_t>(0xffffULL << 48), valueOf(BufferUsage::VENDOR_MASK_HI));
}

TEST(HidlLayoutTest, OfTheDataspaces) {
    using graphics::common::V1_0::Dataspace;
    EXPECT_EQ(0, valueOf(Dataspace::UNKNOWN));
    EXPECT_EQ(1, valueOf(Dataspace::ARBITRARY));
    EXPECT_EQ(63 << 16, valueOf(Dataspace::STANDARD_MASK));
    EXPECT_EQ(1 << 16, valueOf(Dataspace::STANDARD_BT709));
    EXPECT_EQ(2 << 16, valueOf(Dataspace::STANDARD_BT601_625));
    EXPECT_EQ(3 << 16, valueOf(Dataspace::STANDARD_BT601_625_UNADJUSTED));
    EXPECT_EQ(4 << 16, valueOf(Dataspace::STANDARD_BT601_525));
    EXPECT_EQ(5 << 16, valueOf(Dataspace::STANDARD_BT601_525_UNADJUSTED));
    EXPECT_EQ(6 << 16, valueOf(Dataspace::STANDARD_BT2020));
    EXPECT_EQ(7 << 16, valueOf(Dataspace::STANDARD_BT2020_CONSTANT_LUMINANCE));
    EXPECT_EQ(8 << 16, valueOf(Dataspace::STANDARD_BT470M));
    EXPECT_EQ(9 << 16, valueOf(Dataspace::STANDARD_FILM));
    EXPECT_EQ(10 << 16, valueOf(Dataspace::STANDARD_DCI_P3));
    EXPECT_EQ(11 << 16, valueOf(Dataspace::STANDARD_ADOBE_RGB));
    EXPECT_EQ(31 << 22, valueOf(Dataspace::TRANSFER_MASK));
    EXPECT_EQ(1 << 22, valueOf(Dataspace::TRANSFER_LINEAR));
    EXPECT_EQ(2 << 22, valueOf(Dataspace::TRANSFER_SRGB));
    EXPECT_EQ(3 << 22, valueOf(Dataspace::TRANSFER_SMPTE_170M));
    EXPECT_EQ(4 << 22, valueOf(Dataspace::TRANSFER_GAMMA2_2));
    EXPECT_EQ(5 << 22, valueOf(Dataspace::TRANSFER_GAMMA2_6));
    EXPECT_EQ(6 << 22, valueOf(Dataspace::TRANSFER_GAMMA2_8));
    EXPECT_EQ(7 << 22, valueOf(Dataspace::TRANSFER_ST2084));
    EXPECT_EQ(8 << 22, valueOf(Dataspace::TRANSFER_HLG));
    EXPECT_EQ(7 << 27, valueOf(Dataspace::RANGE_MASK));
    EXPECT_EQ(1 << 27, valueOf(Dataspace::RANGE_FULL));
    EXPECT_EQ(2 << 27, valueOf(Dataspace::RANGE_LIMITED));
    EXPECT_EQ(3 << 27, valueOf(Dataspace::RANGE_EXTENDED));
    EXPECT_EQ(0x200, valueOf(Dataspace::SRGB_LINEAR));
    EXPECT_EQ(0x201, valueOf(Dataspace::SRGB));
    EXPECT_EQ(0x101, valueOf(Dataspace::JFIF));
    EXPECT_EQ(0x102, valueOf(Dataspace::BT601_625));
    EXPECT_EQ(0x103, valueOf(Dataspace::BT601_525));
    EXPECT_EQ(0x104, valueOf(Dataspace::BT709));
    EXPECT_EQ(0x08c20000, valueOf(Dataspace::V0_JFIF));
    EXPECT_EQ(0x10c10000, valueOf(Dataspace::V0_BT709));
    EXPECT_EQ(0x08810000, valueOf(Dataspace::V0_SRGB));
    EXPECT_EQ(0x1000, valueOf(Dataspace::DEPTH));
    EXPECT_EQ(0x1001, valueOf(Dataspace::SENSOR));
}

}  // namespace
}  // namespace hardware
}  // namespace android
