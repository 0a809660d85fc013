// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "BufferQueueCore"

#include "gui/BufferQueueCore.h"

#include <algorithm>
#include <atomic>

#include <unistd.h>

#include <log/log.h>

namespace android {
namespace {

String8 makeName() {
    static std::atomic<int32_t> sNext{0};
    return String8::format("unnamed-%d-%d", getpid(), sNext++);
}

uint64_t makeUniqueId() {
    static std::atomic<uint32_t> sNext{0};
    return static_cast<uint64_t>(getpid()) << 32 | sNext++;
}

}  // namespace

BufferQueueCore::BufferQueueCore() : mConsumerName(makeName()), mUniqueId(makeUniqueId()) {
    const int inUse = bufferCount_l();
    for (int slot = 0; slot < BufferQueueDefs::NUM_BUFFER_SLOTS; ++slot) {
        if (slot < inUse) {
            mFreeSlots.insert(slot);
        } else {
            mUnusedSlots.push_back(slot);
        }
    }
}

int BufferQueueCore::minUndequeuedBufferCount_l() const {
    return mMaxAcquiredBufferCount + (mAsyncMode || mDequeueBufferCannotBlock ? 1 : 0);
}

int BufferQueueCore::bufferCount_l() const {
    return bufferCount_l(mAsyncMode, mDequeueBufferCannotBlock, mMaxBufferCount);
}

int BufferQueueCore::bufferCount_l(bool asyncMode, bool dequeueCannotBlock,
                                   int maxBufferCount) const {
    const int extra = asyncMode || dequeueCannotBlock ? 1 : 0;
    return std::min(maxBufferCount, mMaxAcquiredBufferCount + mMaxDequeuedBufferCount + extra);
}

int BufferQueueCore::count_l(BufferState state) const {
    int count = 0;
    for (int slot : mActiveBuffers) count += mSlots[slot].mBufferState == state ? 1 : 0;
    return count;
}

bool BufferQueueCore::isSlot(int slot) {
    return slot >= 0 && slot < BufferQueueDefs::NUM_BUFFER_SLOTS;
}

bool BufferQueueCore::isDequeued_l(int slot) const {
    return isSlot(slot) && mSlots[slot].mBufferState == BufferState::DEQUEUED &&
           mSlots[slot].mGraphicBuffer != nullptr;
}

bool BufferQueueCore::adjustAvailableSlots_l(int delta) {
    const int spare = mFreeSlots.size() + static_cast<int>(mFreeBuffers.size());
    if (delta > static_cast<int>(mUnusedSlots.size()) || -delta > spare) return false;
    for (; delta > 0; --delta) {
        mFreeSlots.insert(mUnusedSlots.front());
        mUnusedSlots.pop_front();
    }
    for (; delta < 0; ++delta) {
        int slot;
        if (!mFreeSlots.empty()) {
            slot = mFreeSlots.takeFirst();
        } else {
            slot = mFreeBuffers.back();
            mFreeBuffers.pop_back();
        }
        clearSlot_l(slot);
        mUnusedSlots.push_back(slot);
    }
    return true;
}

void BufferQueueCore::clearSlot_l(int slot) {
    mSlots[slot] = BufferSlot();
    mSlots[slot].mNeedsReallocation = true;
    if (mLastQueuedSlot == slot) mLastQueuedSlot = INVALID_BUFFER_SLOT;
}

void BufferQueueCore::emptyActiveSlot_l(int slot) {
    mActiveBuffers.erase(slot);
    mFreeSlots.insert(slot);
    clearSlot_l(slot);
}

void BufferQueueCore::freeActiveBuffer_l(int slot) {
    mSlots[slot].mBufferState = BufferState::FREE;
    mActiveBuffers.erase(slot);
    mFreeBuffers.push_back(slot);
}

int BufferQueueCore::takeFreeBuffer_l() {
    const int slot = mFreeBuffers.front();
    mFreeBuffers.erase(mFreeBuffers.begin());
    return slot;
}

void BufferQueueCore::freeAllBuffers_l() {
    for (int slot : mFreeSlots) clearSlot_l(slot);
    for (int slot : mFreeBuffers) {
        mFreeSlots.insert(slot);
        clearSlot_l(slot);
    }
    mFreeBuffers.clear();
    while (!mActiveBuffers.empty()) emptyActiveSlot_l(*mActiveBuffers.begin());
    for (BufferItem& item : mQueue) {
        item.mIsStale = true;
        item.mAcquireCalled = false;
    }
}

void BufferQueueCore::discardFreeBuffers_l() {
    if (mConnectedProducerListener != nullptr && !mFreeBuffers.empty()) {
        mConnectedProducerListener->onBuffersDiscarded(
                std::vector<int32_t>(mFreeBuffers.begin(), mFreeBuffers.end()));
    }
    for (int slot : mFreeBuffers) {
        mFreeSlots.insert(slot);
        clearSlot_l(slot);
    }
    mFreeBuffers.clear();
}

void BufferQueueCore::waitWhileAllocating_l() const {
    while (mIsAllocating) mIsAllocatingCondition.wait(mMutex);
}

void BufferQueueCore::endAllocation_l() {
    mIsAllocating = false;
    mIsAllocatingCondition.notifyAll();
}

status_t BufferQueueCore::admit_l(const sp<GraphicBuffer>& buffer) {
    const status_t status = buffer->initCheck();
    if (status != NO_ERROR) return status;
    return mBudget.admit(buffer) ? NO_ERROR : status_t{NO_MEMORY};
}

}  // namespace android
