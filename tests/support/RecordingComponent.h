// SPDX-License-Identifier: Apache-2.0
// A consumer of the frame source that remembers what it was lent.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include <android-base/unique_fd.h>

#include "uvc/ComponentWrapper.h"

namespace korvane::test {

/** Thread-safe except for the results, which are set while no frame is in flight. */
class RecordingComponent : public android::ComponentWrapper {
  public:
    struct Submission {
        int bufferId;
        android::sp<android::GraphicBuffer> buffer;
        int64_t timestampUs;
        std::shared_ptr<android::base::unique_fd> fence;  // holds -1 if there is none
    };

    struct DataSpaceChange {
        uint32_t dataSpace;
        int aspects;
        int pixelFormat;
    };

    /** What submitBuffer() and submitEos() return. */
    android::status_t submitResult = android::OK;
    android::status_t eosResult = android::OK;

    /** Everything submitted, refused or not. */
    std::vector<Submission> submissions() const;
    /** Waits up to ten seconds for this many. */
    std::vector<Submission> waitFor(size_t count) const;
    std::vector<int> endsOfStream() const;
    std::vector<DataSpaceChange> dataSpaceChanges() const;

    android::status_t submitBuffer(int bufferId, const android::sp<android::GraphicBuffer>& buffer,
                                   int64_t timestampUs, int fenceFd) override;
    android::status_t submitEos(int bufferId) override;
    void dispatchDataSpaceChanged(int dataSpace, int aspects, int pixelFormat) override;

  private:
    mutable std::mutex mLock;
    mutable std::condition_variable mChanged;
    std::vector<Submission> mSubmissions;
    std::vector<int> mEndsOfStream;
    std::vector<DataSpaceChange> mDataSpaceChanges;
};

}  // namespace korvane::test
