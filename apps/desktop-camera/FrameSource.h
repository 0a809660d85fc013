// SPDX-License-Identifier: Apache-2.0
// Where the camera's pictures come from.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "PictureFormat.h"
#include "testcard/FrameStamp.h"
#include "testcard/Planes.h"

namespace korvane::camera {

/** Memory for one picture: planes for NV12, room for a file for MJPG. */
struct PictureMemory {
    testcard::Planes planes;
    uint8_t* file = nullptr;
    size_t fileCapacity = 0;
};

/** What keeps a source from delivering pictures, for people and for programs. */
struct Trouble {
    testcard::Notice notice = testcard::Notice::NONE;
    std::string text;  // a sentence without its full stop; empty if there is nothing more to say
};

/**
 * Delivers pictures for one stream at a time: start(), any number of draw(), stop(). Used by one
 * thread at a time.
 */
class FrameSource {
  public:
    enum class Result {
        DRAWN,
        NOT_YET,   // no picture within a tenth of a second, or one too large; try again
        STARTING,  // as NOT_YET, because the start isn't over; try again
        ENDED,     // the last picture has been drawn; startAgain() begins anew
        FAILED,    // there will be no more, and the log says why
    };

    virtual ~FrameSource() = default;

    /** Prepares for pictures of a format. False if it can't deliver them, and the log says why. */
    virtual bool start(const PictureFormat& format) = 0;

    /** Restarts a source that has ended, for the same stream. False as with start(). */
    virtual bool startAgain() { return false; }

    /**
     * Puts a picture into the memory, which is for the format given to start(). Returns its size in
     * `bytes`; the stamp is for pictures that show it.
     */
    virtual Result draw(const testcard::FrameStamp& stamp, const PictureMemory& memory,
                        size_t* bytes) = 0;

    virtual void stop() = 0;

    /** How the pictures are processed on the way, in words; may be empty. */
    virtual std::string handling() const { return ""; }

    /** Why start() or draw() last failed. */
    virtual Trouble trouble() const { return {testcard::Notice::FAILED, ""}; }
};

}  // namespace korvane::camera
