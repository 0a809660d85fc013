// SPDX-License-Identifier: Apache-2.0
#include "DebugCommand.h"

#include <cstdio>
#include <memory>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>

#include <android-base/unique_fd.h>

#include "DebugOutput.h"
#include "StatusJson.h"
#include "StatusPage.h"

namespace korvane::hardware::camera::desktop::V2_0::implementation {

using ::android::base::unique_fd;
using ::android::hardware::hidl_string;
using ::android::hardware::hidl_vec;

namespace {

constexpr char kUsage[] =
        "(nothing)      the status as a page\n"
        "--json         the status for programs\n"
        "--dump-frames  write every frame of the stream to the second descriptor, a file\n"
        "--end-dump     write no more frames\n";

// Our own descriptor for the same file, or none if the handle has none.
unique_fd duplicateAt(const native_handle_t* handle, int index) {
    if (index >= handle->numFds) return {};
    return unique_fd(fcntl(handle->data[index], F_DUPFD_CLOEXEC, 0));
}

std::string line(const char* text) {
    return text == nullptr ? "" : std::string(text) + "\n";
}

}  // namespace

void DebugCommand::run(const native_handle_t* handle, const hidl_vec<hidl_string>& options) {
    if (handle == nullptr || handle->numFds < 1) return;
    const std::string option = options.size() == 0 ? "" : std::string(options[0]);
    const std::string text = options.size() > 1 ? kUsage : answer(handle, option);
    writeAtOnce(handle->data[0], text);
}

std::string DebugCommand::answer(const native_handle_t* handle, const std::string& option) {
    if (option.empty()) return statusPage(mController.stats());
    if (option == "--json") return statusJson(mController.stats());
    if (option == "--dump-frames") return dumpFrames(handle);
    if (option == "--end-dump") return endDump();
    return kUsage;
}

std::string DebugCommand::dumpFrames(const native_handle_t* handle) {
    unique_fd fd = duplicateAt(handle, 1);
    if (fd.get() < 0) return "no file for the frames\n";
    if (!isPlainFile(fd.get())) return "frames go to a file only\n";
    std::unique_ptr<FILE, int (*)(FILE*)> file(android::base::Fdopen(std::move(fd), "w"), fclose);
    if (file == nullptr) return "the file can't be written\n";
    return line(mController.dumpFrames(std::move(file)));
}

std::string DebugCommand::endDump() {
    return line(mController.dumpFrames({nullptr, fclose}));
}

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
