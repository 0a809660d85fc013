// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "desktop-camera"

#include "StreamHooks.h"

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstring>
#include <mutex>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <android-base/thread_annotations.h>
#include <log/log.h>

namespace korvane::camera {
namespace {

constexpr auto kPatience = std::chrono::seconds(5);

// The camera's descriptors and blocked signals are none of the command's business.
int spawn(const std::string& text, pid_t* pid) {
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addclosefrom_np(&files, STDERR_FILENO + 1);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
    std::string shell = "sh";
    std::string option = "-c";
    std::string command = text;
    char* arguments[] = {shell.data(), option.data(), command.data(), nullptr};
    const int error = posix_spawn(pid, "/bin/sh", &files, &attributes, arguments, environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&files);
    return error;
}

}  // namespace

/** One run of a command, awaited on a thread of its own. */
class StreamHooks::Command {
  public:
    void run(const std::string& text, const std::shared_ptr<Command>& before) {
        if (before != nullptr) before->waitUntilDone();
        pid_t pid = 0;
        const int error = spawn(text, &pid);
        advance(State::RUNNING);
        if (error != 0) {
            ALOGE("cannot run '%s': %s", text.c_str(), strerror(error));
        } else {
            reap(text, pid);
        }
        advance(State::DONE);
    }

    void waitUntilRunning() {
        const std::lock_guard<std::mutex> guard(mLock);
        while (mState == State::WAITING) mChanged.wait(mLock);
    }

  private:
    enum class State { WAITING, RUNNING, DONE };

    void waitUntilDone() {
        const auto end = std::chrono::steady_clock::now() + kPatience;
        const std::lock_guard<std::mutex> guard(mLock);
        while (mState != State::DONE &&
               mChanged.wait_until(mLock, end) == std::cv_status::no_timeout) {
        }
    }

    void advance(State state) {
        const std::lock_guard<std::mutex> guard(mLock);
        mState = state;
        mChanged.notify_all();
    }

    static void reap(const std::string& text, pid_t pid) {
        int status = 0;
        while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
        }
        if (!WIFEXITED(status)) {
            ALOGW("'%s' was ended by signal %d", text.c_str(), WTERMSIG(status));
        } else if (WEXITSTATUS(status) != 0) {
            ALOGW("'%s' ended with status %d", text.c_str(), WEXITSTATUS(status));
        }
    }

    std::mutex mLock;
    std::condition_variable_any mChanged;
    State mState GUARDED_BY(mLock) = State::WAITING;
};

StreamHooks::StreamHooks(std::string onStart, std::string onStop)
    : mOnStart(std::move(onStart)), mOnStop(std::move(onStop)) {}

StreamHooks::~StreamHooks() {
    if (mLatest != nullptr) mLatest->waitUntilRunning();
}

void StreamHooks::run(const std::string& text) {
    if (text.empty()) return;
    const std::shared_ptr<Command> before = std::exchange(mLatest, std::make_shared<Command>());
    std::thread([text, before, self = mLatest] { self->run(text, before); }).detach();
}

}  // namespace korvane::camera
