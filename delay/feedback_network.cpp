// SPDX-License-Identifier: ISC
#include "delay/feedback_network.h"

namespace quillworks {

template <typename T>
void FeedbackNetwork<T>::prepare(int lines, int taps, const StepDelays& delays)
{
    const double base = glideSubBlocks(delays.sampleRate);
    lines_.prepare(lines, taps, delays);
    cuts_.prepare({.lowEnd = kEchoLowEnd, .highEnd = kEchoHighEnd}, lines, delays.sampleRate, base);
    order_.prepare(lines, delays.sampleRate);
    feedback_.prepareHalfLife(2 * base);
    rows_.prepare(lines);
}

template <typename T> void FeedbackNetwork<T>::reset() noexcept
{
    lines_.reset();
    cuts_.reset();
    order_.snap();
    feedback_.snap();
}

template <typename T>
void FeedbackNetwork<T>::apply(const EchoSettings& settings, unsigned dirty) noexcept
{
    if (!(dirty & EchoSettings::Loop)) return;
    feedback_.target(T(settings.feedback));
    cuts_.tune(settings.lowCut, settings.highCut);
    lines_.freeze(settings.freeze != 0);
}

template <typename T>
void FeedbackNetwork<T>::circulate(const T* const* in, T* const* echoes, GridSlice run,
                                   int offset) noexcept
{
    const int n = run.frames, lines = lines_.channels();
    if (offset != 0) {
        for (int c = 0; c < lines; ++c) {
            const auto i = static_cast<std::size_t>(c);
            ins_[i] = in[c] + offset;
            echoes_[i] = echoes[c] + offset;
        }
        in = ins_.data();
        echoes = echoes_.data();
    }
    lines_.read(0, echoes, run);
    if (lines_.isLive()) {
        cuts_.process(echoes, run);
    } else {
        for (int c = 0; c < lines; ++c) vec::copy(rows_[c], static_cast<const T*>(echoes[c]), n);
        cuts_.process(echoes, run);
        lines_.unfilter(echoes, rows_.data(), n);
    }
    order_.next(run);
    order_.process(fed_.data(), echoes, rows_.data(), n);
    lines_.write(in, fed_.data(), gains_.of(run), n);
    order_.advance(n);
}

template class FeedbackNetwork<float>;
template class FeedbackNetwork<double>;

}  // namespace quillworks
