// SPDX-License-Identifier: Apache-2.0
// A source that always has a picture.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>

#include "CameraStatus.h"
#include "FrameSource.h"
#include "NoticeCard.h"

namespace korvane::camera {

/**
 * Delivers the pictures of another source and, while that has none, cards that say why: the source
 * is restarted until it has some, and when it ends. While the camera is covered, the other source
 * is stopped, so that nothing is looked at. Used by one thread.
 */
class SteadySource : public FrameSource {
  public:
    /** All in monotonic nanoseconds. */
    struct Times {
        int64_t retry = 2'000'000'000;      // from losing the source to restarting it
        int64_t beforeCard = 500'000'000;   // how long a source's first picture may take unnoticed
        int64_t patience = 10'000'000'000;  // for the first picture; then the source is restarted
        int64_t gap = 3'000'000'000;        // the same between pictures
    };

    /**
     * `source` and `status` must outlive this. `isCovered` is asked for each picture; null: never
     * covered.
     */
    SteadySource(FrameSource& source, std::function<bool()> isCovered, const Times& times,
                 CameraStatus& status);

    /** False only if no card fits the format and the source can't deliver it either. */
    bool start(const PictureFormat& format) override;
    Result draw(const testcard::FrameStamp& stamp, const PictureMemory& memory,
                size_t* bytes) override;
    void stop() override;

  private:
    std::optional<Result> drawPicture(const testcard::FrameStamp& stamp,
                                      const PictureMemory& memory, size_t* bytes);
    bool noteQuiet(bool starting);
    void open();
    void close();
    void noteCover();
    void noteLoss(const Trouble& trouble);
    void notePicture();
    void show(const Trouble& trouble);

    FrameSource& mSource;
    const std::function<bool()> mIsCovered;
    const Times mTimes;
    CameraStatus& mStatus;
    NoticeCard mCard;
    PictureFormat mFormat;
    bool mHasCard = false;      // whether cards fit into the format
    bool mOpen = false;         // whether the source is started
    bool mGavePicture = false;  // since it was started
    int64_t mSince = 0;         // time of its latest picture or, before the first, of its start
    int64_t mReadySince = 0;    // the same, or when it was last seen starting
    int64_t mRetryAt = 0;
    Trouble mTrouble;  // NONE while the source's own pictures are shown
};

}  // namespace korvane::camera
