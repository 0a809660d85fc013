// SPDX-License-Identifier: Apache-2.0
// Calls over the binder driver without the HIDL runtime: the least that a call can cost.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include <linux/android/binder.h>

#include <android-base/unique_fd.h>

namespace korvane::bench {

/**
 * An open binder device with its mapped receive area. For one thread. Throws if it can't be opened.
 *
 * Used on /dev/vndbinder, which has the same driver as /dev/hwbinder but a context manager of its
 * own, so that the bare server and the register of HIDL services can both be one.
 */
class BareBinder {
  public:
    BareBinder();

    /** Produces the reply to a call; its bytes must stay valid until the next call. */
    using Answer = std::function<const std::vector<uint8_t>&(uint32_t code, const void* data,
                                                             size_t size)>;

    /** Becomes the context manager and answers every call with an empty reply, forever. */
    [[noreturn]] void serve();

    /** The same in two steps, the second with the replies that `answer` produces. */
    void becomeContextManager();
    [[noreturn]] void serve(const Answer& answer);

    /** Calls the context manager with this text and waits for the reply. */
    void call(const std::vector<uint8_t>& text);
    /** The same with a code; `reply` gets the reply's first `size` bytes, which must be there. */
    void call(uint32_t code, const std::vector<uint8_t>& text, void* reply, size_t size);

  private:
    template <typename T>
    void write(const T& value);
    void writeTransaction(uint32_t command, uint32_t code, const void* data, size_t size);
    void writeFree(binder_uintptr_t buffer);
    /** Sends what was written and waits until the driver delivers `wanted`; returns its data. */
    binder_transaction_data exchangeUntil(uint32_t wanted);

    android::base::unique_fd mDevice;
    std::vector<uint8_t> mOut;
};

}  // namespace korvane::bench
