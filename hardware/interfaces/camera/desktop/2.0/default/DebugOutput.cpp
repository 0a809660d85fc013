// SPDX-License-Identifier: Apache-2.0
#include "DebugOutput.h"

#include <csignal>
#include <cstddef>
#include <ctime>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace korvane::hardware::camera::desktop::V2_0::implementation {

namespace {

// A file system that a program serves, which may take its time.
constexpr unsigned long kFuseMagic = 0x65735546;

/** Keeps SIGPIPE from the calling thread. */
class NoSigpipe {
  public:
    NoSigpipe() {
        sigemptyset(&mPipe);
        sigaddset(&mPipe, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &mPipe, &mBefore);
    }
    ~NoSigpipe() {
        const timespec atOnce = {0, 0};
        if (sigismember(&mBefore, SIGPIPE) == 0) sigtimedwait(&mPipe, nullptr, &atOnce);
        pthread_sigmask(SIG_SETMASK, &mBefore, nullptr);
    }
    NoSigpipe(const NoSigpipe&) = delete;
    NoSigpipe& operator=(const NoSigpipe&) = delete;

  private:
    sigset_t mPipe;
    sigset_t mBefore;
};

void writeAll(int fd, const std::string& text) {
    size_t done = 0;
    while (done < text.size()) {
        const ssize_t written = write(fd, text.data() + done, text.size() - done);
        if (written <= 0) return;
        done += static_cast<size_t>(written);
    }
}

// The flag belongs to the open pipe, which the caller shares, so it is put back afterwards.
void writeToPipe(int fd, const std::string& text) {
    const int flags = fcntl(fd, F_GETFL);
    if (flags < 0 || fcntl(fd, F_SETFL, flags | O_NONBLOCK) != 0) return;
    const NoSigpipe noSigpipe;
    writeAll(fd, text);
    fcntl(fd, F_SETFL, flags);
}

}  // namespace

bool isPlainFile(int fd) {
    struct stat status;
    struct statfs system;
    return fstat(fd, &status) == 0 && S_ISREG(status.st_mode) && fstatfs(fd, &system) == 0 &&
           static_cast<unsigned long>(system.f_type) != kFuseMagic;
}

void writeAtOnce(int fd, const std::string& text) {
    struct stat status;
    if (fstat(fd, &status) != 0) return;
    if (S_ISSOCK(status.st_mode)) {
        (void)send(fd, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    } else if (S_ISFIFO(status.st_mode)) {
        writeToPipe(fd, text);
    } else if (isPlainFile(fd)) {
        writeAll(fd, text);
    }
}

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
