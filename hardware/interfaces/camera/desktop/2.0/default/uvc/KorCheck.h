// SPDX-License-Identifier: Apache-2.0
// The frame source's fatal checks. Each check is a site with a fixed number, by which a crash
// report names it whatever becomes of the lines of the source; tag and text are part of what is
// reported.
#pragma once

#include <log/log.h>

// The logger's own macro takes the tag from LOG_TAG; this one is the same wherever it is used.
#define KOR_FATAL(site, text)                 \
    __android_log_assert(                     \
            nullptr, "KorBufferSource", "%s", \
            "hardware/interfaces/camera/desktop/2.0/default/uvc/KorBufferSource:" #site " " text)

/** Aborts unless the condition holds, and quotes it. */
#define KOR_CHECK(site, condition)                                          \
    do {                                                                    \
        if (!(condition)) KOR_FATAL(site, "CHECK(" #condition ") failed."); \
    } while (false)

/** The same with a fixed text, for a condition that is quoted in other words than are tested. */
#define KOR_CHECK_AS(site, condition, text)                           \
    do {                                                              \
        if (!(condition)) KOR_FATAL(site, "CHECK(" text ") failed."); \
    } while (false)

/** Aborts; marks code that must be unreachable. `text` may be empty. */
#define KOR_TRESPASS(site, text) KOR_FATAL(site, "Should not be here. " text)
