// SPDX-License-Identifier: Apache-2.0
// Fence descriptors that are the kernel's own sync files, and waits that are interrupted.
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <fcntl.h>
#include <linux/sync_file.h>
#include <poll.h>
#include <sys/eventfd.h>

#include <android-base/unique_fd.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sync/sync.h>
#include <ui/Fence.h>

#include "support/LogRecorder.h"

namespace {

using android::Fence;
using android::sp;
using android::base::unique_fd;
using testing::ElementsAre;
using testing::IsEmpty;

using IoctlHook = std::function<int(int fd, unsigned long request, void* argument)>;
using PollHook = std::function<int(pollfd* polled, nfds_t count, int timeout)>;

// What the kernel does on this thread; nothing set is the kernel as it is.
thread_local IoctlHook tIoctl;
thread_local PollHook tPoll;

int fail(int error) {
    errno = error;
    return -1;
}

}  // namespace

extern "C" int __real_ioctl(int fd, unsigned long request, ...);
extern "C" int __real_poll(pollfd* polled, nfds_t count, int timeout);

extern "C" int __wrap_ioctl(int fd, unsigned long request, ...) {
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    return tIoctl ? tIoctl(fd, request, argument) : __real_ioctl(fd, request, argument);
}

extern "C" int __wrap_poll(pollfd* polled, nfds_t count, int timeout) {
    return tPoll ? tPoll(polled, count, timeout) : __real_poll(polled, count, timeout);
}

namespace {

class SyncTest : public testing::Test {
  protected:
    ~SyncTest() override {
        tIoctl = nullptr;
        tPoll = nullptr;
    }

    /** From now on every descriptor is a sync file of these points. */
    void setPoints(const std::vector<uint64_t>& times, int status = 1) {
        tIoctl = [=](int, unsigned long request, void* argument) {
            if (request != SYNC_IOC_FILE_INFO) return fail(ENOTTY);
            auto* const info = static_cast<sync_file_info*>(argument);
            mPointsAskedFor.push_back(info->num_fences);
            if (info->num_fences != 0) {
                auto* const points = reinterpret_cast<sync_fence_info*>(info->sync_fence_info);
                for (size_t i = 0; i < times.size(); ++i) points[i].timestamp_ns = times[i];
            }
            info->num_fences = static_cast<uint32_t>(times.size());
            info->status = status;
            return 0;
        };
    }

    const unique_fd mEvent{eventfd(0, EFD_CLOEXEC)};
    std::vector<uint32_t> mPointsAskedFor;
};

// Merging.

TEST_F(SyncTest, SyncFilesAreMergedByTheKernel) {
    unique_fd merged(eventfd(0, EFD_CLOEXEC));
    std::string name;
    std::vector<int> descriptors;
    tIoctl = [&](int fd, unsigned long request, void* argument) {
        EXPECT_EQ(static_cast<unsigned long>(SYNC_IOC_MERGE), request);
        auto* const data = static_cast<sync_merge_data*>(argument);
        name = data->name;
        descriptors = {fd, data->fd2};
        EXPECT_EQ(0u, data->flags);
        EXPECT_EQ(0u, data->pad);
        data->fence = merged.get();
        return 0;
    };
    EXPECT_EQ(merged.get(), sync_merge("two frames", 71, 72));
    EXPECT_EQ("two frames", name);
    EXPECT_THAT(descriptors, ElementsAre(71, 72));
}

TEST_F(SyncTest, TheNameOfAMergeIsCutToWhatTheKernelTakes) {
    std::string name;
    tIoctl = [&](int, unsigned long, void* argument) {
        auto* const data = static_cast<sync_merge_data*>(argument);
        name.assign(data->name, strnlen(data->name, sizeof(data->name)));
        return 0;
    };
    sync_merge(std::string(100, 'n').c_str(), 71, 72);
    EXPECT_EQ(std::string(31, 'n'), name);
}

// Times.

TEST_F(SyncTest, TheTimeOfASyncFileIsThatOfItsLatestPoint) {
    setPoints({300, 700, 500});
    int64_t time = 0;
    EXPECT_TRUE(sync_signal_time(71, &time));
    EXPECT_EQ(700, time);
    EXPECT_THAT(mPointsAskedFor, ElementsAre(0, 3));
}

TEST_F(SyncTest, AFenceOfASyncFileTellsTheKernelsTime) {
    ASSERT_EQ(0, eventfd_write(mEvent.get(), 1));
    const sp<Fence> fence = new Fence(fcntl(mEvent.get(), F_DUPFD_CLOEXEC, 0));
    setPoints({12345});
    EXPECT_EQ(12345, fence->getSignalTime());
}

TEST_F(SyncTest, APendingOrFailedSyncFileHasNoTime) {
    int64_t time = 77;
    for (int status : {0, -EIO}) {
        setPoints({300}, status);
        EXPECT_FALSE(sync_signal_time(71, &time)) << status;
    }
    EXPECT_EQ(77, time);
}

TEST_F(SyncTest, WhatTellsNoPointsOrAbsurdlyManyIsNoSyncFile) {
    int64_t time = 77;
    setPoints({});
    EXPECT_FALSE(sync_signal_time(71, &time));
    setPoints(std::vector<uint64_t>(1025, 300));
    EXPECT_FALSE(sync_signal_time(71, &time));
    EXPECT_THAT(mPointsAskedFor, ElementsAre(0, 0));
    EXPECT_EQ(77, time);
    setPoints(std::vector<uint64_t>(1024, 300));
    EXPECT_TRUE(sync_signal_time(71, &time));
}

TEST_F(SyncTest, ASyncFileThatStopsAnsweringHasNoTime) {
    int calls = 0;
    tIoctl = [&](int, unsigned long, void* argument) {
        static_cast<sync_file_info*>(argument)->num_fences = 1;
        static_cast<sync_file_info*>(argument)->status = 1;
        return ++calls == 1 ? 0 : fail(EINVAL);
    };
    int64_t time = 77;
    EXPECT_FALSE(sync_signal_time(71, &time));
    EXPECT_EQ(2, calls);
    EXPECT_EQ(77, time);
}

// Waiting.

TEST_F(SyncTest, AWaitGoesOnWhenItIsInterrupted) {
    ASSERT_EQ(0, eventfd_write(mEvent.get(), 1));
    std::vector<int> errors = {EINTR, EAGAIN};
    tPoll = [&](pollfd* polled, nfds_t count, int timeout) {
        EXPECT_EQ(-1, timeout);
        if (errors.empty()) return __real_poll(polled, count, timeout);
        const int error = errors.back();
        errors.pop_back();
        return fail(error);
    };
    EXPECT_EQ(0, sync_wait(mEvent.get(), -1));
    EXPECT_THAT(errors, IsEmpty());
}

TEST_F(SyncTest, InterruptionsDoNotMakeAWaitLonger) {
    const auto tooLate = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    tPoll = [&](pollfd*, nfds_t, int timeout) {
        if (timeout == 0) return 0;
        EXPECT_GT(timeout, 0);
        EXPECT_LE(timeout, 20);
        return std::chrono::steady_clock::now() < tooLate ? fail(EINTR) : fail(EFAULT);
    };
    EXPECT_EQ(-1, sync_wait(mEvent.get(), 20));
    EXPECT_EQ(ETIME, errno);
}

TEST_F(SyncTest, AWaitThatFailsTellsWhy) {
    tPoll = [](pollfd*, nfds_t, int) { return fail(ENOMEM); };
    EXPECT_EQ(-1, sync_wait(mEvent.get(), 20));
    EXPECT_EQ(ENOMEM, errno);
    const sp<Fence> fence = new Fence(fcntl(mEvent.get(), F_DUPFD_CLOEXEC, 0));
    EXPECT_EQ(-ENOMEM, fence->wait(20));
}

TEST_F(SyncTest, AWaitForEverComplainsAfterThreeSecondsAndGoesOn) {
    korvane::test::LogRecorder log;
    const sp<Fence> fence = new Fence(fcntl(mEvent.get(), F_DUPFD_CLOEXEC, 0));
    std::vector<int> waits;
    std::vector<size_t> linesBefore;
    tPoll = [&](pollfd* polled, nfds_t, int timeout) {
        waits.push_back(timeout);
        linesBefore.push_back(log.lines().size());
        polled->revents = POLLIN;
        return timeout < 0 ? 1 : 0;  // signals after that
    };
    EXPECT_EQ(android::NO_ERROR, fence->waitForever("encoder"));
    ASSERT_EQ(2u, waits.size());
    EXPECT_GT(waits[0], 0);
    EXPECT_LE(waits[0], 3000);
    EXPECT_EQ(-1, waits[1]);
    EXPECT_THAT(linesBefore, ElementsAre(0, 1));
    EXPECT_TRUE(log.has(ANDROID_LOG_ERROR, "Fence",
                        "encoder: fence " + std::to_string(fence->get()) +
                                " has not signalled within 3000 ms"));
}

TEST_F(SyncTest, ThereIsNoWaitForWhatIsNoDescriptor) {
    tPoll = [](pollfd*, nfds_t, int) {
        ADD_FAILURE() << "poll was called";
        return 0;
    };
    EXPECT_EQ(-1, sync_wait(-1, 20));
    EXPECT_EQ(EINVAL, errno);
}

}  // namespace
