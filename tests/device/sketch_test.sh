#!/bin/bash
# The guide's sketch of a client compiles as the Linux camera application does, with declarations of what it
# leaves to its reader. The build must be configured and its headers generated.
# shellcheck source=tests/device/lib.sh
. "$(dirname "$0")/lib.sh"

guide=docs/phone.md
work=$(mktemp -d)
trap 'rm -rf "$problems" "$work"' EXIT

# The compiler and the flags of the application's part that talks to the service.
command=$(awk '/^ *"command": / {command = $0}
    /^ *"file": .*\/apps\/desktop-camera\/ServiceConnection\.cpp"/ {print command}' \
    "$KORVANE_BUILD/compile_commands.json" | sed -e 's/^ *"command": "//' -e 's/ -o .*//' -e 's/\\"/"/g')
[ -n "$command" ] || { problem "the camera application is not built here"; finish; }

awk '/^```cpp$/ {on = 1; next} /^```/ {on = 0} on' $guide >"$work/sketch"
[ -s "$work/sketch" ] || { problem "$guide has no sketch of a client"; finish; }
cat - "$work/sketch" >"$work/sketch.cpp" <<'CODE'
#define LOG_TAG "sketch"
#include <functional>
#include <string>
#include <hidl/HidlSupport.h>
#include <korvane/hardware/camera/desktop/1.0/ICameraDesktopCallback.h>
#include <korvane/hardware/camera/desktop/2.0/ICameraDesktop.h>
#include <log/log.h>
using android::sp;
using android::wp;
using android::hardware::hidl_death_recipient;
using android::hardware::hidl_string;
using android::hardware::Return;
using android::hardware::Void;
using android::hardware::graphics::bufferqueue::V1_0::IGraphicBufferProducer;
using android::hidl::base::V1_0::IBase;
using korvane::hardware::camera::desktop::V1_0::ICameraDesktopCallback;
using korvane::hardware::camera::desktop::V2_0::ClientType;
using korvane::hardware::camera::desktop::V2_0::ICameraDesktop;
struct WorkThread {
    void post(std::function<void()> work);
};
bool isStreamStart(const std::string& command);
std::string createSurfaceCommand(const std::string& config);
void openCamera(const sp<IGraphicBufferProducer>& producer);
void closeCamera();
CODE
# shellcheck disable=SC2086 # words are wanted
${command#*ccache } -fsyntax-only "$work/sketch.cpp" 2>"$work/log" ||
    problem "the sketch does not compile: $(<"$work/log")"
finish
