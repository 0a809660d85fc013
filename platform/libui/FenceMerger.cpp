// SPDX-License-Identifier: Apache-2.0
#include "FenceMerger.h"

#include <cerrno>
#include <cstdint>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace android {
namespace {

short eventsOf(int fd, short wanted) {
    pollfd polled = {fd, wanted, 0};
    return poll(&polled, 1, 0) > 0 ? polled.revents : 0;
}

bool isWaiting(const base::unique_fd& fence) {
    return fence.get() != -1 && eventsOf(fence.get(), POLLIN) == 0;
}

base::unique_fd duplicate(int fd) {
    return base::unique_fd(fcntl(fd, F_DUPFD_CLOEXEC, 0));
}

}  // namespace

FenceMerger* FenceMerger::instance() {
    static std::mutex mutex;
    // Never destroyed: its thread runs until the process ends.
    static FenceMerger* merger GUARDED_BY(mutex) = nullptr;
    std::lock_guard<std::mutex> lock(mutex);
    if (merger == nullptr) {
        base::unique_fd wake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
        if (wake.get() == -1) return nullptr;
        merger = new FenceMerger(std::move(wake));
    }
    return merger;
}

FenceMerger::FenceMerger(base::unique_fd wake) : mWake(std::move(wake)) {
    std::thread([this] { run(); }).detach();
}

int FenceMerger::merge(int fd1, int fd2) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) return -1;
    base::unique_fd readable(ends[0]);
    Merge merge = {{duplicate(fd1), duplicate(fd2)}, base::unique_fd(ends[1])};
    if (merge.fences[0].get() == -1 || merge.fences[1].get() == -1) return -1;
    // What has signalled already needs neither the thread nor a place in its list.
    if (!advance(merge)) {
        std::lock_guard<std::mutex> lock(mMutex);
        if (mCount == kMaxMerges) {
            errno = EMFILE;
            return -1;
        }
        ++mCount;
        mNew.push_back(std::move(merge));
        wake();
    }
    return readable.release();
}

void FenceMerger::wake() {
    const uint64_t one = 1;
    // It can only fail when the counter is full, and then the thread is awake.
    (void)!write(mWake.get(), &one, sizeof(one));
}

bool FenceMerger::advance(Merge& merge) {
    const bool isWanted = (eventsOf(merge.result.get(), 0) & POLLERR) == 0;
    bool isDone = true;
    for (base::unique_fd& fence : merge.fences) {
        if (isWaiting(fence)) {
            isDone = false;
        } else {
            fence.reset();
        }
    }
    if (isDone) (void)!write(merge.result.get(), "", 1);
    return isDone || !isWanted;
}

void FenceMerger::run() {
    // Signals are for the process's other threads. This also blocks the SIGPIPE of a result that is
    // dropped just before it is signalled.
    sigset_t signals;
    sigfillset(&signals);
    pthread_sigmask(SIG_SETMASK, &signals, nullptr);
    for (;;) {
        waitForAny();
        uint64_t count;
        (void)!read(mWake.get(), &count, sizeof(count));
        std::lock_guard<std::mutex> lock(mMutex);
        mMerges.splice(mMerges.end(), mNew);
        for (auto merge = mMerges.begin(); merge != mMerges.end();) {
            if (advance(*merge)) {
                merge = mMerges.erase(merge);
                --mCount;
            } else {
                ++merge;
            }
        }
    }
}

void FenceMerger::waitForAny() {
    std::vector<pollfd> polled = {{mWake.get(), POLLIN, 0}};
    for (const Merge& merge : mMerges) {
        polled.push_back({merge.result.get(), 0, 0});
        for (const base::unique_fd& fence : merge.fences) {
            if (fence.get() != -1) polled.push_back({fence.get(), POLLIN, 0});
        }
    }
    poll(polled.data(), polled.size(), -1);
}

}  // namespace android
