// SPDX-License-Identifier: Apache-2.0
// A call on a thread of its own, of which a test can see whether something holds it up.
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

/** Begins at once. Its end waits for that of the call. */
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
     * Whether the call waits, for a lock or to be woken, rather than end. Comes back only when one
     * of the two is so, however long the machine takes; what ends by itself a little later waits,
     * too.
     */
    bool isHeldUp() const {
        // Once might be a moment's wait on the way.
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
