// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "UVC-Config"

#include "uvc/ConfigfsAttribute.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <limits>
#include <sstream>

#include <log/log.h>

namespace korvane::hardware::camera::desktop::V2_0::implementation {
namespace {

// Why the conversions below would not take the text for a number; null if they would. Tried before
// they are, because nothing more is logged once their exception is thrown.
const char* whyNotUnsigned(const std::string& text) {
    char* end = nullptr;
    errno = 0;
    strtoul(text.c_str(), &end, 10);
    if (end == text.c_str()) return "it does not begin with a decimal digit";
    return errno == ERANGE ? "it is out of range" : nullptr;
}

const char* whyNotInt(const std::string& text) {
    char* end = nullptr;
    const long value = strtol(text.c_str(), &end, 10);
    if (end == text.c_str()) return "it does not begin with a decimal digit";
    const bool fits =
            value >= std::numeric_limits<int>::min() && value <= std::numeric_limits<int>::max();
    return fits ? nullptr : "it is out of range";
}

// error: why the file could not be opened, 0 if it could.
void explain(const std::string& where, const std::string& text, const char* why, int error) {
    if (error != 0) why = strerror(error);
    ALOGE("%s: no usable number in \"%s\" (%s), cannot go on", where.c_str(), text.c_str(), why);
}

struct Content {
    std::string text;
    /** Why the file could not be opened; 0 if it could. */
    int error = 0;
};

Content readContent(const std::string& path) {
    errno = 0;
    const std::ifstream file(path, std::ios::in | std::ios::binary);
    if (!file) return {"", errno};
    // Into a stream rather than through iterators, which throw where reading fails.
    std::ostringstream text;
    text << file.rdbuf();
    return {text.str(), 0};
}

uint32_t toUnsigned(const std::string& where, const std::string& text, int error) {
    if (const char* why = whyNotUnsigned(text)) explain(where, text, why, error);
    return static_cast<uint32_t>(std::stoul(text, nullptr, 10));
}

}  // namespace

std::string readAttribute(const std::string& path) {
    return readContent(path).text;
}

uint32_t readUnsignedAttribute(const std::string& path) {
    const Content content = readContent(path);
    return toUnsigned(path, content.text, content.error);
}

int readIntAttribute(const std::string& path) {
    const Content content = readContent(path);
    if (const char* why = whyNotInt(content.text)) {
        explain(path, content.text, why, content.error);
    }
    return std::stoi(content.text, nullptr, 10);
}

std::vector<uint32_t> readUnsignedLines(const std::string& path) {
    std::vector<uint32_t> values;
    std::istringstream lines(readAttribute(path));
    for (std::string line; std::getline(lines, line);) {
        const std::string where = "line " + std::to_string(values.size() + 1) + " of " + path;
        values.push_back(toUnsigned(where, line, 0));
    }
    return values;
}

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
