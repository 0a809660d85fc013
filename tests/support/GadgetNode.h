// SPDX-License-Identifier: Apache-2.0
// A gadget's video node and the host at its other end: scripted, or those of the test machine.
#pragma once

#include <memory>
#include <string>

namespace korvane::test {

/**
 * What a test of the node's own behaviour runs on. The device's tests use the scripted node in
 * place of the kernel, so the same tests have to pass on both.
 *
 * In the test machine KORVANE_GADGET_NODE names the node of a UVC function whose first format is
 * YUYV at 640x480, and KORVANE_HOST is a command that captures 640x480 YUYV from it until it is
 * ended by SIGTERM. Without them the node is scripted.
 */
class GadgetNode {
  public:
    /** One or the other, depending on the environment. */
    static std::unique_ptr<GadgetNode> make();
    virtual ~GadgetNode() = default;

    /** Empty, or why there is no such node here: the test must then skip itself. */
    virtual std::string whyNot() const = 0;
    virtual std::string path() const = 0;

    // What the host does. Events on the node fd that result are for the test to handle.

    /** Starts requesting a stream. */
    virtual void startCapture() = 0;
    /** Ends the stream. */
    virtual void endCapture() = 0;
    /** Takes what is queued on the node fd; returns when that has a buffer to give back. */
    virtual bool takeFrame(int fd) = 0;
    /** Waits for the next event on the node fd; false if none came in time. */
    virtual bool waitForEvent(int fd) = 0;
};

}  // namespace korvane::test
