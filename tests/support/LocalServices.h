// SPDX-License-Identifier: Apache-2.0
// A register of HIDL services inside the test's own process.
#pragma once

#include <string>

#include <android/hidl/base/1.0/IBase.h>
#include <utils/StrongPointer.h>

namespace korvane::test {

/**
 * While this exists, looking up a service finds what the test provides, the way a process finds its
 * own services: the implementation itself. There are no passthrough services. Test programs get
 * this by linking `korvane_local_services`. One at a time; thread-safe.
 */
class LocalServices {
  public:
    LocalServices();
    ~LocalServices();
    LocalServices(const LocalServices&) = delete;
    LocalServices& operator=(const LocalServices&) = delete;

    /** Every lookup of this instance finds the service; null removes it. */
    void provide(const std::string& instance,
                 const ::android::sp<::android::hidl::base::V1_0::IBase>& service);

    /** The next `count` lookups find nothing, whatever is provided. */
    void hide(int lookUps);

    /** Makes lookups wait until release(). */
    void hold();
    void release();

    /** How many lookups there have been, found or not. */
    int lookUps() const;

    /** Waits until there have been this many; false after ten seconds. */
    bool waitForLookUps(int count) const;
};

}  // namespace korvane::test
