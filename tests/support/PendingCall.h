// SPDX-License-Identifier: Apache-2.0
// A call on a thread of its own; a test can see whether something blocks it.
#pragma once

#include <chrono>
#include <fstream>
#include <functional>
#include <future>
#include <memory>
#include <sstream>
#include <string>

#include <sched.h>
#include <unistd.h>

namespace korvane::test {

/** Starts at once. The destructor waits for the call to end. */
template <typename Result>
class PendingCall {
  public:
    explicit PendingCall(const std::function<Result()>& call) {
        auto thread = std::make_shared<std::promise<pid_t>>();
        std::future<pid_t> begun = thread->get_future();
        mResult = std::async(std::launch::async, [thread, call] {
            thread->set_value(gettid());
            return call();
        });
        mThread = begun.get();
    }

    /**
     * Whether the call is waiting, for a lock or to be woken, rather than ending. Returns only once
     * it is one or the other, however long the machine takes; a call that will end by itself a
     * little later also counts as waiting.
     */
    bool isHeldUp() const {
        // A single one might be a brief wait on the way.
        for (int asleep = 0; asleep < 3;) {
            if (hasEnded()) return false;
            asleep = isAsleep() ? asleep + 1 : 0;
            sched_yield();
        }
        return !hasEnded();
    }

    /** Waits for the result; may be called once. */
    Result get() { return mResult.get(); }

  private:
    bool hasEnded() const {
        return mResult.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
    }

    // "tid (name) S ...": S is an interruptible sleep.
    bool isAsleep() const {
        std::ifstream file("/proc/self/task/" + std::to_string(mThread) + "/stat");
        std::stringstream text;
        text << file.rdbuf();
        const size_t name = text.str().rfind(") ");
        return name != std::string::npos && text.str()[name + 2] == 'S';
    }

    std::future<Result> mResult;
    pid_t mThread = -1;
};

}  // namespace korvane::test
