// SPDX-License-Identifier: Apache-2.0
// Text for descriptors of others: what each kind takes, and that none holds the writer up.

#include "DebugOutput.h"

#include <algorithm>
#include <csignal>
#include <functional>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace {

// What becomes of each write(); the linker leads them and the other calls here.
std::function<ssize_t(int, const void*, size_t)> sWrite;
unsigned long sFileSystem = 0;  // every file's, unless it is 0
std::vector<timespec> sWaits;   // for signals, at most

}  // namespace

extern "C" int __real_fstatfs(int fd, struct statfs* status);
extern "C" int __real_sigtimedwait(const sigset_t* set, siginfo_t* info, const timespec* time);

extern "C" int __wrap_fstatfs(int fd, struct statfs* status) {
    const int result = __real_fstatfs(fd, status);
    if (sFileSystem != 0) status->f_type = static_cast<__fsword_t>(sFileSystem);
    return result;
}

extern "C" int __wrap_sigtimedwait(const sigset_t* set, siginfo_t* info, const timespec* time) {
    sWaits.push_back(*time);
    return __real_sigtimedwait(set, info, time);
}

extern "C" ssize_t __real_write(int fd, const void* bytes, size_t size);

extern "C" ssize_t __wrap_write(int fd, const void* bytes, size_t size) {
    return sWrite ? sWrite(fd, bytes, size) : __real_write(fd, bytes, size);
}

namespace korvane::hardware::camera::desktop::V2_0::implementation {
namespace {

class DebugOutputTest : public testing::Test {
  protected:
    ~DebugOutputTest() override {
        sWrite = nullptr;
        sFileSystem = 0;
        for (int fd : mEnds) {
            if (fd >= 0) close(fd);
        }
    }

    void makePipe() { ASSERT_EQ(0, pipe2(mEnds, O_CLOEXEC)); }
    void closeReader() {
        close(mEnds[0]);
        mEnds[0] = -1;
    }
    std::string read() {
        std::string text(1 << 20, '\0');
        const ssize_t size = ::read(mEnds[0], text.data(), text.size());
        text.resize(size < 0 ? 0 : size);
        return text;
    }

    int mEnds[2] = {-1, -1};
};

TEST_F(DebugOutputTest, APipeGetsTheText) {
    makePipe();
    writeAtOnce(mEnds[1], "status\n");
    EXPECT_EQ("status\n", read());
}

TEST_F(DebugOutputTest, AFullPipeGetsWhatItTakes) {
    makePipe();
    const std::string text(200000, 'x');
    writeAtOnce(mEnds[1], text);
    EXPECT_EQ(std::string(65536, 'x'), read());
}

TEST_F(DebugOutputTest, APipeIsLeftAsItWas) {
    makePipe();
    // Of a number that fcntl() could take for nothing else.
    const int pipe = fcntl(mEnds[1], F_DUPFD_CLOEXEC, 500);
    ASSERT_EQ(0, fcntl(pipe, F_SETFL, O_APPEND));
    const int before = fcntl(pipe, F_GETFL);
    writeAtOnce(pipe, "status");
    EXPECT_EQ("status", read());
    EXPECT_EQ(before, fcntl(pipe, F_GETFL));
    EXPECT_EQ(O_APPEND, before & (O_APPEND | O_NONBLOCK));
    close(pipe);
}

// Fills the part of the stack that the next call will use.
[[gnu::noinline]] void soilTheStack() {
    volatile char soiled[4096];
    for (volatile char& byte : soiled) byte = '\xff';
}

TEST_F(DebugOutputTest, OtherSignalsArriveWhileAPipeIsWritten) {
    makePipe();
    sigset_t blocked;
    sWrite = [&](int, const void*, size_t size) {
        pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
        return static_cast<ssize_t>(size);
    };
    soilTheStack();
    writeAtOnce(mEnds[1], "status");
    EXPECT_EQ(1, sigismember(&blocked, SIGPIPE));
    for (int other : {SIGHUP, SIGTERM, SIGUSR1, SIGRTMAX}) {
        EXPECT_EQ(0, sigismember(&blocked, other)) << other;
    }
}

// An unblocked SIGPIPE would end the test program here.
TEST_F(DebugOutputTest, APipeThatNobodyReadsRaisesNoSignal) {
    makePipe();
    closeReader();
    writeAtOnce(mEnds[1], "status");
    sigset_t pending;
    sigpending(&pending);
    EXPECT_EQ(0, sigismember(&pending, SIGPIPE));
    sigset_t blocked;
    pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    EXPECT_EQ(0, sigismember(&blocked, SIGPIPE));
}

TEST_F(DebugOutputTest, ASignalThatIsBlockedAnywayStaysSo) {
    sigset_t pipe;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
    makePipe();
    writeAtOnce(mEnds[1], "status");
    sigset_t blocked;
    pthread_sigmask(SIG_UNBLOCK, &pipe, &blocked);
    EXPECT_EQ(1, sigismember(&blocked, SIGPIPE));
}

TEST_F(DebugOutputTest, ASocketGetsTheTextAndNoMoreThanItTakes) {
    ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, mEnds));
    writeAtOnce(mEnds[1], "status");
    EXPECT_EQ("status", read());
    for (int i = 0; i < 100; ++i) writeAtOnce(mEnds[1], std::string(100000, 'x'));
    EXPECT_FALSE(read().empty());
    closeReader();
    writeAtOnce(mEnds[1], "status");
}

TEST_F(DebugOutputTest, AFileGetsAllOfIt) {
    mEnds[0] = memfd_create("page", MFD_CLOEXEC);
    const std::string text(200000, 'x');
    writeAtOnce(mEnds[0], text);
    EXPECT_EQ(text.size(), static_cast<size_t>(lseek(mEnds[0], 0, SEEK_CUR)));
    EXPECT_TRUE(isPlainFile(mEnds[0]));
}

TEST_F(DebugOutputTest, AFileOfAProgramsFileSystemGetsNothing) {
    mEnds[0] = memfd_create("page", MFD_CLOEXEC);
    sFileSystem = 0x65735546;  // FUSE
    EXPECT_FALSE(isPlainFile(mEnds[0]));
    writeAtOnce(mEnds[0], "status");
    EXPECT_EQ(0, lseek(mEnds[0], 0, SEEK_END));
    for (unsigned long other : {0x65735545, 0x65735547}) {
        sFileSystem = other;
        EXPECT_TRUE(isPlainFile(mEnds[0])) << other;
    }
}

TEST_F(DebugOutputTest, NoSignalIsWaitedFor) {
    makePipe();
    sWaits.clear();
    writeAtOnce(mEnds[1], "status");
    ASSERT_EQ(1u, sWaits.size());
    EXPECT_EQ(0, sWaits[0].tv_sec);
    EXPECT_EQ(0, sWaits[0].tv_nsec);
}

TEST_F(DebugOutputTest, APartialWriteIsContinuedWhereItEnded) {
    mEnds[0] = memfd_create("page", MFD_CLOEXEC);
    std::vector<size_t> sizes;
    sWrite = [&](int fd, const void* bytes, size_t size) {
        sizes.push_back(size);
        return __real_write(fd, bytes, std::min(size, size_t{1}));
    };
    writeAtOnce(mEnds[0], "status");
    EXPECT_EQ((std::vector<size_t>{6, 5, 4, 3, 2, 1}), sizes);
    lseek(mEnds[0], 0, SEEK_SET);
    EXPECT_EQ("status", read());
}

TEST_F(DebugOutputTest, WhatIsNotTakenIsNotRetried) {
    mEnds[0] = memfd_create("page", MFD_CLOEXEC);
    for (ssize_t result : {ssize_t{0}, ssize_t{-1}}) {
        int calls = 0;
        sWrite = [&](int, const void*, size_t) { return ++calls == 1 ? result : 1; };
        writeAtOnce(mEnds[0], "status");
        EXPECT_EQ(1, calls) << result;
    }
}

TEST_F(DebugOutputTest, WhatCannotBeWrittenIsLeft) {
    writeAtOnce(-1, "status");
    mEnds[0] = open("/", O_RDONLY | O_CLOEXEC);
    writeAtOnce(mEnds[0], "status");
    EXPECT_FALSE(isPlainFile(mEnds[0]));
    EXPECT_FALSE(isPlainFile(-1));
    mEnds[1] = open("/proc/self/exe", O_RDONLY | O_CLOEXEC);
    writeAtOnce(mEnds[1], "status");
}

TEST_F(DebugOutputTest, ADeviceGetsNothing) {
    mEnds[0] = posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK);
    if (mEnds[0] < 0 || grantpt(mEnds[0]) != 0 || unlockpt(mEnds[0]) != 0) GTEST_SKIP();
    mEnds[1] = open(ptsname(mEnds[0]), O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(mEnds[1], 0);
    writeAtOnce(mEnds[1], "status");
    EXPECT_EQ("", read());
}

TEST_F(DebugOutputTest, PipesAndDevicesAreNoPlainFiles) {
    makePipe();
    EXPECT_FALSE(isPlainFile(mEnds[1]));
    const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
    EXPECT_FALSE(isPlainFile(null));
    close(null);
}

}  // namespace
}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
