// SPDX-License-Identifier: Apache-2.0
// The queue of oneway calls to an implementation in a library, which doesn't exist here.
#pragma once

#include <cstddef>
#include <functional>

namespace android {
namespace hardware {
namespace details {

using Task = std::function<void()>;

/** Part of every generated wrapper for libraries; refuses, as nothing is served from a library. */
class TaskRunner {
  public:
    void start(size_t /*limit*/) {}
    /** False: the task won't run. */
    bool push(const Task& /*task*/) { return false; }
};

}  // namespace details
}  // namespace hardware
}  // namespace android
