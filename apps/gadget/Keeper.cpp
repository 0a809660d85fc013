// SPDX-License-Identifier: Apache-2.0
#include "Keeper.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include <poll.h>

#include "GadgetLock.h"
#include "KernelFiles.h"
#include "NodeServer.h"
#include "UsbController.h"
#include "WebcamFunction.h"

namespace korvane::gadget {

using Step = KeeperPlan::Step;

std::string Keeper::run() {
    if (!mUevents.valid() || !mWatch.valid()) return "cannot listen to the kernel";
    for (;;) {
        look();
        pollfd sources[] = {{mUevents.fd(), POLLIN, 0}, {mWatch.fd(), POLLIN, 0}};
        bool concerned = false;
        while (!concerned) {
            const int ready = poll(sources, 2, waitTime());
            if (ready < 0 && errno != EINTR) return std::string("poll: ") + strerror(errno);
            concerned = ready == 0 || sources[1].revents != 0;
            mWatch.drain();
            if (mUevents.drain()) concerned = true;
        }
    }
}

int Keeper::waitTime() const {
    const auto wakeUp = mPlan.wakeUp();
    if (!wakeUp) return -1;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(
            *wakeUp - std::chrono::steady_clock::now());
    return static_cast<int>(std::max<long>(left.count(), 0));
}

void Keeper::look() {
    const GadgetLock lock;
    Step step = Step::NOTHING;
    do {
        step = mPlan.next(facts(), std::chrono::steady_clock::now());
        carryOut(step);
    } while (step != Step::NOTHING);
    announce();
}

KeeperFacts Keeper::facts() {
    KeeperFacts facts;
    facts.made = WebcamFunction::made();
    const std::string bound = facts.made ? WebcamFunction::boundTo() : "";
    facts.bound = !bound.empty();
    if (facts.bound) mController = bound;
    const std::string wanted = mWanted();
    if (mController.empty() || !wanted.empty()) mController = wanted;
    std::string controller;
    facts.controller = findController(mController, &controller).empty();
    if (facts.controller) mController = controller;
    facts.node = facts.bound ? videoNodeOn(bound) : "";
    if (!mWatch.watch(facts.node)) say("cannot watch /dev/" + facts.node + ": " + strerror(errno));
    facts.opened = mWatch.rightsChanged();
    const pid_t server = serverOf(facts.node);
    facts.served = server != 0;
    facts.serverDied = mServer != 0 && !facts.served && hasDied(mServer);
    if (facts.served != mServed || facts.node != mNode) {
        if (facts.served)
            say("/dev/" + facts.node + " is served by process " + std::to_string(server));
        else if (mServed)
            say("nobody serves /dev/" + mNode + " any more");
    }
    mServed = facts.served;
    mServer = server;
    mNode = facts.node;
    return facts;
}

void Keeper::carryOut(Step step) {
    if (mPlan.gaveUp() != mSaidGaveUp) {
        mSaidGaveUp = mPlan.gaveUp();
        if (mSaidGaveUp) say("nobody serves the function; waiting until something happens");
    }
    if (step == Step::NOTHING) return;
    std::string error;
    if (step == Step::REBIND) error = WebcamFunction::unbind();
    if (error.empty()) error = WebcamFunction::bind(mController);
    say(error.empty() ? "bound the function to " + mController : error);
}

// A server without root's rights can't open the node before udev has given it to its group, and is
// notified of the node only once: so it is notified again.
void Keeper::announce() {
    if (mNode.empty() || !mWatch.openedUp() || mServed) return;
    writeValue("/sys/class/video4linux/" + mNode + "/uevent", "add");
}

void Keeper::say(const std::string& text) {
    if (text == mSaid) return;
    mSaid = text;
    printf("%s\n", text.c_str());
    fflush(stdout);
}

}  // namespace korvane::gadget
