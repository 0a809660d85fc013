// SPDX-License-Identifier: Apache-2.0
// What the camera does at the moment, for whoever asks.
#pragma once

#include <functional>
#include <mutex>
#include <string>

#include <android-base/thread_annotations.h>

#include "FrameSource.h"
#include "PictureFormat.h"

namespace korvane::camera {

/** Told by the thread that renders, asked from any. Thread-safe. */
class CameraStatus {
  public:
    /** `onTold` gets the status in JSON whenever it was told something, on the thread that told. */
    explicit CameraStatus(std::function<void(const std::string& json)> onTold = nullptr);

    /** A stream of that format begins, or ends. */
    void begin(const PictureFormat& format);
    void end();

    /** The host sees the card for a trouble. */
    void setTrouble(const Trouble& trouble);

    /** The host sees the source's pictures, to which this is done on their way. */
    void setPictures(const std::string& handling);

    /**
     * A JSON object: "streaming" (bool); while that is true also "format", "width", "height",
     * "notice" (what the card says in its code, "none" for pictures) and "text" (what is the
     * matter, or what is done to the pictures).
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
