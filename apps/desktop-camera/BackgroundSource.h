// SPDX-License-Identifier: Apache-2.0
// A source whose start blocks nobody.
#pragma once

#include <memory>
#include <thread>

#include "FrameSource.h"

namespace korvane::camera {

/**
 * Starts and stops another source on a thread of its own: opening a device may hang, a network may
 * not answer. The drawing thread waits for that no longer than for a picture, then goes on without
 * one. Only one thread at a time uses the source: once it has started, the one that draws.
 */
class BackgroundSource : public FrameSource {
  public:
    explicit BackgroundSource(std::unique_ptr<FrameSource> source);

    /**
     * A call that doesn't return within a second is abandoned, along with its thread and the
     * source; both are freed when it returns.
     */
    ~BackgroundSource() override;
    BackgroundSource(const BackgroundSource&) = delete;
    BackgroundSource& operator=(const BackgroundSource&) = delete;

    /** Always true: draw() reports how the start went. */
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
