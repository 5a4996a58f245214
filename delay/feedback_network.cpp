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
    rows_.require(static_cast<std::size_t>(lines * kSubBlock));
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
    const T *x[kMostLines]{}, *fed[kMostLines]{};
    T *echo[kMostLines]{}, *row[kMostLines]{};
    for (int c = 0; c < lines; ++c) {
        x[c] = in[c] + offset;
        echo[c] = echoes[c] + offset;
        row[c] = rows_.data() + c * kSubBlock;
    }
    lines_.read(0, echo, run);
    if (lines_.isLive()) {
        cuts_.process(echo, run);
    } else {
        for (int c = 0; c < lines; ++c) vec::copy(row[c], echo[c], n);
        cuts_.process(echo, run);
        lines_.unfilter(echo, row, n);
    }
    order_.next(run);
    order_.process(fed, echo, row, n);
    lines_.write(x, fed, gains_.of(run), n);
    order_.advance(n);
}

template class FeedbackNetwork<float>;
template class FeedbackNetwork<double>;

}  // namespace quillworks
