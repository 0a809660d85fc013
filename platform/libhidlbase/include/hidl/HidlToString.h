// SPDX-License-Identifier: Apache-2.0
// Values as text, for logs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>
#include <type_traits>

#include <hidl/HidlHandle.h>
#include <hidl/HidlString.h>
#include <hidl/HidlVec.h>
#include <utils/StrongPointer.h>

namespace android {
namespace hardware {

struct hidl_death_recipient;
struct hidl_memory;

namespace details {

std::string toHexDigits(uint64_t value, bool prefix);

/** In lower-case hexadecimal digits, with a leading "0x" if prefix is set. */
template <typename T>
std::string toHexString(T value, bool prefix = true) {
    using Unsigned = typename std::make_unsigned<T>::type;
    return toHexDigits(static_cast<Unsigned>(value), prefix);
}

/** "[size]{element, ...}" */
template <typename Sequence>
std::string sequenceToString(const Sequence& sequence);

}  // namespace details

template <typename T>
typename std::enable_if<std::is_arithmetic<T>::value, std::string>::type toString(T value) {
    std::ostringstream text;
    text << std::boolalpha << +value;
    return text.str();
}
inline std::string toString(bool value) {
    return value ? "true" : "false";
}

std::string toString(const void* pointer);
std::string toString(const hidl_string& string);
std::string toString(const hidl_handle& handle);
std::string toString(const hidl_memory& memory);
std::string toString(const sp<hidl_death_recipient>& recipient);

template <typename T>
std::string toString(const hidl_vec<T>& vec) {
    return details::sequenceToString(vec);
}

template <typename T, size_t N>
std::string toString(const hidl_array<T, N>& array) {
    return details::sequenceToString(array);
}

namespace details {

template <typename Sequence>
std::string sequenceToString(const Sequence& sequence) {
    using ::android::hardware::toString;
    std::string text = "[" + std::to_string(sequence.size()) + "]{";
    for (size_t i = 0; i < sequence.size(); ++i) {
        if (i > 0) text += ", ";
        text += toString(sequence[i]);
    }
    return text + "}";
}

}  // namespace details
}  // namespace hardware
}  // namespace android
