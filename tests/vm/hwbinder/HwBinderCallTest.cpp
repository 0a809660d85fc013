// SPDX-License-Identifier: Apache-2.0
// Calls between processes over the real driver.
#include <cstring>
#include <string>
#include <vector>

#include <unistd.h>

#include <hwbinder/IPCThreadState.h>

#include "TestObjects.h"

namespace korvane::test {
namespace {

using namespace android;
using hardware::IBinder;
using hardware::IPCThreadState;
using hardware::Parcel;

class HwBinderCallTest : public HwBinderTest {};

struct Text {
    const char* characters;
    uint64_t size;
};

status_t writeText(const Text& text, Parcel* parcel) {
    size_t parent;
    status_t status = parcel->writeBuffer(&text, sizeof(text), &parent);
    if (status != OK) return status;
    return parcel->writeEmbeddedBuffer(text.characters, text.size, nullptr, parent,
                                       offsetof(Text, characters));
}

const Text* readText(const Parcel& parcel) {
    size_t parent;
    const void* text;
    EXPECT_EQ(OK, parcel.readBuffer(sizeof(Text), &parent, &text));
    const void* characters;
    const auto* received = static_cast<const Text*>(text);
    EXPECT_EQ(OK, parcel.readEmbeddedBuffer(received->size, nullptr, parent,
                                            offsetof(Text, characters), &characters));
    return received;
}

TEST_F(HwBinderCallTest, CarriesScalarsAndEmbeddedBuffersBothWays) {
    Server server([](const Call& call) {
        EXPECT_TRUE(call.data.enforceInterface("test@1.0::ITest"));
        int32_t number = 0;
        call.data.readInt32(&number);
        const Text* text = readText(call.data);
        const std::string doubled = std::string(text->characters, text->size) +
                                    std::string(text->characters, text->size);
        call.reply->writeInt32(2 * number);
        const Text answer{doubled.data(), doubled.size()};
        writeText(answer, call.reply);
        call.sendReply();
        return OK;
    });
    runInProcess([] {
        Parcel data;
        Parcel reply;
        data.writeInterfaceToken("test@1.0::ITest");
        data.writeInt32(21);
        const Text text{"frame", 5};
        ASSERT_EQ(OK, writeText(text, &data));
        ASSERT_EQ(OK, Server::find()->transact(7, data, &reply));
        int32_t number = 0;
        EXPECT_EQ(OK, reply.readInt32(&number));
        EXPECT_EQ(42, number);
        const Text* answer = readText(reply);
        EXPECT_EQ("frameframe", std::string(answer->characters, answer->size));
    });
}

}  // namespace
}  // namespace korvane::test
