// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include <linux/sync_file.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <time.h>
#include <unistd.h>

#include <sync/sync.h>

#include "FenceMerger.h"

namespace {

// More than any merged sync file has; the descriptor may be something else that answers the
// request.
constexpr uint32_t kMaxPoints = 1024;

int64_t nowMs() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * int64_t{1000} + now.tv_nsec / 1000000;
}

bool isInterrupted(int error) {
    return error == EINTR || error == EAGAIN;
}

int fail(int error) {
    errno = error;
    return -1;
}

}  // namespace

int sync_wait(int fd, int timeout) {
    if (fd < 0) return fail(EINVAL);
    const int64_t deadline = nowMs() + timeout;
    pollfd polled = {fd, POLLIN, 0};
    for (;;) {
        const int wait =
                timeout < 0 ? -1 : static_cast<int>(std::max<int64_t>(deadline - nowMs(), 0));
        const int ready = poll(&polled, 1, wait);
        if (ready > 0) return polled.revents & (POLLERR | POLLNVAL) ? fail(EINVAL) : 0;
        if (ready == 0) return fail(ETIME);
        if (!isInterrupted(errno)) return -1;
    }
}

int sync_merge(const char* name, int fd1, int fd2) {
    sync_merge_data data = {};
    strncpy(data.name, name, sizeof(data.name) - 1);
    data.fd2 = fd2;
    if (ioctl(fd1, SYNC_IOC_MERGE, &data) == 0) return data.fence;
    android::FenceMerger* const merger = android::FenceMerger::instance();
    return merger == nullptr ? -1 : merger->merge(fd1, fd2);
}

bool sync_signal_time(int fd, int64_t* outTimeNs) {
    sync_file_info info = {};
    if (ioctl(fd, SYNC_IOC_FILE_INFO, &info) != 0 || info.num_fences > kMaxPoints) return false;
    std::vector<sync_fence_info> points(info.num_fences);
    info.sync_fence_info = reinterpret_cast<uintptr_t>(points.data());
    if (points.empty() || ioctl(fd, SYNC_IOC_FILE_INFO, &info) != 0 || info.status != 1) {
        return false;
    }
    int64_t latest = 0;
    for (const sync_fence_info& point : points) {
        latest = std::max(latest, static_cast<int64_t>(point.timestamp_ns));
    }
    *outTimeNs = latest;
    return true;
}
