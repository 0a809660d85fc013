// SPDX-License-Identifier: Apache-2.0
// Records what the code under test logs, so that a test can compare tag, priority and text.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include <android/log.h>

namespace korvane::test {

/** One line of the log. */
struct LogLine {
    android_LogPriority priority;
    std::string tag;
    std::string message;

    bool operator==(const LogLine& other) const {
        return priority == other.priority && tag == other.tag && message == other.message;
    }
};

std::ostream& operator<<(std::ostream& out, const LogLine& line);

/**
 * Captures every line that this process logs, on any thread, while the object exists; before and
 * after, lines go to stderr. One at a time. Thread-safe.
 *
 * A line that ends the process (a failed check) also goes to stderr, for death tests.
 */
class LogRecorder {
  public:
    LogRecorder();
    ~LogRecorder();
    LogRecorder(const LogRecorder&) = delete;
    LogRecorder& operator=(const LogRecorder&) = delete;

    /** All lines so far, oldest first. */
    std::vector<LogLine> lines() const;

    /** Only the lines of one tag. */
    std::vector<LogLine> lines(const std::string& tag) const;

    /** How many lines have exactly this priority, tag and text. */
    size_t count(android_LogPriority priority, const std::string& tag,
                 const std::string& message) const;

    bool has(android_LogPriority priority, const std::string& tag,
             const std::string& message) const {
        return count(priority, tag, message) > 0;
    }

    /** Waits until such a line has been logged; false if that takes more than ten seconds. */
    bool waitFor(android_LogPriority priority, const std::string& tag,
                 const std::string& message) const;

    /** Discards the lines so far. */
    void clear();
};

}  // namespace korvane::test
