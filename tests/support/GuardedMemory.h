// SPDX-License-Identifier: Apache-2.0
// Memory between pages that nobody may touch, and pictures in it: reading or writing beyond it ends
// the test, even in a library that no sanitizer looks into.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>

#include <sys/mman.h>
#include <unistd.h>

#include "support/YCbCrPicture.h"

namespace korvane::test {

/** Which end of the memory is exactly at a page's end. There are guards at both ends. */
enum class Tight { FRONT, BEHIND };

class GuardedMemory {
  public:
    GuardedMemory(size_t size, Tight tight)
        : mSize((size + page() - 1) / page() * page() + 2 * page()),
          mPages(static_cast<uint8_t*>(
                  mmap(nullptr, mSize, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0))) {
        uint8_t* const inner = mPages + page();
        const size_t innerSize = mSize - 2 * page();
        if (innerSize > 0 && mprotect(inner, innerSize, PROT_READ | PROT_WRITE) != 0) abort();
        mData = tight == Tight::FRONT ? inner : inner + innerSize - size;
    }
    ~GuardedMemory() { munmap(mPages, mSize); }
    GuardedMemory(const GuardedMemory&) = delete;
    GuardedMemory& operator=(const GuardedMemory&) = delete;

    uint8_t* data() const { return mData; }

  private:
    static size_t page() { return sysconf(_SC_PAGESIZE); }

    const size_t mSize;
    uint8_t* const mPages;
    uint8_t* mData;
};

/** A picture with each of its planes between guards of its own. */
class GuardedPicture {
  public:
    using Layout = YCbCrPicture::Layout;

    /**
     * @param padding bytes after each row
     * @param lastRowPadded whether there is padding after the last row of a plane, too
     */
    GuardedPicture(Layout layout, uint32_t width, uint32_t height, size_t padding,
                   bool lastRowPadded, Tight tight) {
        const bool interleaved = layout == YCbCrPicture::NV12 || layout == YCbCrPicture::NV21;
        const bool cbFirst = layout == YCbCrPicture::NV12 || layout == YCbCrPicture::I420;
        const size_t chromaRow = (width + 1) / 2 * (interleaved ? 2 : 1);
        const size_t chromaRows = (height + 1) / 2;
        mPlanes.chroma_step = interleaved ? 2 : 1;
        mPlanes.ystride = width + padding;
        mPlanes.cstride = chromaRow + padding;
        const size_t cut = lastRowPadded ? 0 : padding;
        const size_t chroma = mPlanes.cstride * chromaRows - cut;
        mLuma.emplace(mPlanes.ystride * height - cut, tight);
        mFirst.emplace(chroma, tight);
        if (!interleaved) mSecond.emplace(chroma, tight);
        uint8_t* const first = mFirst->data();
        uint8_t* const second = interleaved ? first + 1 : mSecond->data();
        mPlanes.y = mLuma->data();
        mPlanes.cb = cbFirst ? first : second;
        mPlanes.cr = cbFirst ? second : first;
        drawPicture(mPlanes, width, height);
    }

    const android_ycbcr& planes() const { return mPlanes; }

  private:
    std::optional<GuardedMemory> mLuma;
    std::optional<GuardedMemory> mFirst;
    std::optional<GuardedMemory> mSecond;
    android_ycbcr mPlanes = {};
};

}  // namespace korvane::test
