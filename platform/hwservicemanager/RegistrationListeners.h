// SPDX-License-Identifier: Apache-2.0
// Who waits for services to come up.
#pragma once

#include <string>
#include <vector>

#include <android/hidl/manager/1.0/IServiceNotification.h>

namespace android {

/** The listeners of the register. Used by one thread. */
class RegistrationListeners {
  public:
    using Listener = sp<hidl::manager::V1_0::IServiceNotification>;

    /** An empty instance stands for every instance of the interface. */
    void add(const std::string& fqName, const std::string& instance, const Listener& listener);

    /** Takes a listener out wherever it stands. */
    void remove(const sp<hidl::base::V1_0::IBase>& listener);

    /** Tells one listener of a registration, before it listened or since. Doesn't wait for it. */
    static void tell(const Listener& listener, const std::string& fqName,
                     const std::string& instance, bool preexisting);

    /** Tells those who wait for this registration. */
    void notify(const std::string& fqName, const std::string& instance) const;

  private:
    struct Entry {
        std::string fqName;
        std::string instance;
        Listener listener;
    };
    std::vector<Entry> mEntries;
};

}  // namespace android
