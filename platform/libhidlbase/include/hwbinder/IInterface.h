// SPDX-License-Identifier: Apache-2.0
// What typed objects have in common: they know the binder behind them.
#pragma once

#include <hwbinder/Binder.h>

namespace android {
namespace hardware {

/** A typed object with a binder behind it. */
class IInterface : public virtual RefBase {
  public:
    IInterface();

    /** The binder behind an object; null for null. */
    static sp<IBinder> asBinder(const IInterface* object);
    static sp<IBinder> asBinder(const sp<IInterface>& object);

  protected:
    ~IInterface() override;

    virtual IBinder* onAsBinder() = 0;
};

/** A proxy that implements INTERFACE by calls to the object that it was made with. */
template <typename INTERFACE>
class BpInterface : public INTERFACE, public IInterface, public BpHwRefBase {
  public:
    explicit BpInterface(const sp<IBinder>& remote) : BpHwRefBase(remote) {}

  protected:
    IBinder* onAsBinder() override { return remote(); }
};

}  // namespace hardware
}  // namespace android
