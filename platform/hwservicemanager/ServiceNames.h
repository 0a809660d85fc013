// SPDX-License-Identifier: Apache-2.0
// Which names the register accepts.
#pragma once

#include <string>
#include <vector>

namespace android {

/** Whether this is an interface's descriptor, "package@major.minor::IName". */
bool isValidFqName(const std::string& name);

/** Whether this is 1 to 255 printable ASCII characters without a space. */
bool isValidInstance(const std::string& name);

/** Whether these are the descriptors of some interface and its parents, the root one last. */
bool isValidChain(const std::vector<std::string>& chain);

}  // namespace android
