// SPDX-License-Identifier: Apache-2.0
#include "Processes.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <utility>

#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace korvane::test {

using android::base::unique_fd;

namespace {

constexpr int kPatienceMs = 60000;

std::pair<unique_fd, unique_fd> makeEnds() {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
        throw std::runtime_error("no socket pair");
    }
    return {unique_fd(ends[0]), unique_fd(ends[1])};
}

bool waitReadable(int fd, int timeoutMs) {
    pollfd entry{fd, POLLIN, 0};
    return TEMP_FAILURE_RETRY(poll(&entry, 1, timeoutMs)) > 0;
}

void dieWithTheTest() {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
}

int reap(pid_t pid) {
    int status = 0;
    TEMP_FAILURE_RETRY(waitpid(pid, &status, 0));
    return status;
}

}  // namespace

void Line::say(char what) {
    EXPECT_EQ(1, TEMP_FAILURE_RETRY(send(mFd.get(), &what, 1, MSG_NOSIGNAL)));
}

char Line::hear() {
    char what = 0;
    if (!waitReadable(mFd.get(), kPatienceMs)) return 0;
    return TEMP_FAILURE_RETRY(read(mFd.get(), &what, 1)) == 1 ? what : 0;
}

ForkedProcess::ForkedProcess(const Body& body) : mLine(unique_fd()) {
    auto [testEnd, ownEnd] = makeEnds();
    fflush(nullptr);
    mPid = fork();
    if (mPid == -1) throw std::runtime_error("no fork");
    if (mPid == 0) {
        dieWithTheTest();
        testEnd.reset();
        Line test(std::move(ownEnd));
        body(test);
        fflush(nullptr);
        _exit(testing::Test::HasFailure() ? EXIT_FAILURE : EXIT_SUCCESS);
    }
    mLine = Line(std::move(testEnd));
}

ForkedProcess::~ForkedProcess() {
    kill();
}

int ForkedProcess::wait() {
    if (mPid != -1) mStatus = reap(std::exchange(mPid, -1));
    return mStatus;
}

void ForkedProcess::kill() {
    if (mPid != -1) ::kill(mPid, SIGKILL);
    wait();
}

RegisterProcess::RegisterProcess() {
    const auto program = std::filesystem::read_symlink("/proc/self/exe").parent_path() / ".." /
                         "bin" / "hwservicemanager";
    auto [testEnd, ownEnd] = makeEnds();
    mPid = fork();
    if (mPid == -1) throw std::runtime_error("no fork");
    if (mPid == 0) {
        dieWithTheTest();
        dup2(ownEnd.get(), STDERR_FILENO);
        execl(program.c_str(), program.c_str(), nullptr);
        _exit(127);
    }
    mLogEnd = std::move(testEnd);
    ownEnd.reset();
    if (!waitForLog("Ready")) ADD_FAILURE() << "hwservicemanager does not start:\n" << mLog;
}

RegisterProcess::~RegisterProcess() {
    ::kill(mPid, SIGKILL);
    reap(mPid);
}

bool RegisterProcess::waitForLog(const std::string& text) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(kPatienceMs);
    while (mLog.find(text) == std::string::npos) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                end - std::chrono::steady_clock::now());
        char part[512];
        if (left.count() <= 0 || !waitReadable(mLogEnd.get(), left.count())) return false;
        const ssize_t length = TEMP_FAILURE_RETRY(read(mLogEnd.get(), part, sizeof(part)));
        if (length <= 0) return false;
        mLog.append(part, length);
    }
    return true;
}

}  // namespace korvane::test
