// SPDX-License-Identifier: Apache-2.0
// The system calls that a scripted node answers, interposed at link time.

#include "support/ScriptedKernelHooks.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "support/ScriptedKernel.h"

namespace korvane::test {
namespace {

using Clock = std::chrono::steady_clock;
using Guard = std::unique_lock<std::mutex>;

template <typename Function>
void resolve(const char* name, Function* function) {
    *function = reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

template <typename T>
std::vector<uint8_t> bytesOf(const T& value) {
    const auto* bytes = reinterpret_cast<const uint8_t*>(&value);
    return {bytes, bytes + sizeof(value)};
}

int failWith(int error) {
    errno = error;
    return -1;
}

// The sets that a caller of select passes in or gets back.
struct FdSets {
    fd_set read, write, except;

    FdSets() {
        FD_ZERO(&read);
        FD_ZERO(&write);
        FD_ZERO(&except);
    }
    // Like the kernel, they leave out whatever is not below the width.
    FdSets(int width, const fd_set* r, const fd_set* w, const fd_set* e) : FdSets() {
        if (r != nullptr) read = *r;
        if (w != nullptr) write = *w;
        if (e != nullptr) except = *e;
        for (int fd = width; fd < FD_SETSIZE; ++fd) clear(fd);
    }
    void clear(int fd) {
        FD_CLR(fd, &read);
        FD_CLR(fd, &write);
        FD_CLR(fd, &except);
    }
    bool has(int fd) const {
        return FD_ISSET(fd, &read) || FD_ISSET(fd, &write) || FD_ISSET(fd, &except);
    }
};

void copyBack(const FdSets& ready, fd_set* r, fd_set* w, fd_set* e) {
    if (r != nullptr) *r = ready.read;
    if (w != nullptr) *w = ready.write;
    if (e != nullptr) *e = ready.except;
}

// A thread that calls select, woken through a descriptor of its own.
class Waiter {
  public:
    Waiter() : mEvent(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
        Guard guard(scriptedWorld().lock);
        scriptedWorld().waiters.insert(mEvent);
    }
    ~Waiter() {
        Guard guard(scriptedWorld().lock);
        scriptedWorld().waiters.erase(mEvent);
        libc().close(mEvent);
    }
    int fd() const { return mEvent; }
    void drain() {
        uint64_t count;
        (void)!read(mEvent, &count, sizeof(count));
    }

  private:
    const int mEvent;
};

class Deadline {
  public:
    explicit Deadline(const timeval* timeout) {
        if (timeout == nullptr) return;
        mEnd = Clock::now() + std::chrono::seconds(timeout->tv_sec) +
               std::chrono::microseconds(timeout->tv_usec);
    }
    // Null if there is no timeout.
    timeval* left(timeval* time) const {
        if (!mEnd) return nullptr;
        const auto rest = std::chrono::duration_cast<std::chrono::microseconds>(
                std::max(*mEnd - Clock::now(), Clock::duration::zero()));
        *time = {rest.count() / 1000000, rest.count() % 1000000};
        return time;
    }

  private:
    std::optional<Clock::time_point> mEnd;
};

}  // namespace

void ScriptedWorld::changed_l() {
    const uint64_t one = 1;
    for (int waiter : waiters) (void)!write(waiter, &one, sizeof(one));
}

ScriptedWorld& scriptedWorld() {
    static auto* sWorld = new ScriptedWorld;  // descriptors are still closed while we exit
    return *sWorld;
}

const LibC& libc() {
    static const LibC* sLibC = [] {
        auto* found = new LibC;
        resolve("open", &found->open);
        resolve("close", &found->close);
        resolve("ioctl", &found->ioctl);
        resolve("mmap", &found->mmap);
        resolve("munmap", &found->munmap);
        resolve("select", &found->select);
        resolve("stat", &found->stat);
        return found;
    }();
    return *sLibC;
}

// Each answers a call for a scripted node, or returns nothing if it isn't for one.
struct ScriptedKernel::Hooks {
    template <typename Match>
    static ScriptedKernel* find_l(Match match) {
        for (ScriptedKernel* node : scriptedWorld().nodes) {
            if (match(*node)) return node;
        }
        return nullptr;
    }

    static ScriptedKernel* atPath_l(const char* path) {
        return find_l([&](const ScriptedKernel& node) { return node.mPath == path; });
    }

    static ScriptedKernel* ofDescriptor_l(int fd) {
        return find_l([&](const ScriptedKernel& node) { return node.mDescriptors.count(fd) > 0; });
    }

    static std::optional<int> open(const char* path, int flags) {
        if (!scriptedWorld().active) return {};
        Guard guard(scriptedWorld().lock);
        ScriptedKernel* node = atPath_l(path);
        if (node == nullptr) return {};
        int error = node->mPresent ? 0 : ENOENT;
        if (node->failsNow_l("open", &error) || error != 0) {
            node->record_l("open", -1, -1, error, bytesOf(flags));
            return failWith(error);
        }
        const int fd = fcntl(node->mMemory, F_DUPFD_CLOEXEC, 0);
        node->mDescriptors.insert(fd);
        node->record_l("open", fd, fd, 0, bytesOf(flags));
        return fd;
    }

    // The descriptor is gone whatever close returns, as with the real kernel.
    static std::optional<int> close(int fd) {
        if (!scriptedWorld().active) return {};
        Guard guard(scriptedWorld().lock);
        ScriptedKernel* node = ofDescriptor_l(fd);
        if (node == nullptr) return {};
        node->mDescriptors.erase(fd);
        libc().close(fd);
        if (node->mDescriptors.empty()) node->forget_l();
        int error = 0;
        const int result = node->failsNow_l("close", &error) ? -1 : 0;
        node->record_l("close", fd, result, error, {});
        return result == 0 ? 0 : failWith(error);
    }

    static std::optional<int> ioctl(int fd, unsigned long request, void* argument) {
        if (!scriptedWorld().active) return {};
        Guard guard(scriptedWorld().lock);
        ScriptedKernel* node = ofDescriptor_l(fd);
        if (node == nullptr) return {};
        return node->ioctl_l(fd, request, argument);
    }

    static std::optional<void*> mmap(size_t length, int protection, int flags, int fd,
                                     off_t offset) {
        if (!scriptedWorld().active) return {};
        Guard guard(scriptedWorld().lock);
        ScriptedKernel* node = ofDescriptor_l(fd);
        if (node == nullptr) return {};
        const KernelMapping mapping{length, protection, flags, offset};
        int error = node->refuseMapping_l(mapping);
        void* memory = MAP_FAILED;
        if (!node->failsNow_l("mmap", &error) && error == 0) {
            memory = libc().mmap(nullptr, length, protection, flags, fd, offset);
            if (memory == MAP_FAILED) error = errno;
        }
        if (memory != MAP_FAILED) node->mMappings[memory] = length;
        node->record_l("mmap", fd, memory != MAP_FAILED ? 0 : -1, error, bytesOf(mapping));
        if (memory == MAP_FAILED) errno = error;
        return memory;
    }

    static std::optional<int> munmap(void* memory, size_t length) {
        if (!scriptedWorld().active) return {};
        Guard guard(scriptedWorld().lock);
        ScriptedKernel* node = find_l(
                [&](const ScriptedKernel& other) { return other.mMappings.count(memory) > 0; });
        if (node == nullptr) return {};
        const int result = libc().munmap(memory, length);
        if (result == 0 && node->mMappings[memory] == length) node->mMappings.erase(memory);
        node->record_l("munmap", -1, result, result == 0 ? 0 : errno, bytesOf(length));
        return result;
    }

    static std::optional<int> stat(const char* path, struct stat* status) {
        if (!scriptedWorld().active) return {};
        Guard guard(scriptedWorld().lock);
        const ScriptedKernel* node = atPath_l(path);
        if (node == nullptr) return {};
        if (!node->mPresent) return failWith(ENOENT);
        *status = {};
        status->st_mode = S_IFCHR | 0660;
        return 0;
    }

    static std::optional<int> select(int width, fd_set* r, fd_set* w, fd_set* e,
                                     const timeval* timeout) {
        if (!scriptedWorld().active) return {};
        const FdSets wanted(width, r, w, e);
        // Kept, so that the number of open descriptors is the same inside and outside select.
        static thread_local Waiter waiter;
        const Deadline deadline(timeout);
        while (true) {
            waiter.drain();
            FdSets ready;
            FdSets others = wanted;
            int error = 0;
            const int count = scriptedReady(width, wanted, &ready, &others, &error);
            if (error != 0) return failWith(error);

            FD_SET(waiter.fd(), &others.read);
            timeval left = {0, 0};
            timeval* wait = count > 0 ? &left : deadline.left(&left);
            if (count == 0) ++scriptedWorld().idle;
            const int found = libc().select(std::max(width, waiter.fd() + 1), &others.read,
                                            &others.write, &others.except, wait);
            if (count == 0) --scriptedWorld().idle;
            if (found < 0) return found;
            const bool woken = FD_ISSET(waiter.fd(), &others.read);
            const int otherCount = found - (woken ? 1 : 0);
            if (count == 0 && otherCount == 0 && woken) continue;
            FD_CLR(waiter.fd(), &others.read);
            copyBack(merged(width, ready, others), r, w, e);
            return count + otherCount;
        }
    }

  private:
    // Moves the scripted descriptors out of others and returns how many of their bits are ready.
    static int scriptedReady(int width, const FdSets& wanted, FdSets* ready, FdSets* others,
                             int* error) {
        int count = 0;
        const auto add = [&](int fd, const fd_set& watched, fd_set* set, bool isReady) {
            if (!isReady || !FD_ISSET(fd, &watched)) return;
            FD_SET(fd, set);
            ++count;
        };
        Guard guard(scriptedWorld().lock);
        for (ScriptedKernel* node : scriptedWorld().nodes) {
            for (int fd : node->mDescriptors) {
                if (fd >= width || !wanted.has(fd)) continue;
                others->clear(fd);
                add(fd, wanted.write, &ready->write,
                    !node->mSent.empty() || !node->mStreaming || !node->mPresent);
                add(fd, wanted.except, &ready->except, !node->mEvents.empty() || !node->mPresent);
            }
            if (node->failsNow_l("select", error)) return -1;
        }
        return count;
    }

    static FdSets merged(int width, const FdSets& first, const FdSets& second) {
        FdSets result = second;
        for (int fd = 0; fd < width; ++fd) {
            if (FD_ISSET(fd, &first.write)) FD_SET(fd, &result.write);
            if (FD_ISSET(fd, &first.except)) FD_SET(fd, &result.except);
        }
        return result;
    }
};

}  // namespace korvane::test

using korvane::test::libc;
using Hooks = korvane::test::ScriptedKernel::Hooks;

namespace {

// The thread sanitizer maps its own memory through our mmap before it can run instrumented code.
volatile bool sStarted = false;

__attribute__((constructor)) void markStarted() {
    sStarted = true;
}

void* mapStarted(void* address, size_t length, int protection, int flags, int fd, off_t offset) {
    const auto answer = Hooks::mmap(length, protection, flags, fd, offset);
    return answer ? *answer : libc().mmap(address, length, protection, flags, fd, offset);
}

}  // namespace

extern "C" {

int open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = va_arg(arguments, mode_t);
    va_end(arguments);
    const auto answer = Hooks::open(path, flags);
    return answer ? *answer : libc().open(path, flags, mode);
}

int open64(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = va_arg(arguments, mode_t);
    va_end(arguments);
    return open(path, flags | O_LARGEFILE, mode);
}

int close(int fd) {
    const auto answer = Hooks::close(fd);
    return answer ? *answer : libc().close(fd);
}

int ioctl(int fd, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    const auto answer = Hooks::ioctl(fd, request, argument);
    return answer ? *answer : libc().ioctl(fd, request, argument);
}

__attribute__((no_sanitize("thread"))) void* mmap(void* address, size_t length, int protection,
                                                  int flags, int fd, off_t offset) noexcept {
    if (sStarted) return mapStarted(address, length, protection, flags, fd, offset);
    return reinterpret_cast<void*>(
            syscall(SYS_mmap, address, length, protection, flags, fd, offset));
}

__attribute__((no_sanitize("thread"))) void* mmap64(void* address, size_t length, int protection,
                                                    int flags, int fd, off64_t offset) noexcept {
    return mmap(address, length, protection, flags, fd, offset);
}

int munmap(void* address, size_t length) noexcept {
    const auto answer = Hooks::munmap(address, length);
    return answer ? *answer : libc().munmap(address, length);
}

int select(int width, fd_set* r, fd_set* w, fd_set* e, timeval* timeout) {
    const auto answer = Hooks::select(width, r, w, e, timeout);
    return answer ? *answer : libc().select(width, r, w, e, timeout);
}

int stat(const char* path, struct stat* status) noexcept {
    const auto answer = Hooks::stat(path, status);
    return answer ? *answer : libc().stat(path, status);
}

int stat64(const char* path, struct stat64* status) noexcept {
    return stat(path, reinterpret_cast<struct stat*>(status));
}

}  // extern "C"
