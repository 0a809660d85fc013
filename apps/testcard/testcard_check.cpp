// SPDX-License-Identifier: Apache-2.0
// testcard-check: does what the host captured match what the camera drew?

#include <cinttypes>
#include <cstdio>
#include <fstream>
#include <numeric>
#include <optional>
#include <string>
#include <vector>

#include "Capture.h"
#include "CheckOptions.h"
#include "ContactSheet.h"
#include "FrameChecker.h"
#include "FrameLog.h"
#include "HostTimes.h"

namespace korvane::testcard {
namespace {

constexpr int kWrong = 1;
constexpr int kCannotCheck = 2;

int cannotCheck(const std::string& file, const std::string& why) {
    fprintf(stderr, "testcard-check: %s: %s\n", file.c_str(), why.c_str());
    return kCannotCheck;
}

/** The files named on the command line, read. */
struct Evidence {
    FrameLog log;
    Capture capture;
    HostTimes times;

    /** Returns 0, or the exit status after reporting what can't be read. */
    int read(const CheckOptions& options);

  private:
    int readTimes(const std::string& path);
};

int Evidence::read(const CheckOptions& options) {
    std::string error;
    if (!options.codesOnly) {
        std::ifstream file(options.log);
        if (!file) return cannotCheck(options.log, "cannot be opened");
        if (!log.read(file, &error)) {
            return cannotCheck(options.log, "not a camera's log: " + error);
        }
    }
    if (!capture.open(options.capture, *options.format, options.layout->width(),
                      options.layout->height(), &error)) {
        return cannotCheck(options.capture, error);
    }
    if (!options.times.empty()) return readTimes(options.times);
    times.order.resize(capture.frames().size());
    std::iota(times.order.begin(), times.order.end(), size_t{0});
    return 0;
}

int Evidence::readTimes(const std::string& path) {
    std::ifstream file(path);
    if (!file) return cannotCheck(path, "cannot be opened");
    times = HostTimes::read(file);
    if (times.received.size() == capture.frames().size()) return 0;
    return cannotCheck(path, std::to_string(times.received.size()) + " receive times for " +
                                     std::to_string(capture.frames().size()) + " frames");
}

/** The check of all frames and its result. */
class Check {
  public:
    Check(const CheckOptions& options, const Evidence& evidence)
        : mOptions(options),
          mEvidence(evidence),
          mChecker(*options.layout, *options.format, evidence.log) {}

    int run() {
        for (size_t i : mEvidence.times.order) checkFrame(i);
        for (uint32_t number : mChecker.lostFrames()) {
            complain("lost: frame " + std::to_string(number));
        }
        if (mComplaints > kShownComplaints) {
            fprintf(stderr, "... and %zu more\n", mComplaints - kShownComplaints);
        }
        const CheckCounts counts = mChecker.counts();
        const bool good = counts.sound() && counts.lost <= mOptions.maxLost;
        print(counts, good);
        return good ? 0 : kWrong;
    }

  private:
    static constexpr size_t kShownComplaints = 20;

    void checkFrame(size_t index) {
        const auto wrong = mChecker.check(mEvidence.capture.frames()[index]);
        if (wrong) complain("received " + std::to_string(index) + ": " + *wrong);
        const auto drawn = mChecker.drawnAtUs();
        if (drawn && !mEvidence.times.received.empty()) {
            mLatencies.push_back(static_cast<int64_t>(mEvidence.times.received[index] - *drawn));
        }
    }

    void complain(const std::string& text) {
        if (++mComplaints <= kShownComplaints) fprintf(stderr, "%s\n", text.c_str());
    }

    void print(const CheckCounts& counts, bool good) const {
        printf("{\"result\":\"%s\",\"format\":\"%s\",\"width\":%u,\"height\":%u,\"drawn\":%zu,"
               "\"received\":%zu,\"lost\":%zu,\"repeated\":%zu,\"out_of_order\":%zu,\"torn\":%zu,"
               "\"unreadable\":%zu,\"unknown\":%zu,\"wrong_pixels\":%zu",
               good ? "ok" : "wrong", nameOf(*mOptions.format), mOptions.layout->width(),
               mOptions.layout->height(), counts.drawn, counts.received, counts.lost,
               counts.repeated, counts.outOfOrder, counts.torn, counts.unreadable, counts.unknown,
               counts.wrongPixels);
        if (const auto latency = latencyOf(mLatencies)) {
            printf(",\"latency_us\":{\"min\":%" PRId64 ",\"median\":%" PRId64 ",\"p95\":%" PRId64
                   ",\"max\":%" PRId64
                   "},\"rate_fps\":%.2f,\"host_dropped\":%zu"
                   ",\"host_swapped\":%zu",
                   latency->min, latency->median, latency->p95, latency->max,
                   rateOf(mEvidence.times.received), mEvidence.times.dropped,
                   mEvidence.times.swapped);
        }
        printf("}\n");
    }

    const CheckOptions& mOptions;
    const Evidence& mEvidence;
    FrameChecker mChecker;
    std::vector<int64_t> mLatencies;
    size_t mComplaints = 0;
};

int writeContactSheet(const CheckOptions& options, const std::vector<Frame>& frames) {
    ContactSheet sheet(options.layout->width(), options.layout->height());
    std::string error;
    for (size_t index : ContactSheet::choose(frames.size())) {
        Picture picture;
        if (decodeFrame(frames[index], *options.format, options.layout->width(),
                        options.layout->height(), &picture, &error)) {
            sheet.add(picture);
        }
    }
    if (sheet.write(options.contactSheet, &error)) return 0;
    return cannotCheck(options.contactSheet, error);
}

// What the frame's two codes say; frames with no codes, or with two different ones, have none.
std::string codeOf(const CheckOptions& options, const Frame& frame) {
    Picture picture;
    std::string error;
    if (!decodeFrame(frame, *options.format, options.layout->width(), options.layout->height(),
                     &picture, &error)) {
        return "undecodable";
    }
    if (picture.width != options.layout->width() || picture.height != options.layout->height()) {
        return "of another size";
    }
    const CardReading reading = readCard(*options.layout, picture.luma());
    if (!reading.readable() || reading.torn()) return "no code";
    return std::to_string(reading.top->number) + " " + nameOf(reading.top->notice);
}

int printCodes(const CheckOptions& options, const std::vector<Frame>& frames) {
    for (const Frame& frame : frames) printf("%s\n", codeOf(options, frame).c_str());
    return 0;
}

int run(const std::vector<std::string>& arguments) {
    CheckOptions options;
    const std::string wrong = options.read(arguments);
    if (!wrong.empty()) {
        fprintf(stderr, "%s\n", wrong.c_str());
        return kCannotCheck;
    }
    if (!options.help.empty()) {
        fputs(options.help.c_str(), stdout);
        return 0;
    }
    Evidence evidence;
    int status = evidence.read(options);
    if (status == 0 && !options.contactSheet.empty()) {
        status = writeContactSheet(options, evidence.capture.frames());
    }
    if (status != 0) return status;
    if (options.codesOnly) return printCodes(options, evidence.capture.frames());
    return Check(options, evidence).run();
}

}  // namespace
}  // namespace korvane::testcard

int main(int argc, char** argv) {
    return korvane::testcard::run({argv + 1, argv + argc});
}
