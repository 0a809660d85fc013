// SPDX-License-Identifier: Apache-2.0
#include "DriverChannel.h"

#include <algorithm>

#include "BinderDriver.h"

namespace android {
namespace hardware {

void CommandWriter::append(const void* bytes, size_t size) {
    const auto* begin = static_cast<const uint8_t*>(bytes);
    mBytes.insert(mBytes.end(), begin, begin + size);
}

void CommandWriter::consume(size_t size) {
    mBytes.erase(mBytes.begin(), mBytes.begin() + std::min(size, mBytes.size()));
}

bool CommandReader::read(void* value, size_t size) {
    if (mSize - mPosition < size) {
        mPosition = mSize;
        return false;
    }
    memcpy(value, mBytes.data() + mPosition, size);
    mPosition += size;
    return true;
}

bool CommandReader::skip(size_t size) {
    const bool isThere = mSize - mPosition >= size;
    mPosition = isThere ? mPosition + size : mSize;
    return isThere;
}

void CommandReader::refill(size_t size) {
    mPosition = 0;
    mSize = std::min(size, mBytes.size());
}

status_t DriverChannel::flush() {
    if (mOut.isEmpty()) return OK;
    return exchange(0);
}

status_t DriverChannel::receive() {
    if (!mIn.isExhausted()) return OK;
    return exchange(mIn.capacity());
}

status_t DriverChannel::exchange(size_t readCapacity) {
    binder_write_read exchange{};
    exchange.write_size = mOut.size();
    exchange.write_buffer = reinterpret_cast<uintptr_t>(mOut.data());
    exchange.read_size = readCapacity;
    exchange.read_buffer = reinterpret_cast<uintptr_t>(mIn.buffer());
    const status_t status = mDriver.writeRead(&exchange);
    // A command that the driver refuses would be refused for ever: drop it, and the rest with it.
    mOut.consume(status == OK ? exchange.write_consumed : mOut.size());
    if (readCapacity > 0) mIn.refill(exchange.read_consumed);
    return status;
}

}  // namespace hardware
}  // namespace android
