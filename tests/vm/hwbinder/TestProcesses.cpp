// SPDX-License-Identifier: Apache-2.0
#include "TestProcesses.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace korvane::test {

namespace {

/** Lets nothing escape to the test program that goes on in the parent. */
[[noreturn]] void runChild(const std::function<void()>& body) noexcept {
    // A server is killed in the end: what it found wrong must show before.
    testing::GTEST_FLAG(break_on_failure) = true;
    body();
    fflush(nullptr);
    _exit(EXIT_SUCCESS);
}

}  // namespace

Event::Event() {
    if (pipe2(mPipe, O_CLOEXEC) != 0) abort();
}

Event::~Event() {
    close(mPipe[0]);
    close(mPipe[1]);
}

void Event::signal() const {
    const char byte = 0;
    if (write(mPipe[1], &byte, 1) != 1) abort();
}

bool Event::wait(int timeoutMs) const {
    pollfd readable{mPipe[0], POLLIN, 0};
    char byte;
    return poll(&readable, 1, timeoutMs) == 1 && read(mPipe[0], &byte, 1) == 1;
}

TestProcess::TestProcess(const std::function<void()>& body) {
    fflush(nullptr);
    mPid = fork();
    if (mPid != 0) return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    runChild(body);
}

TestProcess::~TestProcess() {
    if (mPid > 0) kill();
}

void TestProcess::expectSuccess() {
    int status = 0;
    ASSERT_EQ(mPid, waitpid(mPid, &status, 0));
    mPid = -1;
    EXPECT_TRUE(WIFEXITED(status)) << "ended by signal " << WTERMSIG(status);
    EXPECT_EQ(EXIT_SUCCESS, WEXITSTATUS(status));
}

void TestProcess::kill() {
    ::kill(mPid, SIGKILL);
    waitpid(mPid, nullptr, 0);
    mPid = -1;
}

void runInProcess(const std::function<void()>& body) {
    TestProcess(body).expectSuccess();
}

}  // namespace korvane::test
