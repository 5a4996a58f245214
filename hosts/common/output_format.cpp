// SPDX-License-Identifier: ISC
#include "output_format.h"

#include <cmath>

#include "error.h"
#include "text.h"

namespace quillhost {

SampleFormat chooseFormat(const std::string& path, const SoundShape& shape, int asked,
                          SampleFormat usual)
{
    if (isCoded(path)) {
        if (asked != kAnyFormat)
            throw UsageError(path + ": files of this kind have no sample format (leave " +
                             "--format out)");
        if (canHold(path, shape, SampleFormat::Coded)) return SampleFormat::Coded;
    } else if (asked != kAnyFormat) {
        const auto format = static_cast<SampleFormat>(asked);
        if (!canHold(path, shape, format))
            throw UsageError(path + ": files of this kind do not hold this sample format (" +
                             "--format names another)");
        return format;
    }
    for (const auto format : {usual, SampleFormat::Pcm24, SampleFormat::Pcm16})
        if (canHold(path, shape, format)) return format;
    throw UsageError(path + ": files of this kind do not hold " + std::to_string(shape.channels) +
                     " channels at " + std::to_string(shape.sampleRate) + " Hz");
}

VNK::SpeakerArrangement layoutNamed(const std::string& name)
{
    VNK::SpeakerArrangement layout;
    if (!VNK::SpeakerArrangement::named(name, layout) || layout.channels > kMostChannels)
        throw UsageError("there is no layout " + inQuotes(name) +
                         " (mono, stereo, lcr, quad, 5.0, 5.1, 7.0, 7.1, 5.1.4, 7.1.2, 7.1.4, "
                         "9.1.6, or 1 to 16 channels)");
    return layout;
}

void noteClipping(const Session& session, const std::string& path, const SoundWriter& writer)
{
    if (writer.clipped() > 0)
        session.note(path + ": " + std::to_string(writer.clipped()) +
                     " samples were clipped, the peak is +" +
                     fixedText(20 * std::log10(writer.peak()), 2) +
                     " dB (--format float32 keeps them)");
}

}  // namespace quillhost
