// SPDX-License-Identifier: Apache-2.0
#include "FrameStamp.h"

namespace korvane::testcard {

const char* nameOf(Notice notice) {
    switch (notice) {
        case Notice::kNone:
            return "none";
        case Notice::kStarting:
            return "starting";
        case Notice::kAbsent:
            return "absent";
        case Notice::kFailed:
            return "failed";
        case Notice::kEnded:
            return "ended";
        case Notice::kSilent:
            return "silent";
        case Notice::kCovered:
            return "covered";
    }
    return "unknown";
}

}  // namespace korvane::testcard
