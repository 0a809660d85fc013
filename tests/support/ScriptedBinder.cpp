// SPDX-License-Identifier: Apache-2.0
#include "support/ScriptedBinder.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace korvane::test {
namespace {

template <typename T>
const T* pointerTo(binder_uintptr_t address) {
    return reinterpret_cast<const T*>(address);
}

int32_t statusIn(const BinderCommand& command) {
    if (command.number != BC_REPLY) return 0;
    const auto reply = command.as<binder_transaction_data>();
    return (reply.flags & TF_STATUS_CODE) != 0 ? *pointerTo<int32_t>(reply.data.ptr.buffer) : 0;
}

}  // namespace

ScriptedBinder::ScriptedBinder(const std::string& path) : mKernel(path) {
    mKernel.mapAnything();
    mKernel.answerAll("BINDER_VERSION", [](void* argument) {
        static_cast<binder_version*>(argument)->protocol_version = BINDER_CURRENT_PROTOCOL_VERSION;
        return 0;
    });
    for (const char* name :
         {"BINDER_SET_MAX_THREADS", "BINDER_SET_CONTEXT_MGR_EXT", "BINDER_THREAD_EXIT"}) {
        mKernel.answerAll(name, [](void*) { return 0; });
    }
    mKernel.answerAll("BINDER_WRITE_READ", [this](void* argument) {
        return exchange(static_cast<binder_write_read*>(argument));
    });
}

ScriptedBinder& ScriptedBinder::ofThisProcess() {
    static auto& sBinder = *new ScriptedBinder("/dev/hwbinder");  // threads outlive static objects
    return sBinder;
}

void ScriptedBinder::clear() {
    mToGive.clear();
    mTaken.clear();
    mExchanges = 0;
    mWhenIdle = nullptr;
}

void ScriptedBinder::give(const std::vector<BinderCommand>& commands) {
    std::vector<uint8_t> bytes;
    for (const BinderCommand& command : commands) {
        const auto* number = reinterpret_cast<const uint8_t*>(&command.number);
        bytes.insert(bytes.end(), number, number + sizeof(command.number));
        bytes.insert(bytes.end(), command.argument.begin(), command.argument.end());
    }
    giveBytes(std::move(bytes));
}

std::vector<BinderCommand> ScriptedBinder::take() {
    return std::exchange(mTaken, {});
}

std::vector<uint32_t> ScriptedBinder::takeNumbers() {
    std::vector<uint32_t> numbers;
    for (const BinderCommand& command : take()) numbers.push_back(command.number);
    return numbers;
}

int ScriptedBinder::exchange(binder_write_read* exchange) {
    mExchanges++;
    exchange->write_consumed =
            std::min<size_t>(exchange->write_size, std::exchange(mLimit, SIZE_MAX));
    record(pointerTo<uint8_t>(exchange->write_buffer), exchange->write_consumed);
    if (exchange->read_size == 0) return 0;
    if (mToGive.empty()) {
        if (mWhenIdle != nullptr) mWhenIdle();
        errno = EIO;
        return -1;
    }
    const std::vector<uint8_t> bytes = std::move(mToGive.front());
    mToGive.pop_front();
    exchange->read_consumed = std::min<size_t>(bytes.size(), exchange->read_size);
    std::copy_n(bytes.begin(), exchange->read_consumed,
                reinterpret_cast<uint8_t*>(exchange->read_buffer));
    return 0;
}

void ScriptedBinder::record(const uint8_t* bytes, size_t size) {
    const uint8_t* const end = bytes + size;
    while (end - bytes >= static_cast<ptrdiff_t>(sizeof(uint32_t))) {
        BinderCommand command;
        memcpy(&command.number, bytes, sizeof(command.number));
        bytes += sizeof(command.number);
        const size_t length = std::min<size_t>(_IOC_SIZE(command.number), end - bytes);
        command.argument.assign(bytes, bytes + length);
        bytes += length;
        command.status = statusIn(command);
        mTaken.push_back(std::move(command));
    }
}

}  // namespace korvane::test
