// SPDX-License-Identifier: Apache-2.0
#include "ConfigFile.h"

#include <cerrno>
#include <cstring>
#include <fstream>

namespace korvane::options {
namespace {

std::string trimmed(const std::string& text) {
    const size_t first = text.find_first_not_of(" \t\r");
    if (first == std::string::npos) return "";
    return text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

}  // namespace

std::string readConfigFile(
        const std::string& path,
        const std::function<std::string(const std::string& key, const std::string& value)>& take) {
    errno = 0;
    std::ifstream file(path);
    std::string line;
    for (int number = 1; file && std::getline(file, line); ++number) {
        line = trimmed(line);
        if (line.empty() || line[0] == '#') continue;
        const std::string place = path + ":" + std::to_string(number) + ": ";
        const size_t equals = line.find('=');
        if (equals == std::string::npos) return place + "'" + line + "' is not KEY = VALUE";
        const std::string wrong =
                take(trimmed(line.substr(0, equals)), trimmed(line.substr(equals + 1)));
        if (!wrong.empty()) return place + wrong;
    }
    if (file.eof()) return "";
    return path + ": " + strerror(errno != 0 ? errno : EIO);
}

}  // namespace korvane::options
