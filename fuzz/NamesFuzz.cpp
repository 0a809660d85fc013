// SPDX-License-Identifier: Apache-2.0
// Names that clients give the register: of interfaces, of services, and the chain that a service
// claims to have. The input is one name or several, one per line.
#include <sstream>
#include <string>
#include <vector>

#include "Fuzzer.h"
#include "ServiceNames.h"

using korvane::fuzz::mustHold;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    if (android::isValidFqName(text)) {
        const size_t at = text.find('@');
        mustHold(at != std::string::npos && text.find("::I", at) != std::string::npos,
                 "an interface's name has a version and begins with I");
        mustHold(text.find('\0') == std::string::npos, "nothing is hidden behind a name");
    }
    if (android::isValidInstance(text)) {
        mustHold(!text.empty() && text.size() < 256, "a service's name is no longer");
        for (const char character : text) {
            mustHold(character > ' ' && character <= '~', "a service's name can be printed");
        }
    }
    std::vector<std::string> chain;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) chain.push_back(line);
    if (android::isValidChain(chain)) {
        mustHold(chain.back() == "android.hidl.base@1.0::IBase", "a chain ends at the root");
    }
    return 0;
}
