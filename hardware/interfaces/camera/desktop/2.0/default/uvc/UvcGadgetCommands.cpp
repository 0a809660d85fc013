// SPDX-License-Identifier: Apache-2.0
// The controller's command channel: the texts that it takes and sends.
#define LOG_TAG "UVC-GadgetHandler"

#include <algorithm>
#include <string>

#include <linux/videodev2.h>

#include <JsonUtils.h>
#include <log/log.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include "uvc/FrameInterval.h"
#include "uvc/UvcGadgetHandler.h"

namespace korvane::hardware::camera::desktop::V2_0::implementation {

using ::android::JsonUtils;
using ::android::KorBufferSource;
using ::android::sp;
using ::android::hardware::hidl_string;
using ::android::hardware::Return;

namespace {

// Whether the text might exhaust the stack of the default parser, which recurses for every array
// and object: the text begins with one, and has more of them than any command.
bool nestsDeep(const std::string& text) {
    constexpr int kMaxRecursion = 256;
    const auto opens = [](char c) { return c == '[' || c == '{'; };
    const size_t root = text.find_first_not_of(" \t\n\r");
    return root != std::string::npos && opens(text[root]) &&
           std::count_if(text.begin(), text.end(), opens) > kMaxRecursion;
}

// The two parsers give different error codes for a text that doesn't begin like a value.
void parse(const std::string& text, rapidjson::Document* document) {
    if (nestsDeep(text)) {
        document->Parse<rapidjson::kParseIterativeFlag>(text.c_str());
    } else {
        document->Parse(text.c_str());
    }
}

ClientEvents::Answer tell(const sp<ICameraDesktop>& desktop, ClientType type,
                          const std::string& message) {
    ClientEvents::Answer answer;
    const Return<void> status = desktop->sendCommand(
            type, message, [&answer](const hidl_string& text) { answer.text = text.c_str(); });
    answer.failed = !status.isOk();
    answer.isDead = status.isDeadObject();
    return answer;
}

// A YUYV stream is fed with NV12: the device converts the frames that it is given.
std::string cameraFormat(const StreamSettings& settings) {
    return settings.format == V4L2_PIX_FMT_YUYV ? "NV12" : settings.formatName;
}

}  // namespace

bool UvcGadgetHandler::connectToServiceLocked() {
    return mConnection.connect();
}

std::string UvcGadgetHandler::setCommandTo(ClientType type, const std::string& message) {
    if (!connectToServiceLocked()) {
        ALOGE("%s: Service not available", __func__);
        return "";
    }
    const sp<ICameraDesktop> desktop = mConnection.service();
    const ClientEvents::Answer answer =
            mEvents.send(static_cast<uint8_t>(type),
                         [desktop, type, message] { return tell(desktop, type, message); });
    if (answer.failed) {
        mStats.clientFailed(static_cast<uint8_t>(type));
        ALOGE("%s: Failed during binder call, isDead %d", __func__, answer.isDead);
    }
    return answer.text;
}

void UvcGadgetHandler::onClientChanged(ClientType type) {
    mEvents.onClientChanged(static_cast<uint8_t>(type));
}

std::string UvcGadgetHandler::handleCommand(const std::string& command) {
    rapidjson::Document document;
    parse(command, &document);
    if (document.HasParseError()) {
        ALOGE("%s: failed to parse command: err=%d at %zu", __func__, document.GetParseError(),
              document.GetErrorOffset());
        return "PARSE_ERR";
    }

    int status = 0;
    JsonUtils::getValue(status, document, "get-stream-config", -1);
    if (status == 0) return getStreamConfig();

    const rapidjson::Value& params = JsonUtils::getValue(status, document, "create-surface", -1);
    if (status == 0) {
        std::string refusal = createSurface(params);
        if (!refusal.empty()) mStats.note(Event::SURFACE_REFUSED);
        return refusal;
    }

    suspendStream(document);
    return "OK_WEBCAM_HAL";
}

void UvcGadgetHandler::suspendStream(const rapidjson::Value& command) {
    bool suspend = false;
    if (JsonUtils::parseValue(command, "stream-suspend", suspend, -1) != 0) return;
    const sp<KorBufferSource> source = mSurface.source();
    // The reply is the same when this is refused.
    if (source != nullptr) (void)source->setSuspend(suspend, -1);
}

std::string UvcGadgetHandler::getStreamConfig() {
    std::lock_guard<std::mutex> guard(mDeviceLock);
    if (mDevice == nullptr) {
        ALOGE("No video device is setup for webcam mode");
        return "no v4l2 control";
    }

    const StreamSettings settings = mDevice->getStreamSettings();
    rapidjson::StringBuffer text;
    rapidjson::Writer<rapidjson::StringBuffer> writer(text);
    writer.StartObject();
    writer.Key("width");
    writer.Int(static_cast<int>(settings.width));
    writer.Key("height");
    writer.Int(static_cast<int>(settings.height));
    writer.Key("v4l2-format");
    writer.String(cameraFormat(settings).c_str());
    writer.Key("fps");
    writer.Double(framesPerSecond(settings.frameInterval));
    writer.Key("buffer-count");
    writer.Uint(mDevice->getBufferNum());
    writer.EndObject();
    return text.GetString();
}

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
