// SPDX-License-Identifier: Apache-2.0
#include "LoggedProgram.h"

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <stdexcept>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/Samples.h"

namespace korvane::bench {
namespace {

constexpr int kPatienceMs = 20000;

/** What the program's descriptors will be. */
class SpawnFiles {
  public:
    explicit SpawnFiles(int errors) {
        posix_spawn_file_actions_init(&mActions);
        posix_spawn_file_actions_addopen(&mActions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_adddup2(&mActions, errors, STDERR_FILENO);
    }
    ~SpawnFiles() { posix_spawn_file_actions_destroy(&mActions); }
    SpawnFiles(const SpawnFiles&) = delete;
    SpawnFiles& operator=(const SpawnFiles&) = delete;

    const posix_spawn_file_actions_t* get() const { return &mActions; }

  private:
    posix_spawn_file_actions_t mActions;
};

}  // namespace

std::string builtProgram(const std::string& path) {
    const auto self = std::filesystem::read_symlink("/proc/self/exe");
    return self.parent_path().parent_path() / path;
}

LoggedProgram::LoggedProgram(const std::string& path) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    mLog.reset(ends[0]);
    const android::base::unique_fd errors(ends[1]);
    const SpawnFiles files(errors.get());
    char* const arguments[] = {const_cast<char*>(path.c_str()), nullptr};
    mStarted = now(CLOCK_MONOTONIC);
    if (posix_spawn(&mPid, path.c_str(), files.get(), nullptr, arguments, environ) != 0) {
        throw std::runtime_error(path + " cannot be started");
    }
}

LoggedProgram::~LoggedProgram() {
    if (mPid == -1) return;
    kill(mPid, SIGKILL);
    waitForEnd();
}

int64_t LoggedProgram::waitFor(const std::string& text) {
    size_t found;
    while ((found = mSaid.find(text)) == std::string::npos) {
        pollfd readable{mLog.get(), POLLIN, 0};
        char part[1024];
        const bool ready = TEMP_FAILURE_RETRY(poll(&readable, 1, kPatienceMs)) > 0;
        const ssize_t length = ready ? TEMP_FAILURE_RETRY(read(mLog.get(), part, sizeof part)) : 0;
        if (length <= 0) throw std::runtime_error("'" + text + "' was not said, but: " + mSaid);
        mSaid.append(part, length);
    }
    mSaid.erase(0, found + text.size());
    return now(CLOCK_MONOTONIC);
}

int64_t LoggedProgram::waitForEnd() {
    TEMP_FAILURE_RETRY(waitpid(mPid, nullptr, 0));
    mPid = -1;
    return now(CLOCK_MONOTONIC);
}

}  // namespace korvane::bench
