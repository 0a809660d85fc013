// SPDX-License-Identifier: Apache-2.0
#include "Service.h"

#include <memory>

#include <sys/mman.h>
#include <unistd.h>

#include <android-base/unique_fd.h>
#include <cutils/native_handle.h>

namespace korvane::ctl {

using ::android::base::unique_fd;
using ::android::hardware::hidl_handle;
using ::android::hardware::hidl_string;
using ::android::hardware::hidl_vec;
using ::korvane::hardware::camera::desktop::V2_0::ClientType;

namespace {

struct HandleDelete {
    void operator()(native_handle_t* handle) const { native_handle_delete(handle); }
};
/** Deletes the handle and leaves its descriptors open. */
using BorrowingHandle = std::unique_ptr<native_handle_t, HandleDelete>;

std::string contents(int fd) {
    std::string text;
    char block[4096];
    off_t offset = 0;
    for (;;) {
        const ssize_t size = pread(fd, block, sizeof(block), offset);
        if (size <= 0) return text;
        text.append(block, size);
        offset += size;
    }
}

}  // namespace

std::optional<Service> Service::find() {
    const ::android::sp<ICameraDesktop> service = ICameraDesktop::tryGetService("default");
    if (service == nullptr) return std::nullopt;
    return Service(service);
}

std::optional<std::string> Service::debug(const std::vector<std::string>& options, int file) const {
    // A file takes any answer; a pipe would need someone to read it meanwhile.
    const unique_fd answer(memfd_create("answer", MFD_CLOEXEC));
    if (answer.get() < 0) return std::nullopt;
    const BorrowingHandle handle(native_handle_create(file < 0 ? 1 : 2, 0));
    handle->data[0] = answer.get();
    if (file >= 0) handle->data[1] = file;
    hidl_vec<hidl_string> texts;
    texts.resize(options.size());
    for (size_t i = 0; i < options.size(); ++i) texts[i] = options[i];
    if (!mService->debug(hidl_handle(handle.get()), texts).isOk()) return std::nullopt;
    return contents(answer.get());
}

std::optional<Status> Service::status() const {
    const std::optional<std::string> json = debug({"--json"});
    return json ? parseStatus(*json) : std::nullopt;
}

std::optional<std::string> Service::send(unsigned kind, const std::string& text) const {
    std::string reply;
    const bool reached =
            mService->sendCommand(static_cast<ClientType>(kind), text,
                                  [&reply](const hidl_string& answer) { reply = answer; })
                    .isOk();
    if (!reached) return std::nullopt;
    return reply;
}

}  // namespace korvane::ctl
