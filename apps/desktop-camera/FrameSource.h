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

/** What keeps a source from giving pictures, for people and for programs. */
struct Trouble {
    testcard::Notice notice = testcard::Notice::kNone;
    std::string text;  // a sentence without its full stop; empty if there is no more to say
};

/**
 * Gives pictures for one stream at a time: start(), any number of draw(), stop(). Used by one
 * thread at a time.
 */
class FrameSource {
  public:
    enum class Result {
        kDrawn,
        kNotYet,    // no picture within a tenth of a second, or one too large; try again
        kStarting,  // nor that, since the start isn't over; try again
        kEnded,     // the last one was the last; startAgain() begins anew
        kFailed,    // there will be none any more, and the log says why
    };

    virtual ~FrameSource() = default;

    /** Prepares for pictures of a format. False if it cannot give such, and the log says why. */
    virtual bool start(const PictureFormat& format) = 0;

    /** Begins anew, for the same stream, a source that has ended. False as with start(). */
    virtual bool startAgain() { return false; }

    /**
     * Puts a picture into the memory, which is for the format given to start(). Returns its size in
     * `bytes`; the stamp is for those pictures that show it.
     */
    virtual Result draw(const testcard::FrameStamp& stamp, const PictureMemory& memory,
                        size_t* bytes) = 0;

    virtual void stop() = 0;

    /** What is done to the pictures on their way, in words; may be empty. */
    virtual std::string handling() const { return ""; }

    /** Why start() or draw() has failed last. */
    virtual Trouble trouble() const { return {testcard::Notice::kFailed, ""}; }
};

}  // namespace korvane::camera
