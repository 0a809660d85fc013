// SPDX-License-Identifier: Apache-2.0
#include "support/RecordingClient.h"

#include <algorithm>
#include <chrono>

namespace korvane::test {

using ::android::sp;
using ::android::hardware::hidl_death_recipient;
using ::android::hardware::hidl_string;
using ::android::hardware::Return;
using ::android::hardware::Status;

Return<void> RecordingClient::onCommand(const hidl_string& command, onCommand_cb reply) {
    Status status;
    {
        std::lock_guard<std::mutex> guard(mLock);
        mCommands.push_back(command);
        mTold.notify_all();
        status = mStatus;
    }
    if (status.isOk()) reply(mAnswer(command));
    return Return<void>(status);
}

Return<bool> RecordingClient::linkToDeath(const sp<hidl_death_recipient>& recipient,
                                          uint64_t cookie) {
    std::lock_guard<std::mutex> guard(mLock);
    mDeathLinks.push_back(cookie);
    mMourners.push_back(recipient);
    return mLinksToDeath;
}

Return<bool> RecordingClient::unlinkToDeath(const sp<hidl_death_recipient>& /* recipient */) {
    std::lock_guard<std::mutex> guard(mLock);
    mUnlinked = true;
    return true;
}

std::vector<std::string> RecordingClient::commands() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mCommands;
}

bool RecordingClient::waitFor(const std::string& command, size_t count) const {
    std::unique_lock<std::mutex> guard(mLock);
    return mTold.wait_for(guard, std::chrono::seconds(10), [&] {
        return size_t(std::count(mCommands.begin(), mCommands.end(), command)) >= count;
    });
}

bool RecordingClient::waitForCount(size_t count) const {
    std::unique_lock<std::mutex> guard(mLock);
    return mTold.wait_for(guard, std::chrono::seconds(10),
                          [&] { return mCommands.size() >= count; });
}

std::vector<uint64_t> RecordingClient::deathLinks() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mDeathLinks;
}

bool RecordingClient::wasUnlinked() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mUnlinked;
}

void RecordingClient::die() {
    for (size_t i = 0; i < mMourners.size(); ++i) {
        const sp<hidl_death_recipient> mourner = mMourners[i].promote();
        if (mourner != nullptr) mourner->serviceDied(mDeathLinks[i], this);
    }
}

void RecordingClient::refuseDeathLinks() {
    std::lock_guard<std::mutex> guard(mLock);
    mLinksToDeath = false;
}

void RecordingClient::failCommands(const Status& status) {
    std::lock_guard<std::mutex> guard(mLock);
    mStatus = status;
}

}  // namespace korvane::test
