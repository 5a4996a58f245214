// SPDX-License-Identifier: ISC
#include "framework/display_engine.h"

#include <cmath>

namespace quillworks {

void DisplayFeed::prepare(const ProcessSpec& spec, DisplayEngine& engine)
{
    const std::lock_guard lock(mutex_);
    const auto format = engine.format(spec);
    const double framesPerFrame = format.rate / spec.sampleRate;
    ring_.prepare(format.channels, format.rate,
                  static_cast<int>(std::ceil(framesPerFrame * spec.maxFrames)) + 1);
    spec_ = spec;
    if (openings_ > 0) guarded(engine, [&] { start(engine); });
}

void DisplayFeed::setOpen(bool open, DisplayEngine& engine, MeterSlots& meters) noexcept
{
    const std::lock_guard lock(mutex_);
    if (!open && openings_ == 0) return;
    openings_ += open ? 1 : -1;
    if (open && !isRunning()) {
        if (spec_.channels > 0) guarded(engine, [&] { start(engine); });
    } else if (!open && openings_ == 0) {
        reader_.reset();
        frames_ = {};
        engine.release();
        engine.publish(meters);
    }
}

void DisplayFeed::start(DisplayEngine& engine)
{
    engine.prepare(spec_);
    frames_.resize(static_cast<std::size_t>(ring_.channels()) * CaptureRing::kMaxRead);
    if (!reader_) reader_.emplace(ring_);
}

void DisplayFeed::take(DisplayEngine& engine)
{
    float* x[VNK::kMaxChannels + 2];
    for (int c = 0; c < ring_.channels(); ++c)
        x[c] = frames_.data() + static_cast<std::ptrdiff_t>(c) * CaptureRing::kMaxRead;
    for (;;) {
        const auto piece = reader_->read(x);
        if (piece.restarted) engine.reset();
        if (piece.lost > 0) engine.gap(piece.first);
        if (piece.frames == 0) return;
        engine.feed(x, piece.frames, piece.first);
    }
}

bool DisplayFeed::show(const DisplayEngine& engine, int index, VNK::IDisplaySink& sink) noexcept
{
    const std::lock_guard lock(mutex_);
    try {
        engine.show(index, sink);
        return true;
    } catch (...) {
        return false;
    }
}

}  // namespace quillworks
