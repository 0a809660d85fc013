// SPDX-License-Identifier: Apache-2.0
// Who waits for services to come up.
#pragma once

#include <cstddef>
#include <string>
#include <unordered_map>
#include <vector>

#include <sys/types.h>

#include <android/hidl/manager/1.0/IServiceNotification.h>

#include "ObjectIdentity.h"

namespace android {

/**
 * The listeners of the register. Anybody may listen, so there are bounds; a listener that dies
 * costs no more work than its own entries. Used by one thread.
 */
class RegistrationListeners {
  public:
    using Listener = sp<hidl::manager::V1_0::IServiceNotification>;

    static constexpr size_t kMaxOfOneProcess = 64;
    static constexpr size_t kMaxOfAll = 1024;

    /** Whether this process may add one more listener. */
    bool hasRoomFor(pid_t caller) const;

    /** Whether the listener is already here, through this proxy or another. */
    bool has(const Listener& listener) const;

    /**
     * An empty instance stands for every instance of the interface. The listener's first proxy is
     * kept for as long as the listener is here.
     */
    void add(const std::string& fqName, const std::string& instance, const Listener& listener,
             pid_t caller);

    /** Removes a listener wherever it was added. */
    void remove(const sp<hidl::base::V1_0::IBase>& listener);

    /**
     * Tells one listener of a registration made before or since it began to listen. Doesn't wait
     * for it.
     */
    static void tell(const Listener& listener, const std::string& fqName,
                     const std::string& instance, bool preexisting);

    /** Tells those who wait for this registration. */
    void notify(const std::string& fqName, const std::string& instance) const;

  private:
    /** What a listener waits for. */
    struct Wish {
        std::string fqName;
        std::string instance;
        pid_t caller;

        bool isMetBy(const std::string& otherName, const std::string& otherInstance) const;
    };
    struct Entry {
        Listener listener;
        std::vector<Wish> wishes;
    };

    std::unordered_map<ObjectIdentity, Entry> mEntries;
    std::unordered_map<pid_t, size_t> mCountOfProcess;
    size_t mCountOfAll = 0;
};

}  // namespace android
