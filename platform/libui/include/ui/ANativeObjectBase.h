// SPDX-License-Identifier: Apache-2.0
// Turns a C structure of the platform into a reference-counted object.
#pragma once

#include <type_traits>

#include <nativebase/nativebase.h>

namespace android {

/**
 * TYPE derives from this, is counted by REF and can be handed to C code as a NATIVE_TYPE, whose
 * `common` member then leads to the count.
 */
template <typename NATIVE_TYPE, typename TYPE, typename REF,
          typename NATIVE_BASE = android_native_base_t>
class ANativeObjectBase : public NATIVE_TYPE, public REF {
  public:
    void incStrong(const void* id) const { REF::incStrong(id); }
    void decStrong(const void* id) const { REF::decStrong(id); }

  protected:
    using BASE = ANativeObjectBase<NATIVE_TYPE, TYPE, REF, NATIVE_BASE>;

    ANativeObjectBase() {
        NATIVE_TYPE::common.incRef = incRef;
        NATIVE_TYPE::common.decRef = decRef;
    }

    static TYPE* getSelf(NATIVE_TYPE* self) { return static_cast<TYPE*>(self); }
    static const TYPE* getSelf(const NATIVE_TYPE* self) { return static_cast<const TYPE*>(self); }
    static TYPE* getSelf(NATIVE_BASE* base) {
        return getSelf(reinterpret_cast<NATIVE_TYPE*>(base));
    }

    static void incRef(NATIVE_BASE* base) { getSelf(base)->incStrong(base); }
    static void decRef(NATIVE_BASE* base) { getSelf(base)->decStrong(base); }
};

}  // namespace android
