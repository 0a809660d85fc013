// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "desktop-camera"

#include "SurfaceRenderer.h"

#include <log/log.h>

namespace korvane::camera {

using android::IGraphicBufferProducer;
using android::OK;
using android::sp;
using android::status_t;

SurfaceRenderer::SurfaceRenderer(const sp<IGraphicBufferProducer>& producer,
                                 const PictureFormat& format, FrameSource& source,
                                 FrameJournal& journal)
    : mFormat(format), mSurface(producer, format), mPainter(source, format), mJournal(journal) {}

SurfaceRenderer::End SurfaceRenderer::run(const StreamTicket& ticket, uint32_t lastFrame) {
    status_t status = mSurface.connect();
    if (status != OK) return fail("connect to the surface", status);
    FramePacer pacer(monotonicNs(), mFormat.fps);
    while (mJournal.nextNumber() <= lastFrame) {
        if (!ticket.sleepUntil(pacer.nextBeat())) return End::STOPPED;
        ProducerSurface::Buffer buffer;
        status = mSurface.dequeue(&buffer);
        if (status == android::TIMED_OUT) continue;
        if (status != OK) return fail("get a buffer", status);
        const std::optional<End> end = renderFrame(buffer, &pacer);
        if (end) return *end;
    }
    return End::LAST_FRAME;
}

std::optional<SurfaceRenderer::End> SurfaceRenderer::renderFrame(
        const ProducerSurface::Buffer& buffer, FramePacer* pacer) {
    const int64_t now = monotonicNs();
    const int64_t beat = pacer->takeBeat(now);
    testcard::FrameRecord record;
    record.stamp = {mJournal.nextNumber(), static_cast<uint64_t>(now) / 1000};
    const auto result = mPainter.paint(buffer.pixels, mJournal.isOpen(), &record);
    if (result != FrameSource::Result::DRAWN) {
        mSurface.cancel(buffer);
        if (result == FrameSource::Result::FAILED) return End::FAILED;
        return std::nullopt;
    }
    const status_t status = mSurface.queue(buffer, beat);
    if (status != OK) return fail("queue a frame", status);
    mJournal.queued(record);
    return std::nullopt;
}

SurfaceRenderer::End SurfaceRenderer::fail(const char* what, status_t status) const {
    if (ProducerSurface::isGone(status)) return End::SURFACE_GONE;
    ALOGE("cannot %s: %d", what, status);
    return End::FAILED;
}

}  // namespace korvane::camera
