// SPDX-License-Identifier: Apache-2.0
#include "support/GadgetNode.h"

#include <csignal>
#include <cstdlib>
#include <vector>

#include <sys/select.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/PrivateFiles.h"
#include "support/ScriptedKernel.h"
#include "support/UvcFunctionTree.h"

namespace korvane::test {
namespace {

// Long enough for an emulated machine; nobody waits that long unless something is wrong.
constexpr int kSeconds = 60;

class ScriptedGadgetNode : public GadgetNode {
  public:
    ScriptedGadgetNode() {
        if (!mFiles.available()) return;
        UvcFunctionTree function(mFiles);
        function.set("control/header/h/bcdUVC", "272\n");
        function.addUncompressed("YUY2");
        function.addFrame(UvcFunctionTree::kUncompressed, "480p", 640, 480);
        mKernel.setBufferLength(640 * 480 * 2);
    }
    std::string whyNot() const override { return mFiles.available() ? "" : mFiles.whyNot(); }
    std::string path() const override { return mKernel.path(); }
    void startCapture() override {
        mKernel.sendSetup(0x21, 0x01, 2 << 8, 1, 34);
        std::vector<uint8_t> commit{1, 0, 1, 1, 0x15, 0x16, 0x05, 0};
        commit.resize(34);
        mKernel.sendData(commit);
        mKernel.sendEvent(UVC_EVENT_STREAMON);
    }
    void endCapture() override { mKernel.sendEvent(UVC_EVENT_STREAMOFF); }
    bool takeFrame(int /* fd */) override { return mKernel.send(); }
    bool waitForEvent(int /* fd */) override { return true; }

  private:
    PrivateFiles mFiles;
    ScriptedKernel mKernel{"/dev/video7"};
};

class KernelGadgetNode : public GadgetNode {
  public:
    KernelGadgetNode(const char* path, const char* host) : mPath(path), mHost(host) {}
    ~KernelGadgetNode() override { endCapture(); }

    std::string whyNot() const override { return ""; }
    std::string path() const override { return mPath; }
    void startCapture() override {
        mCapture = fork();
        if (mCapture != 0) return;
        execl("/bin/sh", "sh", "-c", ("exec " + mHost).c_str(), nullptr);
        _exit(127);
    }
    void endCapture() override {
        if (mCapture <= 0) return;
        kill(mCapture, SIGTERM);
        waitpid(mCapture, nullptr, 0);
        mCapture = -1;
    }
    bool takeFrame(int fd) override { return wait(fd, &mFds, nullptr); }
    bool waitForEvent(int fd) override { return wait(fd, nullptr, &mFds); }

  private:
    static bool wait(int fd, fd_set* writable, fd_set* exceptional) {
        for (fd_set* set : {writable, exceptional}) {
            if (set == nullptr) continue;
            FD_ZERO(set);
            FD_SET(fd, set);
        }
        timeval time = {kSeconds, 0};
        return select(fd + 1, nullptr, writable, exceptional, &time) == 1;
    }

    const std::string mPath;
    const std::string mHost;
    pid_t mCapture = -1;
    fd_set mFds = {};
};

}  // namespace

std::unique_ptr<GadgetNode> GadgetNode::make() {
    const char* path = getenv("KORVANE_GADGET_NODE");
    const char* host = getenv("KORVANE_HOST");
    if (path == nullptr || host == nullptr) return std::make_unique<ScriptedGadgetNode>();
    return std::make_unique<KernelGadgetNode>(path, host);
}

}  // namespace korvane::test
