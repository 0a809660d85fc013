// SPDX-License-Identifier: Apache-2.0
#include "support/init/InitRunner.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <set>

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <android-base/unique_fd.h>

namespace korvane::test {
namespace {

using Words = std::vector<std::string>;

constexpr mode_t kDefaultMode = 0755;

mode_t modeOf(const std::string& octal) {
    return static_cast<mode_t>(std::stoul(octal, nullptr, 8));
}

// Each command returns whether it worked; if not, errno says why.

bool makeFolder(const Words& words) {
    const char* path = words[1].c_str();
    const mode_t mode = words.size() > 2 ? modeOf(words[2]) : kDefaultMode;
    // Again by chmod: mkdir leaves out the bits in the process's umask.
    if (mkdir(path, mode) != 0 || chmod(path, mode) != 0) return false;
    if (words.size() < 4) return true;
    const passwd* user = getpwnam(words[3].c_str());
    const group* owners = words.size() > 4 ? getgrnam(words[4].c_str()) : nullptr;
    if (user == nullptr || (words.size() > 4 && owners == nullptr)) {
        errno = EINVAL;
        return false;
    }
    return chown(path, user->pw_uid, owners != nullptr ? owners->gr_gid : -1) == 0;
}

bool writeOnce(const Words& words) {
    const android::base::unique_fd file(open(words[1].c_str(), O_WRONLY | O_CLOEXEC));
    if (file == -1) return false;
    const ssize_t written = write(file.get(), words[2].data(), words[2].size());
    if (written >= 0 && static_cast<size_t>(written) != words[2].size()) errno = EIO;
    return written >= 0 && static_cast<size_t>(written) == words[2].size();
}

bool runCommand(const Words& words) {
    if (words[0] == "mkdir") return makeFolder(words);
    if (words[0] == "write") return writeOnce(words);
    if (words[0] == "symlink") return symlink(words[1].c_str(), words[2].c_str()) == 0;
    if (words[0] == "chmod") return chmod(words[2].c_str(), modeOf(words[1])) == 0;
    if (words[0] == "rm") return unlink(words[1].c_str()) == 0;
    errno = ENOSYS;
    return false;
}

}  // namespace

void InitRunner::raise(const std::string& event) {
    for (const InitAction& action : mFile.actions) {
        if (action.event == event && holds(action)) mQueue.push_back(&action);
    }
    runQueue();
}

void InitRunner::setProperty(const std::string& name, const std::string& value) {
    assign(name, value);
    runQueue();
}

std::string InitRunner::property(const std::string& name) const {
    const auto found = mProperties.find(name);
    return found != mProperties.end() ? found->second : "";
}

bool InitRunner::holds(const InitAction& action) const {
    return std::all_of(
            action.properties.begin(), action.properties.end(),
            [this](const auto& wanted) { return property(wanted.first) == wanted.second; });
}

void InitRunner::assign(const std::string& name, const std::string& value) {
    std::set<const InitAction*> before;
    for (const InitAction& action : mFile.actions) {
        if (holds(action)) before.insert(&action);
    }
    mProperties[name] = value;
    for (const InitAction& action : mFile.actions) {
        if (action.event.empty() && holds(action) && before.count(&action) == 0) {
            mQueue.push_back(&action);
        }
    }
}

void InitRunner::runQueue() {
    while (!mQueue.empty()) {
        const InitAction& action = *mQueue.front();
        mQueue.pop_front();
        for (const InitLine& line : action.commands) {
            run(line);
        }
    }
}

void InitRunner::run(const InitLine& line) {
    InitLine expanded = line;
    for (std::string& word : expanded.words) {
        word = expand(line.number, word);
    }
    mRan.push_back(line.number);
    if (expanded.words[0] == "setprop") {
        assign(expanded.words[1], expanded.words[2]);
    } else if (!runCommand(expanded.words)) {
        throw InitError(line.number,
                        expanded.words[0] + " " + expanded.words[1] + ": " + strerror(errno));
    }
}

// Substitutes the values of ${NAME}.
std::string InitRunner::expand(int number, const std::string& text) const {
    std::string result;
    size_t from = 0;
    for (size_t at; (at = text.find("${", from)) != std::string::npos;) {
        const size_t end = text.find('}', at);
        const std::string name = end == std::string::npos ? "" : text.substr(at + 2, end - at - 2);
        if (property(name).empty()) throw InitError(number, "no such property: " + text);
        result += text.substr(from, at - from) + property(name);
        from = end + 1;
    }
    return result + text.substr(from);
}

}  // namespace korvane::test
