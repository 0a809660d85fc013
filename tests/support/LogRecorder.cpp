// SPDX-License-Identifier: Apache-2.0
#include "support/LogRecorder.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <iterator>
#include <mutex>

namespace korvane::test {
namespace {

// The logger is a plain function, so the record it fills is global.
struct Record {
    std::mutex lock;
    std::condition_variable added;
    std::vector<LogLine> lines;
};

Record& record() {
    static Record* sRecord = new Record;  // threads may still log while the process exits
    return *sRecord;
}

void recordLine(const __android_logger_data* data, const char* message) {
    if (data->priority == ANDROID_LOG_FATAL) __android_log_stderr_logger(data, message);
    std::lock_guard<std::mutex> guard(record().lock);
    record().lines.push_back({static_cast<android_LogPriority>(data->priority),
                              data->tag == nullptr ? "" : data->tag, message});
    record().added.notify_all();
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const LogLine& line) {
    return out << line.priority << ' ' << line.tag << ": " << line.message;
}

LogRecorder::LogRecorder() {
    clear();
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    __android_log_set_logger(recordLine);
}

LogRecorder::~LogRecorder() {
    __android_log_set_logger(__android_log_stderr_logger);
}

std::vector<LogLine> LogRecorder::lines() const {
    std::lock_guard<std::mutex> guard(record().lock);
    return record().lines;
}

std::vector<LogLine> LogRecorder::lines(const std::string& tag) const {
    std::vector<LogLine> result;
    for (const LogLine& line : lines()) {
        if (line.tag == tag) result.push_back(line);
    }
    return result;
}

size_t LogRecorder::count(android_LogPriority priority, const std::string& tag,
                          const std::string& message) const {
    std::lock_guard<std::mutex> guard(record().lock);
    return std::count(record().lines.begin(), record().lines.end(),
                      LogLine{priority, tag, message});
}

bool LogRecorder::waitFor(android_LogPriority priority, const std::string& tag,
                          const std::string& message) const {
    const LogLine wanted{priority, tag, message};
    std::unique_lock<std::mutex> guard(record().lock);
    return record().added.wait_for(guard, std::chrono::seconds(10), [&] {
        const auto& lines = record().lines;
        return std::find(lines.begin(), lines.end(), wanted) != lines.end();
    });
}

void LogRecorder::clear() {
    std::lock_guard<std::mutex> guard(record().lock);
    record().lines.clear();
}

}  // namespace korvane::test
