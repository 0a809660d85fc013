// SPDX-License-Identifier: Apache-2.0
// A register of HIDL services within the test's own process.
#pragma once

#include <string>

#include <android/hidl/base/1.0/IBase.h>
#include <utils/StrongPointer.h>

namespace korvane::test {

/**
 * While it lives, looking a service up finds what the test provides, as a process finds its own
 * services: the implementation itself. There are no passthrough ones. A test program has this by
 * linking `korvane_local_services`. One at a time; thread-safe.
 */
class LocalServices {
  public:
    LocalServices();
    ~LocalServices();
    LocalServices(const LocalServices&) = delete;
    LocalServices& operator=(const LocalServices&) = delete;

    /** Every look-up of this instance finds the service; null removes it. */
    void provide(const std::string& instance,
                 const ::android::sp<::android::hidl::base::V1_0::IBase>& service);

    /** The next look-ups, so many, find nothing, whatever is provided. */
    void hide(int lookUps);

    /** Makes look-ups wait until release(). */
    void hold();
    void release();

    /** How many look-ups there have been, found or not. */
    int lookUps() const;

    /** Waits until there have been so many; false after ten seconds. */
    bool waitForLookUps(int count) const;
};

}  // namespace korvane::test
