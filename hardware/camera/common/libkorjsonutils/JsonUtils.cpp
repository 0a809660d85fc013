// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "JsonUtils"

#include "JsonUtils.h"

#include <cerrno>

#include <log/log.h>

namespace android {

const JsonUtils::Value& JsonUtils::getValue(int& status, const Value& object, const char* name,
                                            int index) {
    if (!object.IsObject()) {
        ALOGE("%s: Error: JSON root is not an object, name: %s", __func__, name);
        status = -EINVAL;
        return object;
    }
    const auto member = object.FindMember(name);
    if (member == object.MemberEnd()) {
        status = -ENOENT;
        return object;
    }
    const Value& value = member->value;
    if (index < 0) {
        status = 0;
        return value;
    }
    if (!value.IsArray()) {
        ALOGD("%s: '%s' parameter not found, or is not an array", __func__, name);
        status = -ENOENT;
        return value;
    }
    const auto position = static_cast<rapidjson::SizeType>(index);
    if (value.Size() <= position) {
        ALOGE("%s: '%s' array insufficient size=%d, index=%d", __func__, name,
              static_cast<int>(value.Size()), index);
        status = -EOVERFLOW;
        return value;
    }
    status = 0;
    return value[position];
}

int JsonUtils::parseValue(const Value& object, const char* name, bool& out, int index) {
    out = false;
    int status = 0;
    const Value& value = getValue(status, object, name, index);
    if (status != 0) return status;
    if (!value.IsBool()) {
        ALOGE("%s: '%s' parameter is not of type bool", __func__, name);
        return -EINVAL;
    }
    out = value.IsTrue();
    return 0;
}

int JsonUtils::parseValue(const Value& object, const char* name, int& out, int index) {
    out = 0;
    int status = 0;
    const Value& value = getValue(status, object, name, index);
    if (status != 0) return status;
    if (!value.IsInt()) {
        ALOGE("%s: '%s' parameter is not of type int", __func__, name);
        return -EINVAL;
    }
    out = value.GetInt();
    return 0;
}

int JsonUtils::parseValue(const Value& object, const char* name, std::string& out, int index) {
    int status = 0;
    const Value& value = getValue(status, object, name, index);
    if (status != 0) return status;
    if (!value.IsString()) {
        ALOGE("%s: '%s' parameter is not of type String", __func__, name);
        return -EINVAL;
    }
    out.assign(value.GetString(), value.GetStringLength());
    return 0;
}

int JsonUtils::parseValue(const Value& object, const char* name, float& out, int index) {
    out = 0.0f;
    int status = 0;
    const Value& value = getValue(status, object, name, index);
    if (status != 0) return status;
    if (!value.IsNumber()) {
        // The value is of a wrong type, so there is no number to print.
        ALOGE("%s: %s=%f (real Value)", __func__, name, out);
        return -EINVAL;
    }
    out = static_cast<float>(value.GetDouble());
    return 0;
}

}  // namespace android
