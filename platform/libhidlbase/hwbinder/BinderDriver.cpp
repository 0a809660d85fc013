// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "hw-BinderDriver"

#include "BinderDriver.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <log/log.h>

namespace android {
namespace hardware {

BinderDriver::BinderDriver(const char* path) {
    if (!open(path) || !checkVersion(path) || !map(path)) {
        ALOGE("No calls between processes will work: %s cannot be used", path);
    }
}

bool BinderDriver::open(const char* path) {
    mFd.reset(::open(path, O_RDWR | O_CLOEXEC));
    if (!mFd.ok()) ALOGE("Opening %s failed: %s", path, strerror(errno));
    return mFd.ok();
}

bool BinderDriver::checkVersion(const char* path) const {
    binder_version version{};
    if (ioctl(mFd.get(), BINDER_VERSION, &version) != 0) {
        ALOGE("Asking %s for its version failed: %s", path, strerror(errno));
        return false;
    }
    if (version.protocol_version != BINDER_CURRENT_PROTOCOL_VERSION) {
        ALOGE("%s speaks protocol %d, not %d", path, version.protocol_version,
              BINDER_CURRENT_PROTOCOL_VERSION);
        return false;
    }
    return true;
}

bool BinderDriver::map(const char* path) {
    const size_t size = size_t{1024} * 1024 - 2 * static_cast<size_t>(sysconf(_SC_PAGESIZE));
    mArea = ReceiveArea(mFd.get(), size);
    if (!mArea.isMapped()) {
        ALOGE("Mapping %zu bytes of %s failed: %s", size, path, strerror(errno));
    }
    return mArea.isMapped();
}

status_t BinderDriver::request(unsigned long code, void* argument) const {
    if (!isOpen()) return NO_INIT;
    return ioctl(mFd.get(), code, argument) == 0 ? OK : -errno;
}

status_t BinderDriver::setMaxThreads(uint32_t count) const {
    return request(BINDER_SET_MAX_THREADS, &count);
}

status_t BinderDriver::setContextManager(const flat_binder_object& object) const {
    flat_binder_object argument = object;
    return request(BINDER_SET_CONTEXT_MGR_EXT, &argument);
}

status_t BinderDriver::writeRead(binder_write_read* exchange) const {
    status_t status;
    do {
        status = request(BINDER_WRITE_READ, exchange);
    } while (status == -EINTR);
    return status;
}

void BinderDriver::exitThread() const {
    request(BINDER_THREAD_EXIT, nullptr);
}

}  // namespace hardware
}  // namespace android
