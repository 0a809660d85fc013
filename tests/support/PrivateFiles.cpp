// SPDX-License-Identifier: Apache-2.0
#include "support/PrivateFiles.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <vector>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <android-base/unique_fd.h>

namespace korvane::test {
namespace {

namespace fs = std::filesystem;

// Where the new root is assembled: a folder that every machine has. The new root gets it back
// through its descriptor, since the path then leads into the new root.
constexpr char kNewRoot[] = "/mnt";

const std::vector<std::string> kKeptNodes = {"fd",     "full",    "null",   "ptmx",  "pts",
                                             "random", "shm",     "stderr", "stdin", "stdout",
                                             "tty",    "urandom", "zero"};
const std::vector<std::string> kPrivateFolders = {"/config", "/sys/class", "/dev"};

[[noreturn]] void fail(const std::string& what) {
    throw std::runtime_error(what + ": " + strerror(errno));
}

void mountOrFail(const std::string& source, const std::string& target, const char* type,
                 unsigned long flags) {
    if (mount(source.c_str(), target.c_str(), type, flags, nullptr) != 0) {
        fail("mount " + source + " on " + target);
    }
}

void writeOrFail(const std::string& path, const std::string& content) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    if (!(file << content << std::flush)) fail("write " + path);
}

// Makes a file or folder of the machine visible at target, or repeats a symbolic link there.
void show(const fs::path& source, const fs::path& target) {
    if (fs::is_symlink(source)) {
        fs::copy_symlink(source, target);
    } else if (fs::is_directory(source)) {
        fs::create_directory(target);
        mountOrFail(source, target, nullptr, MS_BIND | MS_REC);
    } else {
        writeOrFail(target, "");
        mountOrFail(source, target, nullptr, MS_BIND);
    }
}

void showRoot(const fs::path& root, int mountPoint) {
    for (const auto& entry : fs::directory_iterator("/")) {
        const fs::path name = entry.path().filename();
        if (name == "dev" || name == "config" || entry.path() == kNewRoot) continue;
        show(entry.path(), root / name);
    }
    fs::create_directory(root / fs::path(kNewRoot).filename());
    mountOrFail("/proc/self/fd/" + std::to_string(mountPoint), root / fs::path(kNewRoot).filename(),
                nullptr, MS_BIND | MS_REC);
}

void showDevices(const fs::path& folder) {
    fs::create_directory(folder);
    for (const std::string& name : kKeptNodes) {
        const fs::path source = fs::path("/dev") / name;
        if (fs::exists(fs::symlink_status(source))) show(source, folder / name);
    }
}

void changeRoot(const fs::path& root) {
    const fs::path folder = fs::current_path();
    fs::current_path(root);
    // The old root ends up on top of the new one, and is then unmounted.
    if (syscall(SYS_pivot_root, ".", ".") != 0) fail("pivot_root");
    if (umount2(".", MNT_DETACH) != 0) fail("umount of the old root");
    fs::current_path(folder);
}

// A user namespace grants the right to mount to those who don't have it.
void enterUserNamespace() {
    const std::string user = std::to_string(geteuid());
    const std::string group = std::to_string(getegid());
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) fail("no root and no user namespaces");
    writeOrFail("/proc/self/setgroups", "deny");
    writeOrFail("/proc/self/uid_map", "0 " + user + " 1");
    writeOrFail("/proc/self/gid_map", "0 " + group + " 1");
}

void enter() {
    if (unshare(CLONE_NEWNS) != 0) enterUserNamespace();
    mountOrFail("none", "/", nullptr, MS_REC | MS_PRIVATE);

    const android::base::unique_fd mountPoint(open(kNewRoot, O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (mountPoint == -1) fail(std::string("open ") + kNewRoot);
    mountOrFail("private", kNewRoot, "tmpfs", 0);
    const fs::path root = kNewRoot;
    showRoot(root, mountPoint.get());
    showDevices(root / "dev");
    fs::create_directory(root / "config");
    mountOrFail("private", root / "sys/class", "tmpfs", 0);
    changeRoot(root);
}

// Empty if this process has its own files; otherwise why not.
std::string enterOnce() {
    try {
        enter();
        return "";
    } catch (const std::exception& error) {
        return std::string("a private file system can't be made: ") + error.what();
    }
}

bool isKept(const fs::path& path) {
    if (path.parent_path() != "/dev") return false;
    return std::find(kKeptNodes.begin(), kKeptNodes.end(), path.filename()) != kKeptNodes.end();
}

void clearFolder(const std::string& folder) {
    const std::vector<fs::directory_entry> entries{fs::directory_iterator(folder), {}};
    for (const fs::directory_entry& entry : entries) {
        if (!isKept(entry.path())) fs::remove_all(entry.path());
    }
}

void checkPrivate(const std::string& path) {
    for (const std::string& folder : kPrivateFolders) {
        if (path.rfind(folder + "/", 0) == 0) return;
    }
    throw std::runtime_error(path + " is the machine's");
}

}  // namespace

PrivateFiles::PrivateFiles() {
    static const std::string sWhyNot = enterOnce();
    mWhyNot = sWhyNot;
    clear();
}

PrivateFiles::~PrivateFiles() {
    clear();
}

void PrivateFiles::clear() {
    if (!available()) return;
    for (const std::string& folder : kPrivateFolders) clearFolder(folder);
}

void PrivateFiles::write(const std::string& path, const std::string& content) {
    makeDirectory(fs::path(path).parent_path());
    checkPrivate(path);
    writeOrFail(path, content);
}

void PrivateFiles::makeDirectory(const std::string& path) {
    if (!available()) throw std::runtime_error(mWhyNot);
    checkPrivate(path + "/");
    fs::create_directories(path);
}

void PrivateFiles::remove(const std::string& path) {
    if (!available()) throw std::runtime_error(mWhyNot);
    checkPrivate(path);
    fs::remove_all(path);
}

void PrivateFiles::addVideoDevice(const std::string& name, const std::string& text) {
    write("/dev/" + name, "");
    write("/sys/class/video4linux/" + name + "/name", text);
}

}  // namespace korvane::test
