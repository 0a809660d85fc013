// SPDX-License-Identifier: Apache-2.0
// The mapping of one buffer of a video node.
#pragma once

#include <cstdint>

#include <sys/types.h>

namespace korvane::hardware::camera::desktop::V2_0::implementation {

/** Memory of a driver's that is unmapped with the object. Moves, and is then empty. Takes no lock.
 */
class MappedBuffer {
  public:
    MappedBuffer() = default;
    ~MappedBuffer() { reset(); }
    MappedBuffer(MappedBuffer&& other) noexcept;
    MappedBuffer& operator=(MappedBuffer&& other) = delete;

    /**
     * Maps that part of the node for reading and writing. Nothing may be mapped yet.
     *
     * @param node only looked at: the mapping outlives it
     * @return false with errno set, and nothing mapped
     */
    [[nodiscard]] bool map(int node, off_t offset, uint32_t length);
    /** Unmaps, if there is anything mapped. */
    void reset();
    /** Forgets the memory, which stays mapped as long as the process lives. */
    void leave();

    bool isMapped() const { return mData != nullptr; }
    /** Null while nothing is mapped. */
    uint8_t* data() const { return mData; }
    /** In bytes; 0 while nothing is mapped. */
    uint32_t length() const { return mLength; }

  private:
    uint8_t* mData = nullptr;
    uint32_t mLength = 0;
};

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
