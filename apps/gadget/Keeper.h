// SPDX-License-Identifier: Apache-2.0
// Keeps the webcam function bound and its node served, whatever happens to cable, host and service.
#pragma once

#include <functional>
#include <string>

#include "Descriptor.h"
#include "KeeperPlan.h"
#include "NodeWatch.h"
#include "UeventSocket.h"

namespace korvane::gadget {

/**
 * Sleeps until the kernel reports something: that a controller or a video node has come or gone
 * (uevents), that someone has opened or closed the function's node, or that its permissions have
 * changed (inotify). Then it takes stock of everything and lets KeeperPlan decide. One thread;
 * needs root.
 *
 * The controller's `state` would not do: when a program closes the node, no controller has to
 * report it.
 */
class Keeper {
  public:
    /**
     * @param wanted  tells which controller is wanted now, whenever the keeper looks; empty for the
     *                one that it was last bound to, or the only one
     */
    explicit Keeper(std::function<std::string()> wanted) : mWanted(std::move(wanted)) {}

    /** Works until the process ends; returns only to say in one line why it can't go on. */
    std::string run();

  private:
    void look();
    KeeperFacts facts();
    void carryOut(KeeperPlan::Step step);
    void announce();
    void say(const std::string& text);
    int waitTime() const;

    const std::function<std::string()> mWanted;
    std::string mController;  // to be bound to
    std::string mNode;
    pid_t mServer = 0;
    bool mServed = false;
    bool mSaidGaveUp = false;
    std::string mSaid;
    KeeperPlan mPlan;
    UeventSocket mUevents;
    NodeWatch mWatch;
};

}  // namespace korvane::gadget
