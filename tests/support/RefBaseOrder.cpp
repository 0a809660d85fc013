// SPDX-License-Identifier: Apache-2.0
// Tells ThreadSanitizer which order RefBase guarantees: all uses of an object come before its
// destruction by whoever drops the last reference. The sanitizer can't see the counters, because
// Debian's libutils is built without it, and would report every object shared by two threads as a
// race.
//
// Linked into every test when the thread sanitizer is on, in front of libutils' own functions.

#include <dlfcn.h>

#include <sanitizer/tsan_interface.h>
#include <utils/RefBase.h>

// Asked for by every test's link, so that this file is part of it.
extern "C" const int korvane_ref_base_order;
const int korvane_ref_base_order = 0;

namespace android {

void RefBase::decStrong(const void* id) const {
    using Function = void (*)(const RefBase*, const void*);
    static const auto sDecStrong =
            reinterpret_cast<Function>(dlsym(RTLD_NEXT, "_ZNK7android7RefBase9decStrongEPKv"));
    __tsan_release(const_cast<RefBase*>(this));
    sDecStrong(this, id);
}

// What decStrong calls between the last reference's end and the destructor.
void RefBase::onLastStrongRef(const void* /*id*/) {
    __tsan_acquire(this);
}

}  // namespace android
