// SPDX-License-Identifier: Apache-2.0
// A source whose start holds up nobody.
#pragma once

#include <memory>
#include <thread>

#include "FrameSource.h"

namespace korvane::camera {

/**
 * Starts and stops another source on a thread of its own: a device may hang while it is opened, a
 * network may not answer. Whoever draws waits for that no longer than for a picture, and then goes
 * on without one. The source is used by one thread at a time: by the one that draws, once it has
 * started.
 */
class BackgroundSource : public FrameSource {
  public:
    explicit BackgroundSource(std::unique_ptr<FrameSource> source);

    /**
     * A call that doesn't return within a second is left behind, with its thread and the source,
     * which go when it returns.
     */
    ~BackgroundSource() override;
    BackgroundSource(const BackgroundSource&) = delete;
    BackgroundSource& operator=(const BackgroundSource&) = delete;

    /** Always true: draw() says what came of it. */
    bool start(const PictureFormat& format) override;
    bool startAgain() override;
    Result draw(const testcard::FrameStamp& stamp, const PictureMemory& memory,
                size_t* bytes) override;

    /** Returns within a tenth of a second; the source stops as soon as it can. */
    void stop() override;
    Trouble trouble() const override;
    std::string handling() const override;

  private:
    class Worker;

    const std::shared_ptr<Worker> mWorker;
    std::thread mThread;
};

}  // namespace korvane::camera
