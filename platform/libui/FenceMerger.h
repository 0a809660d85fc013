// SPDX-License-Identifier: Apache-2.0
// Merges fences that the kernel can't merge.
#pragma once

#include <array>
#include <list>
#include <mutex>
#include <vector>

#include <android-base/thread_annotations.h>
#include <android-base/unique_fd.h>

namespace android {

/**
 * A thread of the process's own, started with the first merge and never ended, waits for the
 * descriptors of each merge and then signals its result: the reading end of a pipe. It drops a
 * merge once nobody holds the result any longer. Thread-safe.
 */
class FenceMerger {
  public:
    /** Merges that may wait at a time: fences come from other processes and may never signal. */
    static constexpr size_t kMaxMerges = 64;

    /** Null with errno when there is no descriptor to wake the thread by; the next call retries. */
    static FenceMerger* instance();

    /**
     * A new descriptor that polls readable once both `fd1` and `fd2` have signalled or failed.
     * @return -1 with errno; EMFILE when kMaxMerges are waiting.
     */
    int merge(int fd1, int fd2) EXCLUDES(mMutex);

  private:
    struct Merge {
        /** Reset as they signal. */
        std::array<base::unique_fd, 2> fences;
        base::unique_fd result;
    };

    explicit FenceMerger(base::unique_fd wake);
    [[noreturn]] void run() EXCLUDES(mMutex);
    void waitForAny();
    static bool advance(Merge& merge);
    void wake();

    std::mutex mMutex;
    /** Not yet seen by the thread. */
    std::list<Merge> mNew GUARDED_BY(mMutex);
    /** All that wait, new ones included. */
    size_t mCount GUARDED_BY(mMutex) = 0;

    /** The thread's own. */
    std::list<Merge> mMerges;
    base::unique_fd mWake;
};

}  // namespace android
