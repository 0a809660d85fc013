// SPDX-License-Identifier: Apache-2.0
// The camera's work from start to end.
#pragma once

#include <cstdint>

#include "FrameJournal.h"
#include "FrameSource.h"
#include "PictureFormat.h"
#include "ServiceConnection.h"
#include "StreamDemand.h"
#include "StreamHooks.h"
#include "SurfaceRenderer.h"

namespace korvane::camera {

/** Serves one stream after another until the program is to end. Used by one thread. */
class CameraClient {
  public:
    /** All must outlive the client. `lastFrame` is the number of the last frame to be queued. */
    CameraClient(StreamDemand& demand, ServiceConnection& connection, FrameSource& source,
                 FrameJournal& journal, StreamHooks& hooks, uint32_t lastFrame);

    /**
     * Connects, joins a stream that is already running, serves those that follow, and reconnects
     * when the service dies.
     */
    void run();

  private:
    bool connect();
    void serveStream(const StreamTicket& ticket);
    void joinStream(const StreamTicket& ticket);
    void render(const StreamTicket& ticket, const PictureFormat& format);
    bool askForConfig(PictureFormat* format, int priority);
    bool askForSurface(const PictureFormat& format, int priority);

    StreamDemand& mDemand;
    ServiceConnection& mConnection;
    FrameSource& mSource;
    FrameJournal& mJournal;
    StreamHooks& mHooks;
    const uint32_t mLastFrame;
};

}  // namespace korvane::camera
