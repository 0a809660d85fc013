// SPDX-License-Identifier: Apache-2.0
#include "support/ScriptedKernel.h"

#include <cerrno>
#include <chrono>
#include <thread>
#include <utility>

#include <endian.h>
#include <linux/android/binder.h>
#include <sys/mman.h>
#include <unistd.h>

#include "support/ScriptedKernelHooks.h"

namespace korvane::test {
namespace {

using Guard = std::unique_lock<std::mutex>;

// Only what the service asks of a gadget's node, and what the scripted binder driver uses.
const std::map<unsigned long, std::string>& ioctlNames() {
    static const auto* sNames = new std::map<unsigned long, std::string>{
#define NAMED(request) {request, #request}
            NAMED(VIDIOC_QUERYCAP),
            NAMED(VIDIOC_S_FMT),
            NAMED(VIDIOC_SUBSCRIBE_EVENT),
            NAMED(VIDIOC_DQEVENT),
            NAMED(VIDIOC_REQBUFS),
            NAMED(VIDIOC_QUERYBUF),
            NAMED(VIDIOC_QBUF),
            NAMED(VIDIOC_DQBUF),
            NAMED(VIDIOC_STREAMON),
            NAMED(VIDIOC_STREAMOFF),
            NAMED(UVCIOC_SEND_RESPONSE),
            NAMED(BINDER_VERSION),
            NAMED(BINDER_WRITE_READ),
            NAMED(BINDER_SET_MAX_THREADS),
            NAMED(BINDER_SET_CONTEXT_MGR_EXT),
            NAMED(BINDER_THREAD_EXIT),
#undef NAMED
    };
    return *sNames;
}

std::string nameOf(unsigned long request) {
    const auto found = ioctlNames().find(request);
    return found != ioctlNames().end() ? found->second : "ioctl " + std::to_string(request);
}

size_t pages(size_t length) {
    const size_t page = sysconf(_SC_PAGESIZE);
    return (length + page - 1) / page * page;
}

int failWith(int error) {
    errno = error;
    return -1;
}

}  // namespace

ScriptedKernel::ScriptedKernel(const std::string& path)
    : mPath(path), mMemory(memfd_create("scripted kernel", MFD_CLOEXEC)) {
    Guard guard(scriptedWorld().lock);
    scriptedWorld().nodes.insert(this);
    scriptedWorld().active = true;
}

ScriptedKernel::~ScriptedKernel() {
    Guard guard(scriptedWorld().lock);
    scriptedWorld().nodes.erase(this);
    scriptedWorld().active = !scriptedWorld().nodes.empty();
    libc().close(mMemory);
}

void ScriptedKernel::setDriver(const std::string& driver) {
    Guard guard(scriptedWorld().lock);
    mDriver = driver;
}

void ScriptedKernel::setBufferLength(uint32_t length) {
    Guard guard(scriptedWorld().lock);
    mBufferLength = length;
}

void ScriptedKernel::mapAnything() {
    Guard guard(scriptedWorld().lock);
    mMapsAnything = true;
}

void ScriptedKernel::setGrant(uint32_t count) {
    Guard guard(scriptedWorld().lock);
    mGrant = count;
}

void ScriptedKernel::fail(const std::string& name, int error, int passing, int times) {
    Guard guard(scriptedWorld().lock);
    mFailures[name].push_back({error, passing, times});
    scriptedWorld().changed_l();
}

void ScriptedKernel::answerNext(const std::string& name, Answer answer) {
    Guard guard(scriptedWorld().lock);
    mAnswers[name].push_back(std::move(answer));
}

void ScriptedKernel::answerAll(const std::string& name, Answer answer) {
    Guard guard(scriptedWorld().lock);
    mStandingAnswers[name] = std::move(answer);
}

void ScriptedKernel::sendEvent(const v4l2_event& event) {
    Guard guard(scriptedWorld().lock);
    mEvents.push_back(event);
    countUntaken_l();
    scriptedWorld().changed_l();
}

void ScriptedKernel::sendEvent(uint32_t type) {
    v4l2_event event = {};
    event.type = type;
    sendEvent(event);
}

void ScriptedKernel::sendSetup(uint8_t requestType, uint8_t request, uint16_t value, uint16_t index,
                               uint16_t length) {
    uvc_event setup = {};
    setup.req.bRequestType = requestType;
    setup.req.bRequest = request;
    setup.req.wValue = htole16(value);
    setup.req.wIndex = htole16(index);
    setup.req.wLength = htole16(length);
    v4l2_event event = {};
    event.type = UVC_EVENT_SETUP;
    memcpy(event.u.data, &setup.req, sizeof(setup.req));
    sendEvent(event);
}

void ScriptedKernel::sendData(const std::vector<uint8_t>& data) {
    uvc_request_data block = {};
    block.length = static_cast<int32_t>(data.size());
    memcpy(block.data, data.data(), std::min(data.size(), sizeof(block.data)));
    v4l2_event event = {};
    event.type = UVC_EVENT_DATA;
    memcpy(event.u.data, &block, sizeof(block));
    sendEvent(event);
}

bool ScriptedKernel::send() {
    Guard guard(scriptedWorld().lock);
    if (mQueued.empty()) return false;
    mSent.push_back(mQueued.front());
    mQueued.erase(mQueued.begin());
    countUntaken_l();
    scriptedWorld().changed_l();
    return true;
}

void ScriptedKernel::setAutoSend(bool automatic) {
    Guard guard(scriptedWorld().lock);
    mAutoSend = automatic;
}

void ScriptedKernel::setQuiet(bool quiet) {
    Guard guard(scriptedWorld().lock);
    mQuiet = quiet;
}

void ScriptedKernel::remove() {
    Guard guard(scriptedWorld().lock);
    mPresent = false;
    scriptedWorld().changed_l();
}

std::vector<KernelCall> ScriptedKernel::calls() const {
    Guard guard(scriptedWorld().lock);
    return mCalls;
}

std::vector<std::string> ScriptedKernel::callNames() const {
    std::vector<std::string> names;
    for (const KernelCall& call : calls()) names.push_back(call.name);
    return names;
}

std::vector<KernelCall> ScriptedKernel::calls(const std::string& name) const {
    std::vector<KernelCall> found;
    for (const KernelCall& call : calls()) {
        if (call.name == name) found.push_back(call);
    }
    return found;
}

void ScriptedKernel::clearCalls() {
    Guard guard(scriptedWorld().lock);
    mCalls.clear();
}

bool ScriptedKernel::waitForCalls(const std::string& name, size_t count) const {
    const auto named = [&](const KernelCall& call) { return call.name == name; };
    Guard guard(scriptedWorld().lock);
    return scriptedWorld().called.wait_for(guard, std::chrono::seconds(10), [&] {
        return static_cast<size_t>(std::count_if(mCalls.begin(), mCalls.end(), named)) >= count;
    });
}

void ScriptedKernel::waitUntilIdle() const {
    // Without the lock, which the thread being waited for would otherwise wait for in turn.
    while (mUntaken != 0 || scriptedWorld().idle == 0) std::this_thread::yield();
}

std::vector<std::vector<uint8_t>> ScriptedKernel::sentFrames() const {
    Guard guard(scriptedWorld().lock);
    return mFrames;
}

std::vector<uvc_request_data> ScriptedKernel::responses() const {
    std::vector<uvc_request_data> responses;
    for (const KernelCall& call : calls("UVCIOC_SEND_RESPONSE")) {
        responses.push_back(call.as<uvc_request_data>());
    }
    return responses;
}

std::vector<uint8_t> ScriptedKernel::bufferContents(uint32_t index) const {
    Guard guard(scriptedWorld().lock);
    return read_l(index, mBufferLength);
}

void ScriptedKernel::fillBuffers(uint8_t value) {
    Guard guard(scriptedWorld().lock);
    const std::vector<uint8_t> bytes(offsetOf_l(mBuffers.size()), value);
    if (pwrite(mMemory, bytes.data(), bytes.size(), 0) < 0) abort();
}

size_t ScriptedKernel::openDescriptors() const {
    Guard guard(scriptedWorld().lock);
    return mDescriptors.size();
}

size_t ScriptedKernel::openMappings() const {
    Guard guard(scriptedWorld().lock);
    return mMappings.size();
}

bool ScriptedKernel::isStreaming() const {
    Guard guard(scriptedWorld().lock);
    return mStreaming;
}

bool ScriptedKernel::isQuiet_l(unsigned long request) const {
    return mQuiet && mPresent && (request == VIDIOC_QBUF || request == VIDIOC_DQBUF);
}

int ScriptedKernel::ioctl_l(int fd, unsigned long request, void* argument) {
    if (isQuiet_l(request)) return behave_l(request, argument);
    const std::string name = nameOf(request);
    const auto* block = static_cast<const uint8_t*>(argument);
    std::vector<uint8_t> before;
    if (block != nullptr) before.assign(block, block + _IOC_SIZE(request));
    int error = 0;
    int result = -1;
    if (!failsNow_l(name, &error)) {
        result = answer_l(name, request, argument);
        error = result == -1 ? errno : 0;
    }
    record_l(name, fd, result, error, std::move(before));
    return result != -1 ? result : failWith(error);
}

int ScriptedKernel::answer_l(const std::string& name, unsigned long request, void* argument) {
    auto& answers = mAnswers[name];
    if (!answers.empty()) {
        const Answer answer = std::move(answers.front());
        answers.pop_front();
        return answer(argument);
    }
    const auto standing = mStandingAnswers.find(name);
    if (standing != mStandingAnswers.end()) return standing->second(argument);
    return mPresent ? behave_l(request, argument) : failWith(ENODEV);
}

int ScriptedKernel::behave_l(unsigned long request, void* argument) {
    switch (request) {
        case VIDIOC_QUERYCAP:
            return queryCapability_l(static_cast<v4l2_capability*>(argument));
        case VIDIOC_SUBSCRIBE_EVENT:
            return subscribe_l(*static_cast<v4l2_event_subscription*>(argument));
        case VIDIOC_S_FMT:
        case UVCIOC_SEND_RESPONSE:
            return 0;
        case VIDIOC_DQEVENT:
            return dequeueEvent_l(static_cast<v4l2_event*>(argument));
        case VIDIOC_REQBUFS:
            return requestBuffers_l(*static_cast<v4l2_requestbuffers*>(argument));
        case VIDIOC_QUERYBUF:
            return queryBuffer_l(static_cast<v4l2_buffer*>(argument));
        case VIDIOC_QBUF:
            return queueBuffer_l(*static_cast<v4l2_buffer*>(argument));
        case VIDIOC_DQBUF:
            return dequeueBuffer_l(static_cast<v4l2_buffer*>(argument));
        case VIDIOC_STREAMON:
            return setStreaming_l(*static_cast<uint32_t*>(argument), true);
        case VIDIOC_STREAMOFF:
            return setStreaming_l(*static_cast<uint32_t*>(argument), false);
        default:
            return failWith(ENOTTY);
    }
}

int ScriptedKernel::queryCapability_l(v4l2_capability* capability) const {
    *capability = {};
    strncpy(reinterpret_cast<char*>(capability->driver), mDriver.c_str(),
            sizeof(capability->driver) - 1);
    capability->device_caps = V4L2_CAP_VIDEO_OUTPUT | V4L2_CAP_STREAMING;
    capability->capabilities = capability->device_caps | V4L2_CAP_DEVICE_CAPS;
    return 0;
}

int ScriptedKernel::subscribe_l(const v4l2_event_subscription& subscription) const {
    const bool known = subscription.type >= UVC_EVENT_FIRST && subscription.type <= UVC_EVENT_LAST;
    return known ? 0 : failWith(EINVAL);
}

int ScriptedKernel::requestBuffers_l(const v4l2_requestbuffers& request) {
    const bool known = request.memory == V4L2_MEMORY_MMAP ||
                       request.memory == V4L2_MEMORY_USERPTR ||
                       request.memory == V4L2_MEMORY_DMABUF;
    if (request.type != V4L2_BUF_TYPE_VIDEO_OUTPUT || !known) return failWith(EINVAL);
    if (mStreaming) return failWith(EBUSY);
    dropQueue_l();
    const uint32_t wanted = std::min<uint32_t>(request.count, VIDEO_MAX_FRAME);
    const uint32_t count = wanted > 0 ? mGrant.value_or(wanted) : 0;
    mBuffers.resize(count);
    for (uint32_t i = 0; i < count; ++i) {
        mBuffers[i] = {};
        mBuffers[i].index = i;
        mBuffers[i].type = request.type;
        mBuffers[i].memory = request.memory;
        mBuffers[i].length = mBufferLength;
        mBuffers[i].m.offset = offsetOf_l(i);
    }
    if (count > 0 && ftruncate(mMemory, offsetOf_l(count)) != 0) abort();
    return static_cast<int>(count);
}

bool ScriptedKernel::hasBuffer_l(const v4l2_buffer& buffer) const {
    return buffer.type == V4L2_BUF_TYPE_VIDEO_OUTPUT && buffer.index < mBuffers.size();
}

int ScriptedKernel::queryBuffer_l(v4l2_buffer* buffer) const {
    if (!hasBuffer_l(*buffer)) return failWith(EINVAL);
    *buffer = mBuffers[buffer->index];
    return 0;
}

int ScriptedKernel::refuseMapping_l(const KernelMapping& mapping) const {
    if (mMapsAnything) return 0;
    if ((mapping.flags & MAP_SHARED) == 0 || (mapping.protection & PROT_WRITE) == 0) return EINVAL;
    for (const v4l2_buffer& buffer : mBuffers) {
        if (buffer.m.offset != mapping.offset) continue;
        return mapping.length <= pages(buffer.length) ? 0 : EINVAL;
    }
    return EINVAL;
}

int ScriptedKernel::queueBuffer_l(const v4l2_buffer& buffer) {
    if (!hasBuffer_l(buffer)) return failWith(EINVAL);
    v4l2_buffer& own = mBuffers[buffer.index];
    if (buffer.memory != own.memory || (own.flags & V4L2_BUF_FLAG_QUEUED) != 0) {
        return failWith(EINVAL);
    }
    if (buffer.field == V4L2_FIELD_ALTERNATE || buffer.bytesused > own.length) {
        return failWith(EINVAL);
    }
    own.bytesused = buffer.bytesused > 0 ? buffer.bytesused : own.length;
    own.field = buffer.field;
    own.timestamp = buffer.timestamp;
    own.flags |= V4L2_BUF_FLAG_QUEUED;
    if (!mQuiet) mFrames.push_back(read_l(own.index, own.bytesused));
    (mAutoSend ? mSent : mQueued).push_back(own.index);
    countUntaken_l();
    if (mAutoSend) scriptedWorld().changed_l();
    return 0;
}

int ScriptedKernel::dequeueBuffer_l(v4l2_buffer* buffer) {
    if (buffer->type != V4L2_BUF_TYPE_VIDEO_OUTPUT || !mStreaming) return failWith(EINVAL);
    if (mSent.empty()) return failWith(EAGAIN);
    v4l2_buffer& own = mBuffers[mSent.front()];
    own.flags &= ~V4L2_BUF_FLAG_QUEUED;
    *buffer = own;
    mSent.erase(mSent.begin());
    countUntaken_l();
    return 0;
}

void ScriptedKernel::dropQueue_l() {
    for (v4l2_buffer& buffer : mBuffers) buffer.flags &= ~V4L2_BUF_FLAG_QUEUED;
    mQueued.clear();
    mSent.clear();
    countUntaken_l();
}

int ScriptedKernel::dequeueEvent_l(v4l2_event* event) {
    if (mEvents.empty()) return failWith(ENOENT);
    *event = mEvents.front();
    mEvents.pop_front();
    countUntaken_l();
    return 0;
}

int ScriptedKernel::setStreaming_l(uint32_t type, bool streaming) {
    if (type != V4L2_BUF_TYPE_VIDEO_OUTPUT) return failWith(EINVAL);
    if (streaming && mBuffers.empty()) return failWith(EINVAL);
    mStreaming = streaming;
    if (!streaming) dropQueue_l();
    return 0;
}

void ScriptedKernel::forget_l() {
    mStreaming = false;
    dropQueue_l();
    mEvents.clear();
    countUntaken_l();
}

void ScriptedKernel::countUntaken_l() {
    mUntaken = mEvents.size() + mSent.size();
}

bool ScriptedKernel::failsNow_l(const std::string& name, int* error) {
    for (Failure& failure : mFailures[name]) {
        if (failure.passing > 0) {
            --failure.passing;
        } else if (failure.times > 0) {
            --failure.times;
            *error = failure.error;
            return true;
        }
    }
    return false;
}

void ScriptedKernel::record_l(const std::string& name, int fd, int result, int error,
                              std::vector<uint8_t> argument) {
    mCalls.push_back({name, fd, result, error, std::move(argument)});
    // A call may make the node ready, which a thread waiting in select must see.
    scriptedWorld().changed_l();
    scriptedWorld().called.notify_all();
}

off_t ScriptedKernel::offsetOf_l(uint32_t index) const {
    return static_cast<off_t>(pages(mBufferLength)) * index;
}

std::vector<uint8_t> ScriptedKernel::read_l(uint32_t index, size_t size) const {
    std::vector<uint8_t> bytes(size);
    const ssize_t got = pread(mMemory, bytes.data(), size, offsetOf_l(index));
    bytes.resize(std::max<ssize_t>(got, 0));
    return bytes;
}

}  // namespace korvane::test
