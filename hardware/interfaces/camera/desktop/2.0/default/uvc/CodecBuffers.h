// SPDX-License-Identifier: Apache-2.0
// A frame source's codec buffers: which are free, and which are lent with which frame.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "uvc/CachedBuffer.h"

namespace android {

/**
 * The numbered buffers of the component. Each is free, then lent with a frame (or with none, for
 * the end of the stream), then free again, after those that were free before.
 *
 * Lending allocates nothing once every codec buffer has been lent.
 *
 * Part of a KorBufferSource and guarded by its mutex, as the frames in it must be: it has no lock
 * and no thread of its own.
 */
class CodecBuffers {
  public:
    /** Adds a free one. */
    void add(int32_t bufferId) { mFreeCodecBuffers.push_back(bufferId); }

    bool haveFree() const { return !mFreeCodecBuffers.empty(); }
    /** The one to be lent next, which stays free until then. Fatal without a free one. */
    int nextFree() const;

    /** Lends the one that nextFree() returned. What it was lent with before, if it was, goes. */
    void lendNext(const std::shared_ptr<AcquiredBuffer>& buffer);

    /**
     * Makes one free again.
     *
     * @param buffer what it was lent with; null for the end of the stream
     * @return false when it isn't lent
     */
    [[nodiscard]] bool takeBack(int32_t bufferId, std::shared_ptr<AcquiredBuffer>* buffer);

    /** Lets go of the frames of all that are lent, which are neither lent nor free then. */
    void forgetLent() { mLent.clear(); }

  private:
    struct Lent {
        int bufferId;
        std::shared_ptr<AcquiredBuffer> buffer;
    };

    std::vector<Lent>::iterator findLent(int bufferId);

    std::vector<int> mFreeCodecBuffers;  // the next to be lent first
    std::vector<Lent> mLent;
};

}  // namespace android
