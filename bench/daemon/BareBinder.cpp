// SPDX-License-Identifier: Apache-2.0
#include "BareBinder.h"

#include <cerrno>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <string>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace korvane::bench {
namespace {

constexpr char kDevice[] = "/dev/vndbinder";
constexpr size_t kAreaSize = 1024 * 1024;

void need(bool condition, const char* what) {
    if (!condition) throw std::runtime_error(std::string(what) + ": " + strerror(errno));
}

/** Commands from the driver; each is followed by its data. */
class Arrived {
  public:
    Arrived(const uint8_t* bytes, size_t size) : mNext(bytes), mEnd(bytes + size) {}

    /** The data of the first `wanted` command; none if it isn't among them. */
    std::optional<binder_transaction_data> find(uint32_t wanted) {
        while (mNext < mEnd) {
            uint32_t command;
            memcpy(&command, mNext, sizeof(command));
            need(command != BR_DEAD_REPLY && command != BR_FAILED_REPLY, "a bare call failed");
            const uint8_t* const data = mNext + sizeof(command);
            mNext = data + _IOC_SIZE(command);
            if (command != wanted) continue;
            binder_transaction_data transaction;
            memcpy(&transaction, data, sizeof(transaction));
            return transaction;
        }
        return std::nullopt;
    }

  private:
    const uint8_t* mNext;
    const uint8_t* const mEnd;
};

}  // namespace

BareBinder::BareBinder() : mDevice(open(kDevice, O_RDWR | O_CLOEXEC)) {
    need(mDevice.ok(), kDevice);
    // Mapped for the life of the process: the driver puts what this device receives there.
    const void* const area =
            mmap(nullptr, kAreaSize, PROT_READ, MAP_PRIVATE | MAP_NORESERVE, mDevice.get(), 0);
    need(area != MAP_FAILED, "no receive area");
}

void BareBinder::serve() {
    static const std::vector<uint8_t> kNothing;
    becomeContextManager();
    serve([](uint32_t, const void*, size_t) -> const auto& { return kNothing; });
}

void BareBinder::becomeContextManager() {
    need(ioctl(mDevice.get(), BINDER_SET_CONTEXT_MGR, 0) == 0, "no context manager");
}

void BareBinder::serve(const Answer& answer) {
    write<uint32_t>(BC_ENTER_LOOPER);
    for (;;) {
        const binder_transaction_data call = exchangeUntil(BR_TRANSACTION);
        const auto& reply = answer(call.code, reinterpret_cast<const void*>(call.data.ptr.buffer),
                                   call.data_size);
        writeFree(call.data.ptr.buffer);
        writeTransaction(BC_REPLY, 0, reply.data(), reply.size());
    }
}

void BareBinder::call(const std::vector<uint8_t>& text) {
    call(0, text, nullptr, 0);
}

void BareBinder::call(uint32_t code, const std::vector<uint8_t>& text, void* reply, size_t size) {
    writeTransaction(BC_TRANSACTION, code, text.data(), text.size());
    const auto answer = exchangeUntil(BR_REPLY).data.ptr.buffer;
    if (size > 0) memcpy(reply, reinterpret_cast<const void*>(answer), size);
    writeFree(answer);
}

template <typename T>
void BareBinder::write(const T& value) {
    const auto* const bytes = reinterpret_cast<const uint8_t*>(&value);
    mOut.insert(mOut.end(), bytes, bytes + sizeof(value));
}

void BareBinder::writeTransaction(uint32_t command, uint32_t code, const void* data, size_t size) {
    binder_transaction_data transaction = {};
    transaction.code = code;
    transaction.data_size = size;
    transaction.data.ptr.buffer = reinterpret_cast<uintptr_t>(data);
    write(command);
    write(transaction);
}

void BareBinder::writeFree(binder_uintptr_t buffer) {
    write<uint32_t>(BC_FREE_BUFFER);
    write(buffer);
}

binder_transaction_data BareBinder::exchangeUntil(uint32_t wanted) {
    for (;;) {
        uint8_t in[256];
        binder_write_read exchange = {};
        exchange.write_size = mOut.size();
        exchange.write_buffer = reinterpret_cast<uintptr_t>(mOut.data());
        exchange.read_size = sizeof(in);
        exchange.read_buffer = reinterpret_cast<uintptr_t>(in);
        need(TEMP_FAILURE_RETRY(ioctl(mDevice.get(), BINDER_WRITE_READ, &exchange)) == 0,
             "no exchange with the driver");
        mOut.clear();
        const auto found = Arrived(in, exchange.read_consumed).find(wanted);
        if (found) return *found;
    }
}

}  // namespace korvane::bench
