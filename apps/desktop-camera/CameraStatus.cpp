// SPDX-License-Identifier: Apache-2.0
#include "CameraStatus.h"

#include <utility>

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

namespace korvane::camera {

using testcard::Notice;

CameraStatus::CameraStatus(std::function<void(const std::string& json)> onTold)
    : mOnTold(std::move(onTold)) {
    publish();
}

void CameraStatus::begin(const PictureFormat& format) {
    {
        const std::lock_guard<std::mutex> guard(mLock);
        mStreaming = true;
        mFormat = format;
        mShown = {Notice::STARTING, ""};
    }
    publish();
}

void CameraStatus::end() {
    {
        const std::lock_guard<std::mutex> guard(mLock);
        mStreaming = false;
    }
    publish();
}

void CameraStatus::setTrouble(const Trouble& trouble) {
    {
        const std::lock_guard<std::mutex> guard(mLock);
        mShown = trouble;
    }
    publish();
}

void CameraStatus::publish() const {
    if (mOnTold != nullptr) mOnTold(json());
}

void CameraStatus::setPictures(const std::string& handling) {
    setTrouble({Notice::NONE, handling});
}

std::string CameraStatus::json() const {
    const std::lock_guard<std::mutex> guard(mLock);
    rapidjson::StringBuffer text;
    rapidjson::Writer<rapidjson::StringBuffer> writer(text);
    writer.StartObject();
    writer.Key("streaming");
    writer.Bool(mStreaming);
    if (mStreaming) {
        writer.Key("format");
        writer.String(mFormat.fourcc.c_str());
        writer.Key("width");
        writer.Uint(mFormat.width);
        writer.Key("height");
        writer.Uint(mFormat.height);
        writer.Key("notice");
        writer.String(nameOf(mShown.notice));
        writer.Key("text");
        writer.String(mShown.text.c_str());
    }
    writer.EndObject();
    return text.GetString();
}

}  // namespace korvane::camera
