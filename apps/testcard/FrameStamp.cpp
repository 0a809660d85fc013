// SPDX-License-Identifier: Apache-2.0
#include "FrameStamp.h"

namespace korvane::testcard {

const char* nameOf(Notice notice) {
    switch (notice) {
        case Notice::NONE:
            return "none";
        case Notice::STARTING:
            return "starting";
        case Notice::ABSENT:
            return "absent";
        case Notice::FAILED:
            return "failed";
        case Notice::ENDED:
            return "ended";
        case Notice::SILENT:
            return "silent";
        case Notice::COVERED:
            return "covered";
    }
    return "unknown";
}

}  // namespace korvane::testcard
