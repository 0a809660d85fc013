// SPDX-License-Identifier: Apache-2.0
// The card that stands in for a picture and says why.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "FrameSource.h"
#include "testcard/TestCard.h"
#include "testcard/TestCardJpeg.h"

namespace korvane::camera {

/**
 * Draws moving cards with words on them, whose coded strips carry the notice. Used by one thread.
 */
class NoticeCard {
  public:
    /** Prepares for pictures of a format; false if no card fits it. */
    bool start(const PictureFormat& format);

    /** Draws the card for a trouble; like FrameSource::draw(), but never NOT_YET. */
    FrameSource::Result draw(const Trouble& trouble, testcard::FrameStamp stamp,
                             const PictureMemory& memory, size_t* bytes);

    /** Frees what the cards of a format occupy. */
    void stop();

  private:
    bool prepare(const Trouble& trouble);

    PictureFormat mFormat;
    testcard::Notice mNotice = testcard::Notice::NONE;  // of the prepared card; NONE: there is none
    std::string mText;
    std::unique_ptr<testcard::TestCard> mCard;
    std::unique_ptr<testcard::TestCardJpeg> mJpegCard;
};

}  // namespace korvane::camera
