// SPDX-License-Identifier: Apache-2.0
// What the camera is doing at the moment, for anyone who asks.
#pragma once

#include <functional>
#include <mutex>
#include <string>

#include <android-base/thread_annotations.h>

#include "FrameSource.h"
#include "PictureFormat.h"

namespace korvane::camera {

/** Updated by the thread that renders, read from any. Thread-safe. */
class CameraStatus {
  public:
    /** `onTold` gets the status in JSON after every update, on the thread that made it. */
    explicit CameraStatus(std::function<void(const std::string& json)> onTold = nullptr);

    /** A stream of that format begins, or ends. */
    void begin(const PictureFormat& format);
    void end();

    /** The host sees the card for this trouble. */
    void setTrouble(const Trouble& trouble);

    /** The host sees the source's pictures, processed on the way as `handling` says. */
    void setPictures(const std::string& handling);

    /**
     * A JSON object: "streaming" (bool); while that is true also "format", "width", "height",
     * "notice" (the word for the card's code, "none" for pictures) and "text" (what is wrong, or
     * how the pictures are processed).
     */
    std::string json() const;

  private:
    void publish() const EXCLUDES(mLock);

    const std::function<void(const std::string& json)> mOnTold;
    mutable std::mutex mLock;
    bool mStreaming GUARDED_BY(mLock) = false;
    PictureFormat mFormat GUARDED_BY(mLock);
    Trouble mShown GUARDED_BY(mLock);
};

}  // namespace korvane::camera
