// SPDX-License-Identifier: Apache-2.0
// What generated code and the value types need below the public surface.
#pragma once

#include <cstdint>
#include <string>

namespace android {
namespace hardware {
namespace details {

// Which of the four classes of an interface a class is.
struct i_tag {};
struct bnhw_tag {};
struct bphw_tag {};
struct bs_tag {};

/** Logs the message and aborts the process. */
[[noreturn]] void logAlwaysFatal(const char* message);

/** A pointer that takes eight bytes in a message whatever the process's own width. */
template <typename T>
struct hidl_pointer {
    hidl_pointer() : mPointer(nullptr) {}
    hidl_pointer(T* pointer) : mPointer(pointer) {}  // NOLINT: meant to convert

    hidl_pointer& operator=(T* pointer) {
        mPointer = pointer;
        return *this;
    }
    operator T*() const { return mPointer; }  // NOLINT: meant to convert
    T* operator->() const { return mPointer; }

  private:
    union {
        uint64_t mPadding;
        T* mPointer;
    };
};

/** Would call into instrumentation libraries on a debug build; there are none here. */
class HidlInstrumentor {
  public:
    HidlInstrumentor(const std::string& package, const std::string& interface);
    virtual ~HidlInstrumentor();

  protected:
    void configureInstrumentation(bool log = true);
};

}  // namespace details
}  // namespace hardware
}  // namespace android
