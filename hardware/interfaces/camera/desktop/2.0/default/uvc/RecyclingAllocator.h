// SPDX-License-Identifier: Apache-2.0
// Memory for objects that come and go with every frame.
#pragma once

#include <cstddef>
#include <memory>
#include <new>
#include <vector>

namespace android {

struct BlockDeleter {
    void operator()(void* block) const { ::operator delete(block); }
};
using FreeBlocks = std::vector<std::unique_ptr<void, BlockDeleter>>;

/**
 * An allocator for std::allocate_shared that keeps the memory of objects which have gone for those
 * to come, until the last object and the last copy of the allocator have gone. One allocator and
 * its copies serve objects of one type, one at a time to a block.
 *
 * Not thread-safe: whatever guards the objects' coming and going guards it, too.
 */
template <typename T>
class RecyclingAllocator {
  public:
    using value_type = T;

    RecyclingAllocator() : mBlocks(std::make_shared<FreeBlocks>()) {}
    template <typename U>
    RecyclingAllocator(const RecyclingAllocator<U>& other) : mBlocks(other.mBlocks) {}

    T* allocate(size_t count) {
        if (mBlocks->empty()) return std::allocator<T>().allocate(count);
        T* const block = static_cast<T*>(mBlocks->back().release());
        mBlocks->pop_back();
        return block;
    }
    void deallocate(T* block, size_t /*count*/) { mBlocks->emplace_back(block); }

    template <typename U>
    bool operator==(const RecyclingAllocator<U>& other) const {
        return mBlocks == other.mBlocks;
    }
    template <typename U>
    bool operator!=(const RecyclingAllocator<U>& other) const {
        return !(*this == other);
    }

  private:
    template <typename U>
    friend class RecyclingAllocator;

    std::shared_ptr<FreeBlocks> mBlocks;
};

}  // namespace android
