// SPDX-License-Identifier: Apache-2.0
#include "LocalNodes.h"

#include <utility>

namespace android {
namespace hardware {

uint64_t LocalNodes::publish(const sp<BHwBinder>& object) {
    std::lock_guard<std::mutex> lock(mLock);
    const Identity identity = object->getWeakRefs();
    uint64_t& name = mNames[identity];
    if (name == 0) {
        name = ++mLastName;
        Node& node = mNodes[name];
        node.object = object;
        node.identity = identity;
    }
    ++mNodes[name].publications;
    return name;
}

void LocalNodes::withdraw(uint64_t name) {
    std::lock_guard<std::mutex> lock(mLock);
    Node* node = find_l(name);
    if (node == nullptr) return;
    --node->publications;
    eraseUnused_l(name);
}

sp<BHwBinder> LocalNodes::find(uint64_t name) const {
    std::lock_guard<std::mutex> lock(mLock);
    const auto found = mNodes.find(name);
    return found != mNodes.end() ? found->second.object.promote() : nullptr;
}

bool LocalNodes::incWeak(uint64_t name) {
    std::lock_guard<std::mutex> lock(mLock);
    Node* node = find_l(name);
    if (node == nullptr) return false;
    ++node->weakCount;
    return true;
}

bool LocalNodes::incStrong(uint64_t name) {
    std::lock_guard<std::mutex> lock(mLock);
    Node* node = find_l(name);
    if (node == nullptr) return false;
    if (node->strongCount++ == 0) node->held = node->object.promote();
    return node->held != nullptr;
}

void LocalNodes::decWeak(uint64_t name) {
    std::lock_guard<std::mutex> lock(mLock);
    Node* node = find_l(name);
    if (node == nullptr) return;
    --node->weakCount;
    eraseUnused_l(name);
}

void LocalNodes::decStrong(uint64_t name) {
    sp<BHwBinder> released;  // outlives the lock
    std::lock_guard<std::mutex> lock(mLock);
    Node* node = find_l(name);
    if (node == nullptr) return;
    if (--node->strongCount == 0) released = std::exchange(node->held, nullptr);
    eraseUnused_l(name);
}

size_t LocalNodes::size() const {
    std::lock_guard<std::mutex> lock(mLock);
    return mNodes.size();
}

LocalNodes::Node* LocalNodes::find_l(uint64_t name) {
    const auto found = mNodes.find(name);
    return found != mNodes.end() ? &found->second : nullptr;
}

void LocalNodes::eraseUnused_l(uint64_t name) {
    const auto found = mNodes.find(name);
    const Node& node = found->second;
    if (node.publications != 0 || node.weakCount != 0 || node.strongCount != 0) return;
    mNames.erase(node.identity);
    mNodes.erase(found);
}

}  // namespace hardware
}  // namespace android
