// SPDX-License-Identifier: Apache-2.0
// A picture in memory that processes share.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include <cutils/native_handle.h>
#include <hardware/gralloc.h>
#include <nativebase/nativebase.h>
#include <system/graphics.h>
#include <ui/ANativeObjectBase.h>
#include <ui/PixelFormat.h>
#include <ui/Rect.h>
#include <utils/Errors.h>
#include <utils/Flattenable.h>
#include <utils/RefBase.h>

namespace android {

class BufferMapping;

/**
 * Pixels in a memfd that is sealed against shrinking, mapped when the buffer is made or imported
 * and until it is destroyed, so that neither a lock nor another process can make the memory fault.
 * The attributes are ANativeWindowBuffer's members.
 *
 * Constructors don't fail: ask initCheck(). The number of locks, the id and the memory may be used
 * from several threads; setGenerationNumber() and unflatten() may not run alongside anything else.
 */
class GraphicBuffer : public ANativeObjectBase<ANativeWindowBuffer, GraphicBuffer, RefBase>,
                      public Flattenable<GraphicBuffer> {
    friend class Flattenable<GraphicBuffer>;

  public:
    enum {
        USAGE_SW_READ_NEVER = GRALLOC_USAGE_SW_READ_NEVER,
        USAGE_SW_READ_RARELY = GRALLOC_USAGE_SW_READ_RARELY,
        USAGE_SW_READ_OFTEN = GRALLOC_USAGE_SW_READ_OFTEN,
        USAGE_SW_READ_MASK = GRALLOC_USAGE_SW_READ_MASK,
        USAGE_SW_WRITE_NEVER = GRALLOC_USAGE_SW_WRITE_NEVER,
        USAGE_SW_WRITE_RARELY = GRALLOC_USAGE_SW_WRITE_RARELY,
        USAGE_SW_WRITE_OFTEN = GRALLOC_USAGE_SW_WRITE_OFTEN,
        USAGE_SW_WRITE_MASK = GRALLOC_USAGE_SW_WRITE_MASK,
        USAGE_SOFTWARE_MASK = USAGE_SW_READ_MASK | USAGE_SW_WRITE_MASK,
        USAGE_PROTECTED = GRALLOC_USAGE_PROTECTED,
        USAGE_HW_TEXTURE = GRALLOC_USAGE_HW_TEXTURE,
        USAGE_HW_RENDER = GRALLOC_USAGE_HW_RENDER,
        USAGE_HW_VIDEO_ENCODER = GRALLOC_USAGE_HW_VIDEO_ENCODER,
        USAGE_CURSOR = GRALLOC_USAGE_CURSOR,
    };

    /** What becomes of the handle that a buffer is made from. */
    enum HandleWrapMethod : uint8_t {
        /** Borrowed; it must outlive the buffer. */
        WRAP_HANDLE,
        /** Owned from now on, also when initCheck() fails. */
        TAKE_HANDLE,
        /** Imported; closed and deleted on success, left to the caller on failure. */
        TAKE_UNREGISTERED_HANDLE,
        /** A copy is imported; the original stays the caller's. */
        CLONE_HANDLE,
    };

    /** Empty, to be filled by unflatten(). */
    GraphicBuffer();

    /**
     * Allocates. Width or height 0 makes a 1x1 buffer, fewer than one layer makes one. initCheck():
     * BAD_VALUE for a size or format that makes no sense here (more than 32768 rows or columns,
     * more than 256 MiB, a BLOB of more than one row, several layers), NO_MEMORY when the kernel
     * refuses.
     */
    GraphicBuffer(uint32_t inWidth, uint32_t inHeight, PixelFormat inFormat, uint32_t inLayerCount,
                  uint64_t inUsage, std::string requestorName = "<Unknown>");

    /**
     * Imports a handle. initCheck(): BAD_VALUE when it isn't one of this port's, disagrees with the
     * attributes, or its memory can shrink, is too small or can't be mapped.
     */
    GraphicBuffer(const native_handle_t* inHandle, HandleWrapMethod method, uint32_t inWidth,
                  uint32_t inHeight, PixelFormat inFormat, uint32_t inLayerCount, uint64_t inUsage,
                  uint32_t inStride);

    status_t initCheck() const { return mInitCheck; }

    uint32_t getWidth() const { return static_cast<uint32_t>(width); }
    uint32_t getHeight() const { return static_cast<uint32_t>(height); }
    /** In pixels; of YCbCr formats, of the luma plane. */
    uint32_t getStride() const { return static_cast<uint32_t>(stride); }
    uint64_t getUsage() const { return usage; }
    PixelFormat getPixelFormat() const { return format; }
    uint32_t getLayerCount() const { return static_cast<uint32_t>(layerCount); }
    /** In bytes; 0 without memory. */
    uint32_t getMemorySize() const;
    Rect getBounds() const { return Rect(width, height); }

    /** Unique among all buffers; the same in every process that imports this one. */
    uint64_t getId() const { return mId; }

    uint32_t getGenerationNumber() const { return mGenerationNumber; }
    void setGenerationNumber(uint32_t generation) { mGenerationNumber = generation; }

    ANativeWindowBuffer* getNativeBuffer() const;
    static sp<GraphicBuffer> from(ANativeWindowBuffer* buffer);

    /** Whether this buffer doesn't satisfy such a request. Extra usage does no harm. */
    bool needsReallocation(uint32_t inWidth, uint32_t inHeight, PixelFormat inFormat,
                           uint32_t inLayerCount, uint64_t inUsage) const;

    /**
     * Gives the CPU the start of the pixels until unlock(); locks nest. `inUsage` holds SW bits.
     * @param rect    what will be touched; `vaddr` is the start of the buffer all the same.
     * @param fenceFd taken over and waited for, -1 for none; only when `rect` lies outside the
     *                buffer does it stay the caller's.
     * @param outBytesPerPixel, outBytesPerStride  -1 when planes differ; each may be null.
     * @return NO_ERROR; BAD_VALUE for a rectangle outside the buffer, a usage without SW bits, a
     *         buffer made without any, or YCbCr_420_888, which only lockYCbCr() opens. Then `vaddr`
     *         is left alone.
     */
    status_t lock(uint32_t inUsage, void** vaddr, int32_t* outBytesPerPixel = nullptr,
                  int32_t* outBytesPerStride = nullptr);
    status_t lock(uint32_t inUsage, const Rect& rect, void** vaddr,
                  int32_t* outBytesPerPixel = nullptr, int32_t* outBytesPerStride = nullptr);
    status_t lockAsync(uint32_t inUsage, void** vaddr, int fenceFd,
                       int32_t* outBytesPerPixel = nullptr, int32_t* outBytesPerStride = nullptr);
    status_t lockAsync(uint32_t inUsage, const Rect& rect, void** vaddr, int fenceFd,
                       int32_t* outBytesPerPixel = nullptr, int32_t* outBytesPerStride = nullptr);
    status_t lockAsync(uint64_t inProducerUsage, uint64_t inConsumerUsage, const Rect& rect,
                       void** vaddr, int fenceFd, int32_t* outBytesPerPixel = nullptr,
                       int32_t* outBytesPerStride = nullptr);

    /** The same for the planes of YCbCr_420_888, YCrCb_420_SP and YV12; others are BAD_VALUE. */
    status_t lockYCbCr(uint32_t inUsage, android_ycbcr* ycbcr);
    status_t lockYCbCr(uint32_t inUsage, const Rect& rect, android_ycbcr* ycbcr);
    status_t lockAsyncYCbCr(uint32_t inUsage, android_ycbcr* ycbcr, int fenceFd);
    status_t lockAsyncYCbCr(uint32_t inUsage, const Rect& rect, android_ycbcr* ycbcr, int fenceFd);

    /** Ends the latest lock. Always NO_ERROR; a missing lock is logged. */
    status_t unlock();
    /** The same; `fenceFd` becomes -1, since memory needs no release fence. */
    status_t unlockAsync(int* fenceFd);

    /** Flattenable: the attributes and the handle's numbers; descriptors travel separately. */
    size_t getFlattenedSize() const;
    size_t getFdCount() const;
    status_t flatten(void*& buffer, size_t& size, int*& fds, size_t& count) const;
    /**
     * Becomes the flattened buffer, importing a copy of its handle. Data without descriptors and
     * handle numbers makes an empty buffer. It may come from anybody.
     * @return NO_MEMORY when less data or fewer descriptors are given than announced; BAD_VALUE as
     *         for importing, or for data that is no buffer.
     */
    status_t unflatten(const void*& buffer, size_t& size, const int*& fds, size_t& count);

  private:
    enum class Owner { NONE, HANDLE };

    ~GraphicBuffer() override;
    GraphicBuffer(const GraphicBuffer&) = delete;
    GraphicBuffer& operator=(const GraphicBuffer&) = delete;

    void clear();
    void setAttributes(uint32_t inWidth, uint32_t inHeight, PixelFormat inFormat,
                       uint32_t inLayerCount, uint64_t inUsage, uint32_t inStride);
    status_t allocate(const std::string& requestorName);
    status_t import(const native_handle_t* inHandle, Owner owner);
    status_t importCopy(const native_handle_t* inHandle);
    status_t prepareLock(uint64_t lockUsage, int fenceFd) const;
    bool contains(const Rect& rect) const;

    status_t mInitCheck = NO_INIT;
    Owner mOwner = Owner::NONE;
    uint64_t mId;
    uint32_t mGenerationNumber = 0;
    std::unique_ptr<BufferMapping> mMapping;
    std::atomic<int> mLocks{0};
};

}  // namespace android
