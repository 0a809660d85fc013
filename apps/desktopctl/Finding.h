// SPDX-License-Identifier: Apache-2.0
// One line of the doctor's report.
#pragma once

#include <string>
#include <vector>

namespace korvane::ctl {

struct Finding {
    enum State {
        RIGHT,
        NOTE,   // works, but perhaps not as wanted
        WRONG,  // prevents a picture
    };

    State state;
    std::string what;  // the part that was checked, one word
    std::string says;
    std::string mend;  // the command, or what to do; empty if nothing is needed
};

using Findings = std::vector<Finding>;

inline Finding right(const std::string& what, const std::string& says) {
    return {Finding::RIGHT, what, says, ""};
}
inline Finding note(const std::string& what, const std::string& says, const std::string& mend) {
    return {Finding::NOTE, what, says, mend};
}
inline Finding wrong(const std::string& what, const std::string& says, const std::string& mend) {
    return {Finding::WRONG, what, says, mend};
}

inline bool anyWrong(const Findings& findings) {
    for (const Finding& finding : findings) {
        if (finding.state == Finding::WRONG) return true;
    }
    return false;
}

}  // namespace korvane::ctl
