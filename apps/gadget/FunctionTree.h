// SPDX-License-Identifier: Apache-2.0
// Builds the gadget's folders in configfs, step by step, and takes them down.
#pragma once

#include <string>

#include "GadgetSettings.h"

namespace korvane::gadget {

/**
 * One build of the gadget. After a step has failed the later ones do nothing, so that the steps
 * read as a plain sequence; make() reports the first failure.
 */
class FunctionTree {
  public:
    explicit FunctionTree(const GadgetSettings& settings) : mSettings(settings) {}

    /** Returns an empty text, or one line that says what failed; then parts are left behind. */
    std::string make();

    /** Removes the gadget, or whatever there is of it; the result is as for make(). */
    static std::string remove();

  private:
    void makeDevice();
    void makeFunction(const std::string& function);
    void makeControl();
    void offerNoControls();
    void makeStreaming();
    void makeFormat(const std::string& folder, Format format);
    void makeFrame(const std::string& folder, const Frame& frame);
    void linkFunctions();

    void folder(const std::string& path);
    void link(const std::string& target, const std::string& path);
    void write(const std::string& path, const std::string& value);
    void write(const std::string& path, unsigned long value) { write(path, std::to_string(value)); }

    const GadgetSettings& mSettings;
    std::string mError;
};

}  // namespace korvane::gadget
