// SPDX-License-Identifier: Apache-2.0
// Typed reading of the members of JSON objects that come from outside.
#pragma once

#include <string>

#include <rapidjson/document.h>

namespace android {

/**
 * Reads members of a parsed JSON object. Whatever the object holds, these neither assert nor throw:
 * they return a status, and log every failure but a missing member.
 *
 *   0          the value was read
 *   -ENOENT    (-2) no such member; or an index was given and the member is no array
 *   -EINVAL    (-22) object is no JSON object, or the value is of another type
 *   -EOVERFLOW (-75) the array has no such index
 *
 * An index of 0 or more reads that element of a member that is an array; -1 reads the member
 * itself.
 */
class JsonUtils {
  public:
    using Value = rapidjson::Value;

    /**
     * Finds a member, or an element of it.
     *
     * @return the value when status is 0. Otherwise not to be used, though always valid: object
     *         itself, or the member that is no array or too short a one
     */
    static const Value& getValue(int& status, const Value& object, const char* name, int index);

    /** Only true and false are bools. out is false on failure. */
    [[nodiscard]] static int parseValue(const Value& object, const char* name, bool& out,
                                        int index);
    /** Integers that fit 32 signed bits. out is 0 on failure. */
    [[nodiscard]] static int parseValue(const Value& object, const char* name, int& out, int index);
    /** Strings, embedded NULs included. out is left as it was on failure. */
    [[nodiscard]] static int parseValue(const Value& object, const char* name, std::string& out,
                                        int index);
    /** Any number. out is 0 on failure. */
    [[nodiscard]] static int parseValue(const Value& object, const char* name, float& out,
                                        int index);
};

}  // namespace android
