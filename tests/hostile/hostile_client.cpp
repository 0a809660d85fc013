// SPDX-License-Identifier: Apache-2.0
// hostile-client SCENARIO [ARGUMENT]: attacks the daemon as any program can that may open the
// binder device. Exits with 0 if the attack went as it must, 1 if not, 2 for arguments that make no
// sense.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>

#include <unistd.h>

#include "Scenario.h"

namespace korvane::hostile {

const std::vector<Scenario>& scenarios() {
    static const std::vector<Scenario> sAll = {
            {"again", "COUNT", registerAgain},
            {"camera", "STEP:SIGNAL", beACamera},
            {"descriptors", "COUNT", bringDescriptors},
            {"find", "", find},
            {"fences", "API", neverSignal},
            {"fight", "SEED", fight},
            {"listeners", "COUNT", listen},
            {"memory", "", fillTheQueue},
            {"nested", "", nest},
            {"random", "SEED", callAtRandom},
            {"sideband", "", keepSideband},
            {"silent", "KIND", beSilent},
    };
    return sAll;
}

/** No attack: whether the service is found at once. */
bool find(const std::string&) {
    return service() != nullptr;
}

Service service() {
    Service found = desktop_v2::ICameraDesktop::getService();
    if (found == nullptr) {
        fprintf(stderr, "hostile-client: there is no service\n");
        exit(EXIT_FAILURE);
    }
    return found;
}

void say(const std::string& line) {
    printf("%s\n", line.c_str());
    fflush(stdout);
}

void hold(const std::string& line) {
    say(line);
    while (true) pause();
}

bool wrong(const std::string& line) {
    say("WRONG: " + line);
    return false;
}

unsigned long number(const std::string& argument) {
    return strtoul(argument.c_str(), nullptr, 10);
}

namespace {

int refuse() {
    std::string names;
    for (const Scenario& scenario : scenarios()) {
        names += std::string(names.empty() ? "" : ", ") + scenario.name;
        if (*scenario.argument != '\0') names += std::string(" ") + scenario.argument;
    }
    fprintf(stderr, "hostile-client: one of these is needed: %s\n", names.c_str());
    return 2;
}

}  // namespace
}  // namespace korvane::hostile

int main(int argc, char** argv) {
    using namespace korvane::hostile;
    for (const Scenario& scenario : scenarios()) {
        if (argc < 2 || std::string(scenario.name) != argv[1]) continue;
        const bool wantsArgument = *scenario.argument != '\0';
        if (argc != (wantsArgument ? 3 : 2)) return refuse();
        // Not exit(): the attack's threads may be anywhere.
        _exit(scenario.run(wantsArgument ? argv[2] : "") ? EXIT_SUCCESS : EXIT_FAILURE);
    }
    return refuse();
}
