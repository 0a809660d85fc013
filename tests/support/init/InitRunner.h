// SPDX-License-Identifier: Apache-2.0
// Does for real what the phone's init does with its actions: events, properties and commands.
#pragma once

#include <deque>
#include <map>
#include <string>
#include <vector>

#include "support/init/InitFile.h"

namespace korvane::test {

/**
 * Runs the commands of a file's actions, in this process and on the real file system.
 *
 * The properties of an action with an event are checked once, when the event comes and before any
 * command of that event's actions has run; an action with properties alone starts whenever they
 * have become true, after the actions already waiting. A command that fails ends everything: an
 * InitError with the line and the reason. Used by one thread.
 */
class InitRunner {
  public:
    explicit InitRunner(InitFile file) : mFile(std::move(file)) {}

    /** Raises an event and runs what follows from it. */
    void raise(const std::string& event);

    /** Sets a property as another process would, and runs what follows from it. */
    void setProperty(const std::string& name, const std::string& value);

    /** A property's value; empty if it was never set. */
    std::string property(const std::string& name) const;

    /** The lines of the commands run so far, in order. */
    const std::vector<int>& ran() const { return mRan; }

  private:
    bool holds(const InitAction& action) const;
    void assign(const std::string& name, const std::string& value);
    void runQueue();
    void run(const InitLine& line);
    std::string expand(int number, const std::string& text) const;

    const InitFile mFile;
    std::map<std::string, std::string> mProperties;
    std::deque<const InitAction*> mQueue;
    std::vector<int> mRan;
};

}  // namespace korvane::test
