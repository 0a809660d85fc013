// SPDX-License-Identifier: Apache-2.0
#include "desktop-camera/StreamHooks.h"

#include <cerrno>
#include <csignal>
#include <fstream>
#include <string>

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "desktop-camera/StreamDemand.h"
#include "support/LogRecorder.h"
#include "support/TemporaryFolder.h"

namespace korvane::camera {
namespace {

class StreamHooksTest : public testing::Test {
  protected:
    std::string said() const { return mFolder.read("said"); }
    std::string say(const std::string& what) const {
        return "echo " + what + " >>" + mFolder.path("said");
    }

    template <typename Condition>
    static bool waitFor(const Condition& condition) {
        const int64_t end = monotonicNs() + 20'000'000'000;
        while (!condition()) {
            if (monotonicNs() > end) return false;
            usleep(1000);
        }
        return true;
    }

    /** Whether this process has no children, not even dead ones. */
    static bool childless() {
        return waitpid(-1, nullptr, WNOHANG | __WNOTHREAD) < 0 && errno == ECHILD &&
               waitpid(-1, nullptr, WNOHANG) < 0;
    }

    const test::LogRecorder mLog;
    test::TemporaryFolder mFolder;
};

TEST_F(StreamHooksTest, RunsACommandAtEachEndOfAStream) {
    StreamHooks hooks(say("on"), say("off"));
    hooks.started();
    EXPECT_TRUE(waitFor([&] { return said() == "on\n"; }));
    hooks.ended();
    EXPECT_TRUE(waitFor([&] { return said() == "on\noff\n"; }));
    EXPECT_TRUE(waitFor(childless)) << "a command was not reaped";
    EXPECT_TRUE(mLog.lines().empty());
}

TEST_F(StreamHooksTest, DoesNotWaitForTheCommand) {
    const std::string pipe = mFolder.path("pipe");
    ASSERT_EQ(0, mkfifo(pipe.c_str(), 0600));
    StreamHooks hooks("read x <" + pipe + "; " + say("on"), say("off"));
    hooks.started();  // would wait for ever
    hooks.ended();
    EXPECT_EQ("", said());
    std::ofstream(pipe) << "go\n";
    EXPECT_TRUE(waitFor([&] { return said() == "on\noff\n"; })) << "out of order: " << said();
}

TEST_F(StreamHooksTest, GoesOnAfterFiveSecondsOfASlowOne) {
    const std::string pipe = mFolder.path("pipe");
    ASSERT_EQ(0, mkfifo(pipe.c_str(), 0600));
    {
        StreamHooks hooks("read x <" + pipe, say("off"));
        hooks.started();
        hooks.ended();
    }
    // The last one has begun when the hooks are gone: a program that ends here has run it.
    EXPECT_TRUE(waitFor([&] { return said() == "off\n"; }));
    std::ofstream(pipe) << "go\n";
    EXPECT_TRUE(waitFor(childless));
}

TEST_F(StreamHooksTest, SaysWhatBecameOfACommandThatFailed) {
    StreamHooks hooks("exit 3", "kill -9 $$");
    hooks.started();
    hooks.ended();
    EXPECT_TRUE(mLog.waitFor(ANDROID_LOG_WARN, "desktop-camera", "'exit 3' ended with status 3"));
    EXPECT_TRUE(
            mLog.waitFor(ANDROID_LOG_WARN, "desktop-camera", "'kill -9 $$' was ended by signal 9"));
}

TEST_F(StreamHooksTest, GivesTheCommandNothingOfTheCameras) {
    sigset_t blocked;
    sigset_t before;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &blocked, &before);
    const int open = dup2(STDERR_FILENO, 77);
    StreamHooks hooks("test -e /proc/self/fd/77 && " + say("descriptor") + "; " +
                              "grep SigBlk:.0000000000000000 /proc/self/status >/dev/null && " +
                              say("free"),
                      "");
    hooks.started();
    EXPECT_TRUE(waitFor([&] { return said() == "free\n"; })) << said();
    close(open);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

TEST_F(StreamHooksTest, DoesNothingWithoutCommands) {
    StreamHooks hooks("", "");
    hooks.started();
    hooks.ended();
    EXPECT_TRUE(childless());
}

}  // namespace
}  // namespace korvane::camera
