// SPDX-License-Identifier: Apache-2.0
// What a client does that doesn't play by the rules.
#pragma once

#include <string>
#include <vector>

#include <korvane/hardware/camera/desktop/2.0/ICameraDesktop.h>
#include <utils/StrongPointer.h>

namespace korvane::hostile {

namespace desktop_v1 = ::korvane::hardware::camera::desktop::V1_0;
namespace desktop_v2 = ::korvane::hardware::camera::desktop::V2_0;

using Service = android::sp<desktop_v2::ICameraDesktop>;
using desktop_v2::ClientType;
using Surface = android::sp<android::hardware::graphics::bufferqueue::V1_0::IGraphicBufferProducer>;

/**
 * One attack. `run` gets the scenario's argument, which is known to be present if one is wanted,
 * and returns whether everything went as it must. What was seen is printed.
 */
struct Scenario {
    const char* name;
    /** What its argument means; empty if it takes none. */
    const char* argument;
    bool (*run)(const std::string& argument);
};

/** All of them. */
const std::vector<Scenario>& scenarios();

/** The daemon's service, after waiting for it; the program ends if there is none. */
Service service();

/** Prints one line, at once. */
void say(const std::string& line);

/** Prints it, then waits to be killed. */
[[noreturn]] void hold(const std::string& line);

/** Prints what should have happened and didn't; false, for the scenario to return. */
bool wrong(const std::string& line);

/** The number in an argument; 0 if there is none. */
unsigned long number(const std::string& argument);

// Calls.
bool find(const std::string&);
bool nest(const std::string&);
bool bringDescriptors(const std::string& count);
bool listen(const std::string& count);
bool beSilent(const std::string& kind);
bool registerAgain(const std::string& count);
bool callAtRandom(const std::string& seed);
// The stream's queue.
bool fillTheQueue(const std::string&);
bool keepSideband(const std::string&);
bool fight(const std::string& seed);
bool neverSignal(const std::string& api);
// A camera that stops at a given step of a stream.
bool beACamera(const std::string& stepAndSignal);

}  // namespace korvane::hostile
