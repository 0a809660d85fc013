// SPDX-License-Identifier: Apache-2.0
// Parses a program's command line.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace korvane::options {

/**
 * One option, written "--name VALUE" or "--name=VALUE"; "--name" alone if it takes no value.
 *
 * `take` is given the value and returns what is accepted instead ("a number from 1"), or an empty
 * text if it took the value.
 */
struct Option {
    std::string name;   // with the two dashes
    std::string value;  // what the help calls the value; empty if it takes none
    std::string help;
    std::function<std::string(const std::string&)> take;
};

/** The command line of one program. */
class Options {
  public:
    /**
     * `program` is the name that messages begin with, `operand` what the help calls the one
     * argument that is not an option, empty if there is none; `takeOperand` is its `take`, as
     * for an option.
     */
    Options(std::string program, std::string purpose, std::vector<Option> options,
            std::string operand = "",
            std::function<std::string(const std::string&)> takeOperand = nullptr);

    /**
     * Parses the arguments after the program's name. Returns an empty text, or one line that says
     * which argument is wrong and what is accepted. The operand is required if there can be one.
     * Parsing stops at "--help" or "--version", which set wantsHelp().
     */
    std::string read(const std::vector<std::string>& arguments);

    /** Whether to show help() and do nothing else. */
    bool wantsHelp() const { return mWantsHelp; }

    /** The text for --help, with all options; after "--version" the program's name and version. */
    std::string help() const;

  private:
    std::string readOption(const std::vector<std::string>& arguments, size_t* index);
    std::string readOperand(const std::string& argument);
    const Option* find(const std::string& name) const;
    std::string accepted() const;

    std::string mProgram;
    std::string mPurpose;
    std::vector<Option> mOptions;
    std::string mOperand;
    std::function<std::string(const std::string&)> mTakeOperand;
    bool mOperandTaken = false;
    bool mWantsHelp = false;
    bool mWantsVersion = false;
};

/** The version of all programs, like "1.2.0". */
std::string version();

/** The number that a text consists of; false if it is anything else or out of bounds. */
bool numberFrom(const std::string& text, unsigned long least, unsigned long most,
                unsigned long* out);

/** A size like 1280x720; false if the text is anything else. */
bool sizeFrom(const std::string& text, unsigned* width, unsigned* height);

}  // namespace korvane::options
