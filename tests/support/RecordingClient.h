// SPDX-License-Identifier: Apache-2.0
// A client of the desktop-camera service that answers from a script and records what it was told.
#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include <hidl/HidlSupport.h>
#include <hidl/Status.h>
#include <korvane/hardware/camera/desktop/1.0/ICameraDesktopCallback.h>

namespace korvane::test {

/** Thread-safe; the answer is computed on the thread that sends the command, without a lock. */
class RecordingClient : public ::korvane::hardware::camera::desktop::V1_0::ICameraDesktopCallback {
  public:
    using Answer = std::function<std::string(const std::string& command)>;

    /** Answers every command with the same text. */
    explicit RecordingClient(const std::string& reply)
        : RecordingClient([reply](const std::string&) { return reply; }) {}
    explicit RecordingClient(Answer answer) : mAnswer(std::move(answer)) {}

    ::android::hardware::Return<void> onCommand(const ::android::hardware::hidl_string& command,
                                                onCommand_cb reply) override;
    ::android::hardware::Return<bool> linkToDeath(
            const ::android::sp<::android::hardware::hidl_death_recipient>& recipient,
            uint64_t cookie) override;
    ::android::hardware::Return<bool> unlinkToDeath(
            const ::android::sp<::android::hardware::hidl_death_recipient>& recipient) override;

    /** What it was told, oldest first. */
    std::vector<std::string> commands() const;

    /** Waits until it has been told exactly this `count` times; false after ten seconds. */
    bool waitFor(const std::string& command, size_t count = 1) const;

    /** Waits until it has been told this many commands in all; false after ten seconds. */
    bool waitForCount(size_t count) const;

    /** The cookies of the death links made so far, oldest first. */
    std::vector<uint64_t> deathLinks() const;

    /** Whether a death link was removed. */
    bool wasUnlinked() const;

    /** Tells everyone linked to its death that it has died, as the runtime does. */
    void die();

    /** What linkToDeath returns from now on. */
    void refuseDeathLinks();

    /** From now on every command fails in transit with this transport status. */
    void failCommands(const ::android::hardware::Status& status);

  private:
    const Answer mAnswer;
    mutable std::mutex mLock;
    mutable std::condition_variable mTold;
    std::vector<std::string> mCommands;
    std::vector<uint64_t> mDeathLinks;
    std::vector<::android::wp<::android::hardware::hidl_death_recipient>> mMourners;
    bool mUnlinked = false;
    bool mLinksToDeath = true;
    ::android::hardware::Status mStatus;
};

}  // namespace korvane::test
