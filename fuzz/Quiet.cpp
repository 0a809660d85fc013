// SPDX-License-Identifier: Apache-2.0
// Keeps the log out of the way: hundreds of thousands of lines a second say nothing.
#include <android/log.h>

namespace {

void drop(const __android_logger_data*, const char*) {}

const bool sIsQuiet = [] {
    __android_log_set_logger(drop);
    return true;
}();

}  // namespace

/** Called by libFuzzer, which it makes the linker take this file for. */
extern "C" int LLVMFuzzerInitialize(int*, char***) {
    return sIsQuiet ? 0 : 1;
}
