// SPDX-License-Identifier: Apache-2.0
// Between the scripted nodes and the interposed system calls; not for tests.
#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <set>

#include <sys/select.h>
#include <sys/stat.h>
#include <sys/types.h>

namespace korvane::test {

class ScriptedKernel;

/** All scripted nodes of the process. Functions whose names end in _l need the lock. */
struct ScriptedWorld {
    std::mutex lock;
    std::set<ScriptedKernel*> nodes;
    /** Saves programs without a scripted node from taking the lock on every call. */
    std::atomic<bool> active{false};
    std::condition_variable called;
    /** Event descriptors of the threads that wait in select. */
    std::set<int> waiters;
    /** Threads that wait in select, having found no node ready. */
    std::atomic<int> idle{0};

    /** Makes the waiting threads look again. */
    void changed_l();
};

ScriptedWorld& scriptedWorld();

/** The C library's own functions, behind the interposed ones. */
struct LibC {
    int (*open)(const char*, int, ...);
    int (*close)(int);
    int (*ioctl)(int, unsigned long, ...);
    void* (*mmap)(void*, size_t, int, int, int, off_t);
    int (*munmap)(void*, size_t);
    int (*select)(int, fd_set*, fd_set*, fd_set*, timeval*);
    int (*stat)(const char*, struct stat*);
};

const LibC& libc();

}  // namespace korvane::test
