// SPDX-License-Identifier: Apache-2.0
#include "support/RecordingComponent.h"

using android::GraphicBuffer;
using android::sp;
using android::status_t;
using android::base::unique_fd;

namespace korvane::test {

std::vector<RecordingComponent::Submission> RecordingComponent::submissions() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mSubmissions;
}

std::vector<RecordingComponent::Submission> RecordingComponent::waitFor(size_t count) const {
    std::unique_lock<std::mutex> guard(mLock);
    mChanged.wait_for(guard, std::chrono::seconds(10),
                      [&] { return mSubmissions.size() >= count; });
    return mSubmissions;
}

std::vector<int> RecordingComponent::endsOfStream() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mEndsOfStream;
}

std::vector<RecordingComponent::DataSpaceChange> RecordingComponent::dataSpaceChanges() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mDataSpaceChanges;
}

status_t RecordingComponent::submitBuffer(int bufferId, const sp<GraphicBuffer>& buffer,
                                          int64_t timestampUs, int fenceFd) {
    std::lock_guard<std::mutex> guard(mLock);
    mSubmissions.push_back({bufferId, buffer, timestampUs, std::make_shared<unique_fd>(fenceFd)});
    mChanged.notify_all();
    return submitResult;
}

status_t RecordingComponent::submitEos(int bufferId) {
    std::lock_guard<std::mutex> guard(mLock);
    mEndsOfStream.push_back(bufferId);
    return eosResult;
}

void RecordingComponent::dispatchDataSpaceChanged(int dataSpace, int aspects, int pixelFormat) {
    std::lock_guard<std::mutex> guard(mLock);
    mDataSpaceChanges.push_back({static_cast<uint32_t>(dataSpace), aspects, pixelFormat});
}

}  // namespace korvane::test
