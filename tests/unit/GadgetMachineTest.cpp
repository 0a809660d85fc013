// SPDX-License-Identifier: Apache-2.0
// What korvane-gadget sees of the machine: controllers, nodes, processes, the kernel's messages.
#include <csignal>
#include <string>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "gadget/Descriptor.h"
#include "gadget/GadgetCheck.h"
#include "gadget/KernelFiles.h"
#include "gadget/NodeServer.h"
#include "gadget/NodeWatch.h"
#include "gadget/UeventSocket.h"
#include "gadget/UsbController.h"
#include "gadget/WebcamFunction.h"
#include "support/PrivateFiles.h"
#include "support/UeventSender.h"

namespace korvane::gadget {
namespace {

class GadgetMachineTest : public testing::Test {
  protected:
    test::PrivateFiles mFiles;

    void SetUp() override {
        if (!mFiles.available()) GTEST_SKIP() << mFiles.whyNot();
    }

    void addController(const std::string& name) {
        mFiles.write("/sys/class/udc/" + name + "/state", "not attached\n");
    }
};

TEST_F(GadgetMachineTest, FindsTheOnlyControllerOrTheOneThatIsNamed) {
    std::string found;
    EXPECT_EQ("no device controller: /sys/class/udc is empty", findController("", &found));
    EXPECT_EQ("no device controller 'a.usb' (there is: none)", findController("a.usb", &found));
    addController("a.usb");
    EXPECT_EQ("", findController("", &found));
    EXPECT_EQ("a.usb", found);
    addController("b.usb");
    EXPECT_EQ("several device controllers, 'controller' (or UDC) must name one of: a.usb b.usb",
              findController("", &found));
    EXPECT_EQ("", findController("b.usb", &found));
    EXPECT_EQ("b.usb", found);
    EXPECT_EQ("no device controller 'c.usb' (there is: a.usb b.usb)",
              findController("c.usb", &found));
    EXPECT_EQ("no device controller '.' (there is: a.usb b.usb)", findController(".", &found));
}

TEST_F(GadgetMachineTest, SaysWhoHasTheController) {
    addController("a.usb");
    mFiles.write("/config/usb_gadget/other/UDC", "a.usb\n");
    mFiles.write("/config/usb_gadget/g1/UDC", "\n");
    EXPECT_EQ("other", gadgetOn("a.usb"));
    EXPECT_EQ("", gadgetOn("b.usb"));
    const auto lines = checkMachine(GadgetSettings());
    EXPECT_EQ("the controller a.usb is taken by the gadget 'other'", lines.back());
    mFiles.write("/config/usb_gadget/other/UDC", "\n");
    mFiles.write("/config/usb_gadget/g1/UDC", "a.usb\n");
    EXPECT_EQ("a.usb", WebcamFunction::boundTo());
    for (const std::string& line : checkMachine(GadgetSettings())) {
        EXPECT_EQ(std::string::npos, line.find("a.usb")) << line;
    }
}

TEST_F(GadgetMachineTest, FindsTheFunctionsNodeByItsController) {
    mFiles.makeDirectory("/sys/class/platform/soc.usb/gadget.0");
    mFiles.makeDirectory("/sys/class/platform/camera");
    addController("soc.usb");
    ASSERT_EQ("", makeLink("/sys/class/platform/soc.usb", "/sys/class/udc/soc.usb/device"));
    mFiles.makeDirectory("/sys/class/video4linux/video0");
    mFiles.makeDirectory("/sys/class/video4linux/video3");
    ASSERT_EQ("", makeLink("/sys/class/platform/camera", "/sys/class/video4linux/video0/device"));
    EXPECT_EQ("", videoNodeOn("soc.usb"));
    ASSERT_EQ("", makeLink("/sys/class/platform/soc.usb/gadget.0",
                           "/sys/class/video4linux/video3/device"));
    EXPECT_EQ("video3", videoNodeOn("soc.usb"));
    EXPECT_EQ("", videoNodeOn("other.usb"));
    EXPECT_EQ("", videoNodeOn(""));
}

TEST_F(GadgetMachineTest, WritesInOnePieceAndSaysWhatWasRefused) {
    mFiles.write("/config/value", "before, and longer\n");
    EXPECT_EQ("", writeValue("/config/value", "after"));
    EXPECT_EQ("after", readText("/config/value"));
    EXPECT_EQ("cannot open /config/none: No such file or directory",
              writeValue("/config/none", "x"));
    EXPECT_FALSE(exists("/config/none"));
    EXPECT_EQ("the kernel refuses 'a b' for /dev/full: No space left on device",
              writeValue("/dev/full", "a\nb"));
    EXPECT_EQ("cannot make /config/a/b: No such file or directory", makeFolder("/config/a/b"));
}

TEST_F(GadgetMachineTest, HearsWhoOpensClosesAndOwnsTheNode) {
    mFiles.write("/dev/video5", "");
    NodeWatch watch;
    const auto woken = [&watch] {
        pollfd source = {watch.fd(), POLLIN, 0};
        const bool ready = poll(&source, 1, 0) == 1;
        watch.drain();
        return ready;
    };
    EXPECT_TRUE(watch.watch("video5"));
    EXPECT_TRUE(watch.openedUp());
    EXPECT_FALSE(watch.openedUp());
    EXPECT_FALSE(woken());
    Descriptor node(open("/dev/video5", O_RDWR | O_CLOEXEC));
    EXPECT_TRUE(woken());
    node.reset();
    EXPECT_TRUE(woken());
    EXPECT_FALSE(watch.openedUp());
    EXPECT_FALSE(watch.rightsChanged());
    ASSERT_EQ(0, chmod("/dev/video5", 0660));
    EXPECT_TRUE(woken());
    EXPECT_TRUE(watch.rightsChanged());
    EXPECT_TRUE(watch.openedUp());
    EXPECT_FALSE(watch.openedUp());
    EXPECT_FALSE(watch.rightsChanged());

    mFiles.remove("/dev/video5");
    mFiles.write("/dev/video5", "");
    EXPECT_TRUE(watch.watch("video5"));
    EXPECT_TRUE(watch.openedUp());
    watch.drain();
    node.reset(open("/dev/video5", O_RDWR | O_CLOEXEC));
    EXPECT_TRUE(woken());
    EXPECT_TRUE(watch.watch(""));
    EXPECT_FALSE(watch.openedUp());
}

TEST_F(GadgetMachineTest, HearsOnlyOfControllersAndVideoNodes) {
    if (!test::enterPrivateNetwork()) GTEST_SKIP() << "no network namespace of its own";
    UeventSocket uevents;
    ASSERT_TRUE(uevents.valid());
    test::UeventSender sender;
    const auto hears = [&](const std::string& subsystem) {
        EXPECT_TRUE(sender.send({"add@/x", "ACTION=add", "SUBSYSTEM=" + subsystem}));
        return uevents.drain();
    };
    EXPECT_FALSE(uevents.drain());
    EXPECT_TRUE(hears("udc"));
    EXPECT_TRUE(hears("video4linux"));
    EXPECT_FALSE(hears("block"));
    EXPECT_FALSE(hears("udcx"));
    EXPECT_FALSE(uevents.drain());
}

/** A process that does nothing until it is killed. */
class Sleeper {
  public:
    Sleeper() : mPid(fork()) {
        if (mPid == 0) {
            for (;;) pause();
        }
    }
    ~Sleeper() {
        kill(mPid, SIGKILL);
        waitpid(mPid, nullptr, 0);
    }
    pid_t pid() const { return mPid; }

  private:
    const pid_t mPid;
};

TEST(NodeServerTest, RecognisesADeadProcessBeforeAnybodyHasWaitedForIt) {
    EXPECT_FALSE(hasDied(getpid()));
    const Sleeper sleeper;
    EXPECT_FALSE(hasDied(sleeper.pid()));
    kill(sleeper.pid(), SIGKILL);
    siginfo_t info = {};
    ASSERT_EQ(0, waitid(P_PID, static_cast<id_t>(sleeper.pid()), &info, WEXITED | WNOWAIT));
    EXPECT_TRUE(hasDied(sleeper.pid()));
    EXPECT_TRUE(hasDied(0x7fffffff));
}

TEST(NodeServerTest, CountsOnlyProcessesThatHaveTheNodeOpenForReadingAndWriting) {
    if (geteuid() != 0) GTEST_SKIP() << "only root sees who has a node open";
    // A device that nobody else opens.
    const std::string node = "shm/korvane-node-" + std::to_string(getpid());
    const std::string path = "/dev/" + node;
    if (mknod(path.c_str(), S_IFCHR | 0600, makedev(1, 11)) != 0) GTEST_SKIP() << "no mknod";
    struct Remover {
        std::string path;
        ~Remover() { unlink(path.c_str()); }
    } const remover{path};
    EXPECT_EQ(0, serverOf(node));
    Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file.valid()) GTEST_SKIP() << "the device can't be opened";
    EXPECT_EQ(0, serverOf(node));
    file.reset(open(path.c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK));
    EXPECT_EQ(getpid(), serverOf(node));
    file.reset();
    EXPECT_EQ(0, serverOf(node));
    EXPECT_EQ(0, serverOf(""));
    EXPECT_EQ(0, serverOf("no-such-node"));
}

}  // namespace
}  // namespace korvane::gadget
