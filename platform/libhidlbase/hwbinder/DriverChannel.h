// SPDX-License-Identifier: Apache-2.0
// One thread's stream of commands to the driver and of the driver's commands back.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include <linux/android/binder.h>

#include <utils/Errors.h>

namespace android {
namespace hardware {

class BinderDriver;

/** Commands that wait to be handed to the driver. */
class CommandWriter {
  public:
    /** Appends a command and, right after it, its argument. */
    void write(uint32_t command) { append(&command, sizeof(command)); }
    template <typename T>
    void write(uint32_t command, const T& argument) {
        write(command);
        append(&argument, sizeof(argument));
    }

    bool isEmpty() const { return mBytes.empty(); }
    const uint8_t* data() const { return mBytes.data(); }
    size_t size() const { return mBytes.size(); }
    /** The driver has taken this many bytes. */
    void consume(size_t size);

  private:
    void append(const void* bytes, size_t size);

    std::vector<uint8_t> mBytes;
};

/** Commands that the driver has given and that haven't been read. */
class CommandReader {
  public:
    CommandReader() : mBytes(kCapacity) {}

    /** Reads the next command or a command's argument; false, at the end, if too few bytes are
     * left. */
    template <typename T>
    bool read(T* value) {
        return read(value, sizeof(*value));
    }
    /** Skips an argument that isn't needed. */
    bool skip(size_t size);

    bool isExhausted() const { return mPosition == mSize; }
    uint8_t* buffer() { return mBytes.data(); }
    size_t capacity() const { return mBytes.size(); }
    /** The driver has put this many new bytes into buffer(). */
    void refill(size_t size);

  private:
    // A few dozen commands: the driver stops filling at each call or reply anyway.
    static constexpr size_t kCapacity = 1024;

    bool read(void* value, size_t size);

    std::vector<uint8_t> mBytes;
    size_t mPosition = 0;
    size_t mSize = 0;
};

/** Both directions of one thread. Not thread-safe. */
class DriverChannel {
  public:
    explicit DriverChannel(const BinderDriver& driver) : mDriver(driver) {}

    /** Hands over what out() holds; doesn't wait. */
    status_t flush();

    /**
     * Hands over what out() holds and, once everything received has been read, waits for more. OK
     * doesn't promise that anything came. A negative errno of the driver, or NO_INIT.
     */
    status_t receive();

    const BinderDriver& driver() const { return mDriver; }
    CommandWriter& out() { return mOut; }
    CommandReader& in() { return mIn; }

  private:
    status_t exchange(size_t readCapacity);

    const BinderDriver& mDriver;
    CommandWriter mOut;
    CommandReader mIn;
};

}  // namespace hardware
}  // namespace android
