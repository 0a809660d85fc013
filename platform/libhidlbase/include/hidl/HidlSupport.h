// SPDX-License-Identifier: Apache-2.0
// The value types of interfaces, and what generated headers need besides.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

#include <sched.h>

#include <hidl/HidlHandle.h>
#include <hidl/HidlInternal.h>
#include <hidl/HidlString.h>
#include <hidl/HidlToString.h>
#include <hidl/HidlVec.h>
#include <utils/Errors.h>
#include <utils/RefBase.h>
#include <utils/StrongPointer.h>

// Generated code calls the normal policy by the kernel's name for it.
#ifndef SCHED_NORMAL
#define SCHED_NORMAL SCHED_OTHER
#endif

namespace android {

namespace hidl {
namespace base {
namespace V1_0 {
struct IBase;
}  // namespace V1_0
}  // namespace base
}  // namespace hidl

namespace hardware {

/** Is told when the process of a remote object that it was linked to has died. */
struct hidl_death_recipient : public virtual RefBase {
    /**
     * Called once for each link, on a thread that serves incoming calls, without any lock of the
     * runtime.
     *
     * @param cookie as given with the link
     * @param who the proxy that the link was made through
     */
    virtual void serviceDied(uint64_t cookie, const wp<hidl::base::V1_0::IBase>& who) = 0;
};

/** Shared memory as an argument, which no interface here has: only its size matters. */
struct hidl_memory {
    hidl_handle handle;
    uint64_t size = 0;
    hidl_string name;
};

/** The integer type of a set of an enum's values. */
template <typename Enum>
using hidl_bitfield = typename std::underlying_type<Enum>::type;

namespace details {

// Generated headers specialise it without "inline": its own copy for each file that includes them.
inline namespace {

/** Every value of an enum, in the order of the interface. */
template <typename Enum>
constexpr std::array<Enum, 0> hidl_enum_values = {};

}  // namespace

/** Whether implementations may reveal their addresses; they may not. */
bool debuggable();

}  // namespace details

/** For ranging over the values of an enum. */
template <typename Enum>
struct hidl_enum_range {
    constexpr auto begin() const { return details::hidl_enum_values<Enum>.cbegin(); }
    constexpr auto end() const { return details::hidl_enum_values<Enum>.cend(); }
};

}  // namespace hardware
}  // namespace android
