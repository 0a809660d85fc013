// SPDX-License-Identifier: Apache-2.0
// A binder driver that a test scripts: it says what the test tells it to, and records what it is
// told.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <deque>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <linux/android/binder.h>

#include "support/ScriptedKernel.h"

namespace korvane::test {

/** One command to or from the driver. */
struct BinderCommand {
    uint32_t number = 0;
    /** What follows the command's number, which includes its size. */
    std::vector<uint8_t> argument;
    /** The status, for a BC_REPLY that carries one in place of contents. */
    int32_t status = 0;

    BinderCommand() = default;
    explicit BinderCommand(uint32_t command) : number(command) {}
    template <typename T>
    BinderCommand(uint32_t command, const T& value) : number(command), argument(sizeof(value)) {
        memcpy(argument.data(), &value, sizeof(value));
    }

    template <typename T>
    T as() const {
        T value{};
        memcpy(&value, argument.data(), std::min(sizeof(value), argument.size()));
        return value;
    }
};

/**
 * A ScriptedKernel that opens, maps and exchanges commands like the binder driver. A read gets the
 * oldest batch from give(); where the driver would wait because there is none, the read fails with
 * EIO instead, so that no test hangs. All operations may be called from any thread, but not while
 * another thread is in the driver.
 */
class ScriptedBinder {
  public:
    explicit ScriptedBinder(const std::string& path);

    /** The one at /dev/hwbinder, which a process opens once: create it before any use. */
    static ScriptedBinder& ofThisProcess();

    /** For faults; the ioctls go by their names, such as "BINDER_WRITE_READ". */
    ScriptedKernel& kernel() { return mKernel; }

    /** Lets one read return these commands. */
    void give(const std::vector<BinderCommand>& commands);
    /** Lets one read return these bytes, whatever they are. */
    void giveBytes(std::vector<uint8_t> bytes) { mToGive.push_back(std::move(bytes)); }

    /** How many batches have not been read yet. */
    size_t left() const { return mToGive.size(); }

    /** Called where the driver would wait, until clear(). */
    void whenIdle(std::function<void()> called) { mWhenIdle = std::move(called); }

    /** How many exchanges there have been since clear(). */
    size_t exchanges() const { return mExchanges; }

    /** Forgets the batches, the exchanges and everything written. */
    void clear();

    /** Lets the driver take at most this many bytes of the next write. */
    void takeNoMoreThan(size_t size) { mLimit = size; }

    /** The commands written so far, oldest first; forgets them. */
    std::vector<BinderCommand> take();
    /** Only their numbers. */
    std::vector<uint32_t> takeNumbers();

  private:
    int exchange(binder_write_read* exchange);
    void record(const uint8_t* bytes, size_t size);

    ScriptedKernel mKernel;
    std::deque<std::vector<uint8_t>> mToGive;
    std::vector<BinderCommand> mTaken;
    size_t mLimit = SIZE_MAX;
    size_t mExchanges = 0;
    std::function<void()> mWhenIdle;
};

}  // namespace korvane::test
