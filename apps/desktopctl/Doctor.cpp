// SPDX-License-Identifier: Apache-2.0
#include "Doctor.h"

#include <chrono>
#include <cstdio>
#include <iterator>
#include <thread>

#include <sys/utsname.h>

#include <android/hidl/manager/1.0/IServiceManager.h>
#include <hidl/ServiceManagement.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include "Deadline.h"
#include "FunctionChecks.h"
#include "MachineChecks.h"
#include "Service.h"
#include "ServiceChecks.h"

namespace korvane::ctl {
namespace {

constexpr std::chrono::seconds kWatched{1};
constexpr unsigned kAnswerSeconds = 5;

void append(Findings* findings, const Findings& more) {
    findings->insert(findings->end(), more.begin(), more.end());
}

const char* nameOf(Finding::State state) {
    switch (state) {
        case Finding::RIGHT:
            return "right";
        case Finding::NOTE:
            return "note";
        case Finding::WRONG:
            break;
    }
    return "wrong";
}

Findings checkService() {
    const Deadline deadline(kAnswerSeconds);
    const auto service = Service::find();
    if (!service) return checkMissingService();
    const auto start = std::chrono::steady_clock::now();
    const auto status = service->status();
    std::this_thread::sleep_for(kWatched);
    const auto later = service->status();
    if (!status || !later) return checkMissingService();
    const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - start;
    return checkStatus(*status, *later, passed.count());
}

Findings checkPrograms() {
    Findings findings = checkBinder();
    if (anyWrong(findings)) return findings;
    const bool managed = ::android::hardware::defaultServiceManager() != nullptr;
    append(&findings, checkManager(managed));
    if (managed) append(&findings, checkService());
    return findings;
}

Findings checkGadget(std::string* udc) {
    Findings findings = checkGadgetSupport();
    if (anyWrong(findings)) return findings;
    utsname kernel = {};
    uname(&kernel);
    append(&findings, checkFunction(kernel.release, udc));
    if (udc->empty()) return findings;
    append(&findings, checkNode());
    return findings;
}

// The host sees a webcam only once the service has opened the node.
Findings checkAll() {
    std::string udc;
    Findings findings = checkGadget(&udc);
    append(&findings, checkPrograms());
    if (!anyWrong(findings)) append(&findings, checkHost(udc));
    return findings;
}

}  // namespace

std::string findingsAsText(const Findings& findings) {
    std::string text;
    for (const Finding& finding : findings) {
        char head[32];
        snprintf(head, sizeof(head), "%-5s  %-10s  ", nameOf(finding.state), finding.what.c_str());
        text += head + finding.says + "\n";
        if (!finding.mend.empty()) text += "       mend:       " + finding.mend + "\n";
    }
    return text;
}

std::string findingsAsJson(const Findings& findings) {
    rapidjson::StringBuffer text;
    rapidjson::Writer<rapidjson::StringBuffer> writer(text);
    writer.StartArray();
    for (const Finding& finding : findings) {
        writer.StartObject();
        writer.Key("what");
        writer.String(finding.what.c_str());
        writer.Key("state");
        writer.String(nameOf(finding.state));
        writer.Key("says");
        writer.String(finding.says.c_str());
        writer.Key("mend");
        writer.String(finding.mend.c_str());
        writer.EndObject();
    }
    writer.EndArray();
    return std::string(text.GetString()) + "\n";
}

int runDoctor(bool json) {
    const Findings findings = checkAll();
    fputs((json ? findingsAsJson(findings) : findingsAsText(findings)).c_str(), stdout);
    return anyWrong(findings) ? 1 : 0;
}

}  // namespace korvane::ctl
