// SPDX-License-Identifier: Apache-2.0
// The test card as a source of pictures.
#pragma once

#include <memory>
#include <string>

#include "FrameSource.h"
#include "testcard/TestCard.h"
#include "testcard/TestCardJpeg.h"

namespace korvane::camera {

/** Draws the test card in whatever format the stream has; there is always a next picture. */
class TestCardSource : public FrameSource {
  public:
    bool start(const PictureFormat& format) override;
    Result draw(const testcard::FrameStamp& stamp, const PictureMemory& memory,
                size_t* bytes) override;
    void stop() override;
    std::string handling() const override { return "the test card is drawn"; }

  private:
    std::unique_ptr<testcard::TestCard> mCard;
    std::unique_ptr<testcard::TestCardJpeg> mJpegCard;
};

}  // namespace korvane::camera
