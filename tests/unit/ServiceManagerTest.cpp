// SPDX-License-Identifier: Apache-2.0
#include "ServiceManager.h"

#include <map>
#include <string>
#include <tuple>
#include <vector>

#include <unistd.h>

#include <gtest/gtest.h>
#include <hwbinder/IPCThreadState.h>

#include "support/LogRecorder.h"
#include "support/StubDesktop.h"

namespace android {
namespace {

using hardware::hidl_death_recipient;
using hardware::hidl_string;
using hardware::hidl_vec;
using hardware::IPCThreadState;
using hardware::Return;
using hardware::Status;
using hardware::Void;
using hidl::base::V1_0::IBase;
using hidl::manager::V1_0::IServiceManager;
using hidl::manager::V1_0::IServiceNotification;
using ::korvane::hardware::camera::desktop::V2_0::ICameraDesktop;
using ::korvane::test::LogRecorder;
using ::korvane::test::StubDesktop;
using Names = std::vector<std::string>;
namespace V1 = ::korvane::hardware::camera::desktop::V1_0;

/** Keeps what it was told. */
struct StubListener : IServiceNotification {
    using Told = std::tuple<std::string, std::string, bool>;

    Return<void> onRegistration(const hidl_string& fqName, const hidl_string& name,
                                bool preexisting) override {
        told.emplace_back(fqName, name, preexisting);
        return Void();
    }
    std::vector<Told> told;
};

/** A service whose process has died, or that lies about its interfaces. */
struct BadService : StubDesktop {
    Return<void> interfaceChain(interfaceChain_cb _hidl_cb) override {
        if (!reachable) return Status::fromStatusT(DEAD_OBJECT);
        _hidl_cb(chain);
        return Void();
    }
    Return<bool> linkToDeath(const sp<hidl_death_recipient>&, uint64_t) override {
        return linkable;
    }
    bool reachable = true;
    bool linkable = true;
    hidl_vec<hidl_string> chain = {V1::ICameraDesktop::descriptor, IBase::descriptor};
};

class ServiceManagerTest : public testing::Test {
  protected:
    Names list() {
        Names names;
        mManager->list([&](const auto& listed) { names.assign(listed.begin(), listed.end()); });
        return names;
    }
    sp<IBase> get(const char* fqName, const char* name) {
        const Return<sp<IBase>> found = mManager->get(fqName, name);
        return found;
    }
    bool logged(const std::string& text) {
        for (const auto& line : mLog.lines("hwservicemanager")) {
            if (line.message.find(text) != std::string::npos) return true;
        }
        return false;
    }

    LogRecorder mLog;
    const sp<ServiceManager> mManager = new ServiceManager();
    const sp<StubDesktop> mDesktop = new StubDesktop();
    const sp<StubListener> mListener = new StubListener();
};

TEST_F(ServiceManagerTest, HasNothingAtFirst) {
    EXPECT_EQ(nullptr, get(ICameraDesktop::descriptor, "default"));
    EXPECT_EQ((Names{}), list());
    EXPECT_EQ(IServiceManager::Transport::EMPTY,
              mManager->getTransport(ICameraDesktop::descriptor, "default"));
}

TEST_F(ServiceManagerTest, FindsWhatWasAddedByEachOfItsInterfaces) {
    EXPECT_TRUE(mManager->add("default", mDesktop));
    for (const char* fqName :
         {ICameraDesktop::descriptor, V1::ICameraDesktop::descriptor, IBase::descriptor}) {
        EXPECT_EQ(mDesktop, get(fqName, "default")) << fqName;
        EXPECT_EQ(IServiceManager::Transport::HWBINDER, mManager->getTransport(fqName, "default"));
    }
    EXPECT_EQ((Names{"android.hidl.base@1.0::IBase/default",
                     "korvane.hardware.camera.desktop@1.0::ICameraDesktop/default",
                     "korvane.hardware.camera.desktop@2.0::ICameraDesktop/default"}),
              list());
}

TEST_F(ServiceManagerTest, ListsInstancesByInterface) {
    EXPECT_TRUE(mManager->add("one", mDesktop));
    EXPECT_TRUE(mManager->add("two", new StubDesktop()));
    Names names;
    mManager->listByInterface(ICameraDesktop::descriptor, [&](const auto& listed) {
        names.assign(listed.begin(), listed.end());
    });
    EXPECT_EQ((Names{"one", "two"}), names);
}

TEST_F(ServiceManagerTest, RefusesBadNames) {
    EXPECT_FALSE(mManager->add("", mDesktop));
    EXPECT_FALSE(mManager->add("two words", mDesktop));
    EXPECT_TRUE(logged("bad instance name"));
    EXPECT_EQ((Names{}), list());
}

TEST_F(ServiceManagerTest, RefusesNoService) {
    EXPECT_FALSE(mManager->add("default", nullptr));
    EXPECT_TRUE(logged("registers no service"));
}

/** Makes this thread serve a call of that process, of that user. */
class CallerOfUser {
  public:
    explicit CallerOfUser(uid_t uid, pid_t pid = 5) {
        IPCThreadState::self()->restoreCallingIdentity(static_cast<int64_t>(uid) << 32 | pid);
    }
    ~CallerOfUser() { IPCThreadState::self()->clearCallingIdentity(); }
};

TEST_F(ServiceManagerTest, TakesServicesOfRootAndOfItsOwnUserAlone) {
    {
        const CallerOfUser stranger(getuid() + 1234);
        EXPECT_FALSE(mManager->add("default", mDesktop));
        EXPECT_TRUE(logged("Process 5 of user " + std::to_string(getuid() + 1234) +
                           " may not register a service"));
        EXPECT_EQ((Names{}), list());
    }
    {
        const CallerOfUser root(0);
        EXPECT_TRUE(mManager->add("default", mDesktop));
    }
    const CallerOfUser own(getuid());
    EXPECT_TRUE(mManager->add("default", mDesktop));
}

TEST_F(ServiceManagerTest, EverybodyMayLookUpAndListen) {
    EXPECT_TRUE(mManager->add("default", mDesktop));
    const CallerOfUser stranger(getuid() + 1234);
    EXPECT_EQ(mDesktop, get(ICameraDesktop::descriptor, "default"));
    EXPECT_TRUE(mManager->registerForNotifications(ICameraDesktop::descriptor, "", mListener));
    EXPECT_EQ(3u, list().size());
}

TEST_F(ServiceManagerTest, RefusesAServiceWithBadInterfaces) {
    const sp<BadService> service = new BadService();
    service->chain = {"nonsense", IBase::descriptor};
    EXPECT_FALSE(mManager->add("default", service));
    service->chain = {};
    EXPECT_FALSE(mManager->add("default", service));
    EXPECT_TRUE(logged("bad interfaces"));
}

TEST_F(ServiceManagerTest, RefusesAServiceThatDoesNotAnswer) {
    const sp<BadService> service = new BadService();
    service->reachable = false;
    EXPECT_FALSE(mManager->add("default", service));
    EXPECT_EQ((Names{}), list());
}

TEST_F(ServiceManagerTest, RefusesAServiceThatHasDied) {
    const sp<BadService> service = new BadService();
    service->linkable = false;
    EXPECT_FALSE(mManager->add("default", service));
    EXPECT_EQ((Names{}), list());
}

TEST_F(ServiceManagerTest, DropsAServiceThatDies) {
    const sp<BadService> service = new BadService();
    const sp<StubDesktop> other = new StubDesktop();
    EXPECT_TRUE(mManager->add("default", service));
    EXPECT_TRUE(mManager->add("other", other));
    mManager->serviceDied(0 /* a service */, sp<IBase>(service));
    EXPECT_EQ(nullptr, get(V1::ICameraDesktop::descriptor, "default"));
    EXPECT_EQ(other, get(V1::ICameraDesktop::descriptor, "other"));
}

TEST_F(ServiceManagerTest, TellsListenersOfEveryInterface) {
    EXPECT_TRUE(mManager->registerForNotifications(V1::ICameraDesktop::descriptor, "default",
                                                   mListener));
    EXPECT_TRUE(mManager->registerForNotifications(ICameraDesktop::descriptor, "", mListener));
    EXPECT_TRUE(mManager->add("default", mDesktop));
    EXPECT_TRUE(mManager->add("second", new StubDesktop()));
    EXPECT_EQ((std::vector<StubListener::Told>{
                      {ICameraDesktop::descriptor, "default", false},
                      {V1::ICameraDesktop::descriptor, "default", false},
                      {ICameraDesktop::descriptor, "second", false},
              }),
              mListener->told);
}

TEST_F(ServiceManagerTest, TellsListenersWhatIsThereAlready) {
    EXPECT_TRUE(mManager->add("default", mDesktop));
    EXPECT_TRUE(mManager->add("second", new StubDesktop()));
    EXPECT_TRUE(
            mManager->registerForNotifications(ICameraDesktop::descriptor, "second", mListener));
    EXPECT_EQ((std::vector<StubListener::Told>{{ICameraDesktop::descriptor, "second", true}}),
              mListener->told);
}

TEST_F(ServiceManagerTest, ForgetsAListenerThatDies) {
    EXPECT_TRUE(mManager->registerForNotifications(ICameraDesktop::descriptor, "", mListener));
    mManager->serviceDied(1 /* a listener */, sp<IBase>(mListener));
    EXPECT_TRUE(mManager->add("default", mDesktop));
    EXPECT_TRUE(mListener->told.empty());
}

/** A listener whose process has died, noticed or not. */
struct BadListener : StubListener {
    Return<void> onRegistration(const hidl_string&, const hidl_string&, bool) override {
        return Status::fromStatusT(DEAD_OBJECT);
    }
    Return<bool> linkToDeath(const sp<hidl_death_recipient>&, uint64_t) override {
        return linkable;
    }
    bool linkable = true;
};

TEST_F(ServiceManagerTest, AListenerThatCannotBeToldKeepsNobodyElseFromBeingTold) {
    const sp<BadListener> bad = new BadListener();
    EXPECT_TRUE(mManager->registerForNotifications(ICameraDesktop::descriptor, "", bad));
    EXPECT_TRUE(mManager->registerForNotifications(ICameraDesktop::descriptor, "", mListener));
    EXPECT_TRUE(mManager->add("default", mDesktop));
    EXPECT_EQ(1u, mListener->told.size());
    EXPECT_TRUE(logged(std::string("Can't tell a listener of ") + ICameraDesktop::descriptor));
}

TEST_F(ServiceManagerTest, RefusesAListenerThatHasDied) {
    const sp<BadListener> bad = new BadListener();
    bad->linkable = false;
    EXPECT_FALSE(mManager->registerForNotifications(ICameraDesktop::descriptor, "", bad));
}

TEST_F(ServiceManagerTest, ADeathNoticeOfAnObjectThatHasGoneChangesNothing) {
    EXPECT_TRUE(mManager->add("default", mDesktop));
    mManager->serviceDied(0 /* a service */, wp<IBase>());
    EXPECT_EQ(3u, list().size());
}

TEST_F(ServiceManagerTest, KeepsNoAccountOfLibraries) {
    EXPECT_TRUE(mManager->registerPassthroughClient(ICameraDesktop::descriptor, "default").isOk());
    EXPECT_EQ((Names{}), list());
}

TEST_F(ServiceManagerTest, RefusesListenersOfNothing) {
    EXPECT_FALSE(mManager->registerForNotifications("nonsense", "default", mListener));
    EXPECT_FALSE(
            mManager->registerForNotifications(ICameraDesktop::descriptor, "two words", mListener));
    EXPECT_FALSE(mManager->registerForNotifications(ICameraDesktop::descriptor, "", nullptr));
}

TEST_F(ServiceManagerTest, DumpsWhoRegisteredWhat) {
    EXPECT_TRUE(mManager->add("default", mDesktop));
    std::map<std::string, int32_t> pids;
    mManager->debugDump([&](const auto& infos) {
        for (const auto& info : infos) {
            pids[std::string(info.interfaceName) + "/" + std::string(info.instanceName)] = info.pid;
        }
    });
    EXPECT_EQ(3u, pids.size());
    EXPECT_EQ(getpid(), pids["korvane.hardware.camera.desktop@2.0::ICameraDesktop/default"]);
}

// Links to deaths.

/** Counts its links. */
struct LinkedListener : StubListener {
    Return<bool> linkToDeath(const sp<hidl_death_recipient>&, uint64_t) override {
        links++;
        return true;
    }
    int links = 0;
};
struct LinkedService : BadService {
    Return<bool> linkToDeath(const sp<hidl_death_recipient>&, uint64_t) override {
        links++;
        return true;
    }
    int links = 0;
};

TEST_F(ServiceManagerTest, FollowsAListenersDeathOnce) {
    const sp<LinkedListener> listener = new LinkedListener();
    for (const char* name : {"", "default", "default"}) {
        EXPECT_TRUE(mManager->registerForNotifications(ICameraDesktop::descriptor, name, listener));
    }
    EXPECT_EQ(1, listener->links);
    mManager->serviceDied(1 /* a listener */, sp<IBase>(listener));
    EXPECT_TRUE(mManager->registerForNotifications(ICameraDesktop::descriptor, "", listener));
    EXPECT_EQ(2, listener->links);
}

TEST_F(ServiceManagerTest, FollowsAServicesDeathOnce) {
    const sp<LinkedService> service = new LinkedService();
    for (const char* name : {"default", "default", "second"}) {
        EXPECT_TRUE(mManager->add(name, service));
    }
    EXPECT_EQ(1, service->links);
    mManager->serviceDied(0 /* a service */, sp<IBase>(service));
    EXPECT_EQ((Names{}), list());
    EXPECT_TRUE(mManager->add("default", service));
    EXPECT_EQ(2, service->links);
}

// How many listeners there may be.

TEST_F(ServiceManagerTest, AProcessMayListen64Times) {
    {
        const CallerOfUser greedy(getuid(), 77);
        for (int i = 0; i < 64; i++) {
            ASSERT_TRUE(mManager->registerForNotifications(ICameraDesktop::descriptor, "",
                                                           new StubListener()))
                    << i;
        }
        const sp<LinkedListener> refused = new LinkedListener();
        EXPECT_FALSE(mManager->registerForNotifications(ICameraDesktop::descriptor, "", refused));
        EXPECT_TRUE(logged("Process 77 registers more listeners than there is room for"));
        EXPECT_EQ(0, refused->links);
        EXPECT_EQ(1, refused->getStrongCount());
    }
    const CallerOfUser other(getuid(), 78);
    EXPECT_TRUE(mManager->registerForNotifications(ICameraDesktop::descriptor, "", mListener));
}

TEST_F(ServiceManagerTest, RegistrationsOfOneListenerCountEach) {
    for (int i = 0; i < 64; i++) {
        ASSERT_TRUE(mManager->registerForNotifications(ICameraDesktop::descriptor, "", mListener));
    }
    EXPECT_FALSE(mManager->registerForNotifications(ICameraDesktop::descriptor, "", mListener));
    mManager->serviceDied(1 /* a listener */, sp<IBase>(mListener));
    for (int i = 0; i < 64; i++) {
        ASSERT_TRUE(mManager->registerForNotifications(ICameraDesktop::descriptor, "", mListener));
    }
}

TEST_F(ServiceManagerTest, AllTogetherMayListen1024Times) {
    sp<StubListener> last;
    for (int i = 0; i < 1024; i++) {
        const CallerOfUser one(getuid(), 100 + i / 64);
        last = new StubListener();
        ASSERT_TRUE(mManager->registerForNotifications(ICameraDesktop::descriptor, "", last)) << i;
    }
    const CallerOfUser next(getuid(), 99);
    EXPECT_FALSE(mManager->registerForNotifications(ICameraDesktop::descriptor, "", mListener));
    mManager->serviceDied(1 /* a listener */, sp<IBase>(last));
    EXPECT_TRUE(mManager->registerForNotifications(ICameraDesktop::descriptor, "", mListener));
}

TEST_F(ServiceManagerTest, RefusedListenersLeaveARoomOfTheirOwn) {
    const sp<BadListener> dead = new BadListener();
    dead->linkable = false;
    for (int i = 0; i < 65; i++) {
        EXPECT_FALSE(mManager->registerForNotifications(ICameraDesktop::descriptor, "", dead));
        EXPECT_FALSE(mManager->registerForNotifications("nonsense", "", mListener));
    }
    EXPECT_TRUE(logged("registers a listener that has died"));
    EXPECT_TRUE(logged("registers no listener or one of a bad name"));
    EXPECT_TRUE(mManager->registerForNotifications(ICameraDesktop::descriptor, "", mListener));
}

TEST_F(ServiceManagerTest, ADeathOfAListenerThatNeverListenedChangesNothing) {
    EXPECT_TRUE(mManager->registerForNotifications(ICameraDesktop::descriptor, "", mListener));
    mManager->serviceDied(1 /* a listener */, sp<IBase>(new StubListener()));
    mManager->serviceDied(0 /* a service */, sp<IBase>(new StubListener()));
    EXPECT_TRUE(mManager->add("default", mDesktop));
    EXPECT_EQ(1u, mListener->told.size());
}

}  // namespace
}  // namespace android
