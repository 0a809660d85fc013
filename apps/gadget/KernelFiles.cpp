// SPDX-License-Identifier: Apache-2.0
#include "KernelFiles.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Descriptor.h"

namespace korvane::gadget {
namespace {

struct FolderCloser {
    void operator()(DIR* folder) const { closedir(folder); }
};

std::string inOneLine(std::string text) {
    while (!text.empty() && text.back() == '\n') text.pop_back();
    std::replace(text.begin(), text.end(), '\n', ' ');
    return text;
}

}  // namespace

std::string readText(const std::string& path) {
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    std::string text;
    char part[4096];
    ssize_t size = 0;
    while (file.valid() && (size = read(file.get(), part, sizeof(part))) > 0) {
        text.append(part, static_cast<size_t>(size));
    }
    if (!text.empty() && text.back() == '\n') text.pop_back();
    return text;
}

std::vector<std::string> namesIn(const std::string& folder) {
    std::vector<std::string> names;
    const std::unique_ptr<DIR, FolderCloser> entries(opendir(folder.c_str()));
    while (const dirent* entry = entries ? readdir(entries.get()) : nullptr) {
        if (entry->d_name[0] != '.') names.emplace_back(entry->d_name);
    }
    std::sort(names.begin(), names.end());
    return names;
}

bool exists(const std::string& path) {
    // access() would fail for a device that a unit's device policy keeps this program from opening.
    struct stat status = {};
    return stat(path.c_str(), &status) == 0;
}

bool isWritable(const std::string& path) {
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 && (status.st_mode & S_IWUSR) != 0;
}

std::string writeBytes(const std::string& path, const std::string& bytes) {
    const Descriptor file(open(path.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC));
    if (!file.valid()) return "cannot open " + path + ": " + strerror(errno);
    const ssize_t written = write(file.get(), bytes.data(), bytes.size());
    if (written == static_cast<ssize_t>(bytes.size())) return "";
    return "the kernel refuses '" + inOneLine(bytes) + "' for " + path + ": " + strerror(errno);
}

std::string writeValue(const std::string& path, const std::string& value) {
    return writeBytes(path, value + "\n");
}

std::string makeFolder(const std::string& path) {
    if (mkdir(path.c_str(), 0755) == 0) return "";
    return "cannot make " + path + ": " + strerror(errno);
}

std::string makeLink(const std::string& target, const std::string& path) {
    if (symlink(target.c_str(), path.c_str()) == 0) return "";
    return "cannot link " + path + ": " + strerror(errno);
}

}  // namespace korvane::gadget
