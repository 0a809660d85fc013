// SPDX-License-Identifier: Apache-2.0
#include "Options.h"

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <utility>

namespace korvane::options {

Options::Options(std::string program, std::string purpose, std::vector<Option> options,
                 std::string operand, std::function<std::string(const std::string&)> takeOperand)
    : mProgram(std::move(program)),
      mPurpose(std::move(purpose)),
      mOptions(std::move(options)),
      mOperand(std::move(operand)),
      mTakeOperand(std::move(takeOperand)) {}

std::string Options::read(const std::vector<std::string>& arguments) {
    for (size_t i = 0; i < arguments.size() && !mWantsHelp; ++i) {
        const bool option = arguments[i].size() > 1 && arguments[i][0] == '-';
        const std::string wrong = option ? readOption(arguments, &i) : readOperand(arguments[i]);
        if (!wrong.empty()) return mProgram + ": " + wrong;
    }
    if (mWantsHelp || mOperand.empty() || mOperandTaken) return "";
    return mProgram + ": " + mOperand + " is missing";
}

std::string Options::readOption(const std::vector<std::string>& arguments, size_t* index) {
    const std::string& argument = arguments[*index];
    const size_t equals = argument.find('=');
    const std::string name = argument.substr(0, equals);
    mWantsVersion = argument == "--version";
    mWantsHelp = argument == "--help" || mWantsVersion;
    if (mWantsHelp) return "";
    const Option* option = find(name);
    if (option == nullptr) return "unknown option '" + name + "'; accepted: " + accepted();
    std::string value;
    if (option->value.empty()) {
        if (equals != std::string::npos) return name + " takes no value";
    } else if (equals != std::string::npos) {
        value = argument.substr(equals + 1);
    } else if (*index + 1 < arguments.size()) {
        value = arguments[++*index];
    } else {
        return name + " needs a value: " + option->value;
    }
    const std::string wanted = option->take(value);
    return wanted.empty() ? "" : name + " is '" + value + "', but " + wanted + " is needed";
}

std::string Options::readOperand(const std::string& argument) {
    if (mOperand.empty()) return "unexpected argument '" + argument + "'; accepted: " + accepted();
    if (mOperandTaken) return "more than one " + mOperand + ": '" + argument + "'";
    mOperandTaken = true;
    const std::string wanted = mTakeOperand(argument);
    return wanted.empty() ? "" : mOperand + " is '" + argument + "', but " + wanted + " is needed";
}

const Option* Options::find(const std::string& name) const {
    for (const Option& option : mOptions) {
        if (option.name == name) return &option;
    }
    return nullptr;
}

std::string Options::accepted() const {
    std::string names;
    for (const Option& option : mOptions) names += option.name + ", ";
    return names + "--help";
}

std::string Options::help() const {
    if (mWantsVersion) return mProgram + " " + version() + "\n";
    std::string text = "usage: " + mProgram + " [OPTION...]";
    if (!mOperand.empty()) text += " " + mOperand;
    text += "\n" + mPurpose + "\n\n";
    for (const Option& option : mOptions) {
        text += "  " + option.name + (option.value.empty() ? "" : " " + option.value) + "\n" +
                "        " + option.help + "\n";
    }
    return text + "  --help\n        Show this text.\n" +
           "  --version\n        Show the program's version.\n";
}

std::string version() {
    return KORVANE_VERSION;
}

bool numberFrom(const std::string& text, unsigned long least, unsigned long most,
                unsigned long* out) {
    if (text.empty() || !isdigit(static_cast<unsigned char>(text[0]))) return false;
    char* end = nullptr;
    errno = 0;
    const unsigned long number = strtoul(text.c_str(), &end, 10);
    if (errno != 0 || *end != '\0' || number < least || number > most) return false;
    *out = number;
    return true;
}

bool sizeFrom(const std::string& text, unsigned* width, unsigned* height) {
    const size_t by = text.find('x');
    unsigned long w = 0;
    unsigned long h = 0;
    if (by == std::string::npos || !numberFrom(text.substr(0, by), 1, 65535, &w) ||
        !numberFrom(text.substr(by + 1), 1, 65535, &h)) {
        return false;
    }
    *width = static_cast<unsigned>(w);
    *height = static_cast<unsigned>(h);
    return true;
}

}  // namespace korvane::options
