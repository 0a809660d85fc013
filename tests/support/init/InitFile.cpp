// SPDX-License-Identifier: Apache-2.0
#include "support/init/InitFile.h"

#include <algorithm>
#include <regex>

namespace korvane::test {
namespace {

// The form of an argument: a pattern that must match all of it, and a description in words.
struct Form {
    const char* pattern;
    const char* name;
};

constexpr Form kAny = {"[^]*", "any text"};
constexpr Form kName = {"[A-Za-z0-9_.:@-]+", "a name"};
constexpr Form kPath = {"/[^]*", "an absolute path"};
constexpr Form kMode = {"0?[0-7]{3}", "an octal mode"};
constexpr Form kNumber = {"[0-9]{1,9}", "a number"};
constexpr Form kInterface = {"[a-z0-9_.]+@[0-9]+\\.[0-9]+::I[A-Za-z0-9]+",
                             "PACKAGE@VERSION::INTERFACE"};

// A command or an option: its name, the forms of its arguments, and how many of them are required.
struct Rule {
    const char* name;
    std::vector<Form> arguments;
    size_t needed;
    bool once;  // at most once in a service
};

const std::vector<Rule>& commandRules() {
    static const std::vector<Rule> rules = {
            {"chmod", {kMode, kPath}, 2, false},
            {"mkdir", {kPath, kMode, kName, kName}, 1, false},
            {"rm", {kPath}, 1, false},
            {"setprop", {kName, kAny}, 2, false},
            {"symlink", {kPath, kPath}, 2, false},
            {"write", {kPath, kAny}, 2, false},
    };
    return rules;
}

const std::vector<Rule>& optionRules() {
    static const std::vector<Rule> rules = {
            {"class", {kName}, 1, true},
            {"group", {kName}, 1, true},
            {"interface", {kInterface, kName}, 2, false},
            {"rlimit", {kName, kNumber, kNumber}, 3, false},
            {"user", {kName}, 1, true},
    };
    return rules;
}

const Rule& checkLine(const std::vector<Rule>& rules, const char* what, const InitLine& line) {
    const std::string& name = line.words[0];
    const auto rule = std::find_if(rules.begin(), rules.end(),
                                   [&name](const Rule& rule) { return name == rule.name; });
    if (rule == rules.end()) throw InitError(line.number, "no " + std::string(what) + ": " + name);
    const size_t count = line.words.size() - 1;
    if (count < rule->needed || count > rule->arguments.size()) {
        throw InitError(line.number, name + " with " + std::to_string(count) + " arguments");
    }
    for (size_t i = 0; i < count; ++i) {
        const Form& form = rule->arguments[i];
        const std::string& argument = line.words[i + 1];
        if (!std::regex_match(argument, std::regex(form.pattern))) {
            throw InitError(line.number, name + ": '" + argument + "' is not " + form.name);
        }
    }
    return *rule;
}

// A limit is known by name, since init refuses any other, and never exceeds its own maximum.
void checkLimit(const InitLine& line) {
    if (line.words[1] != "nofile") throw InitError(line.number, "no limit: " + line.words[1]);
    if (std::stoi(line.words[2]) > std::stoi(line.words[3])) {
        throw InitError(line.number, "rlimit: the soft limit is above the hard one");
    }
}

void addOption(const InitLine& line, InitService* service) {
    const Rule& rule = checkLine(optionRules(), "option of a service", line);
    const bool repeated = std::any_of(
            service->options.begin(), service->options.end(), [&](const InitLine& other) {
                return rule.once ? other.words[0] == line.words[0] : other.words == line.words;
            });
    if (repeated) throw InitError(line.number, line.words[0] + " a second time");
    if (line.words[0] == "rlimit") checkLimit(line);
    service->options.push_back(line);
}

void addTrigger(const InitLine& line, const std::string& word, InitAction* action) {
    static const std::string kProperty = "property:";
    if (word.compare(0, kProperty.size(), kProperty) != 0) {
        if (!std::regex_match(word, std::regex(kName.pattern))) {
            throw InitError(line.number, "no trigger: " + word);
        }
        if (!action->event.empty()) throw InitError(line.number, "a second event: " + word);
        action->event = word;
        return;
    }
    const size_t equals = word.find('=');
    if (equals == std::string::npos || equals == kProperty.size()) {
        throw InitError(line.number, "no property:NAME=VALUE: " + word);
    }
    action->properties.emplace_back(word.substr(kProperty.size(), equals - kProperty.size()),
                                    word.substr(equals + 1));
}

InitAction readAction(const InitLine& line) {
    InitAction action;
    action.number = line.number;
    if (line.words.size() % 2 != 0) throw InitError(line.number, "a trigger is missing");
    for (size_t i = 1; i < line.words.size(); ++i) {
        if (i % 2 == 1) {
            addTrigger(line, line.words[i], &action);
        } else if (line.words[i] != "&&") {
            throw InitError(line.number, "&& is wanted, not " + line.words[i]);
        }
    }
    return action;
}

InitService readService(const InitLine& line) {
    if (line.words.size() < 3) throw InitError(line.number, "a service without a program");
    if (line.words[2].front() != '/') throw InitError(line.number, "no absolute path of a program");
    return {line.words[1], {line.words.begin() + 2, line.words.end()}, {}};
}

}  // namespace

InitFile parseInit(const std::string& text) {
    InitFile file;
    InitAction* action = nullptr;
    InitService* service = nullptr;
    for (const InitLine& line : tokenizeInit(text)) {
        if (line.words[0] == "on") {
            action = &file.actions.emplace_back(readAction(line));
            service = nullptr;
        } else if (line.words[0] == "service") {
            service = &file.services.emplace_back(readService(line));
            action = nullptr;
        } else if (action != nullptr) {
            checkLine(commandRules(), "command", line);
            action->commands.push_back(line);
        } else if (service != nullptr) {
            addOption(line, service);
        } else {
            throw InitError(line.number, "below no section: " + line.words[0]);
        }
    }
    return file;
}

}  // namespace korvane::test
