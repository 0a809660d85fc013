// SPDX-License-Identifier: Apache-2.0
// Lets a program's debug lines through: Debian's log drops everything below "info" until told
// otherwise; the phone's does not.

#include <android/log.h>

namespace {

__attribute__((constructor)) void showDebugLines() {
    __android_log_set_minimum_priority(ANDROID_LOG_DEBUG);
}

}  // namespace
