// SPDX-License-Identifier: ISC
// A recorded impulse response on its way into a convolver: resampled, cut, stretched, laid out on
// the paths from inputs to outputs, and levelled.
//
// Pure functions for a worker. They may throw std::bad_alloc, and Cancelled soon after the user of
// their result is gone.
#pragma once

#include <functional>
#include <vector>

#include "vnk/sound_file.h"
#include "vnk/speaker_arrangement.h"

namespace quillworks {

struct Cancelled {};
using VNK::IsCancelled;

/// One vector of samples per channel, all of one length.
using ResponseChannels = std::vector<std::vector<double>>;

/// A response at another rate, `step` samples of it per sample of the result. It is a density over
/// time, so its values are multiplied by `step`: the frequency response stays as it was. Nothing
/// comes before time 0: sample 0 goes over as one sample of the same value, whose spectrum is as
/// flat as before, and what the interpolation's kernel puts before time 0 of every other sample is
/// added to sample 0.
ResponseChannels resampledResponse(const ResponseChannels& response, double step,
                                   const IsCancelled& isCancelled = {});

/// What is cut out of a response, and how long that is drawn out.
struct ResponseShape {
    double start = 0;    // seconds cut from the front, silence there included
    double stretch = 1;  // length of the result over that of the response
    double length = 1;   // part of that which is kept, 0 .. 1; less than 1 ends in a fade
};

/// Resampled to `sampleRate`, cut in front, stretched to the same energy, and cut at the end with a
/// squared cosine over the last fifth. A file that was cut when it was read ends in a fade of 10
/// ms. At the file's own rate, with nothing to be done, the samples stay as they are; the result
/// has one sample at least.
ResponseChannels shapedResponse(const VNK::Sound<float>& file, const ResponseShape& shape,
                                double sampleRate, const IsCancelled& isCancelled = {});

/// Lets a response that falls by 60 dB in `t60` seconds do so in `decay` (below 1) times that, from
/// `from` seconds on.
void shortenDecay(ResponseChannels& response, double from, double t60, double decay,
                  double sampleRate);
/// The last sample first.
void reverseResponse(ResponseChannels& response);

enum class ResponseRouting { Auto, Mono, Stereo, TrueStereo };

/// From an input channel to an output channel through one of the responses.
struct ResponsePath {
    int input, output, response;

    bool operator==(const ResponsePath&) const = default;
};
struct ResponseMatrix {
    ResponseChannels responses;       // each is used
    std::vector<ResponsePath> paths;  // by output, then by input
};

/// Which channels of a file serve which paths. LFE channels have none.
///
/// Auto, C channels in the layout and F in the file: of 1 the same for all; of C one per channel;
/// of C^2 the full matrix, input by input; of 2 the left and right sides, what is in the middle
/// their mean at equal energy; else the first channels. Mono: the mean of the file's channels on
/// every channel. Stereo: channels 0 and 1 as above. TrueStereo: channels 0 to 3 as left to left,
/// left to right, right to left and right to right of every pair, in the middle the mean of the
/// first and last. Where a file has too few channels they repeat; a layout of one channel plays
/// channel 0 unless Mono takes the mean.
ResponseMatrix routedResponse(ResponseChannels response, ResponseRouting routing,
                              const VNK::SpeakerArrangement& layout);

/// The gain at which pink noise of RMS 1 between 100 Hz and 8 kHz on every input, each its own,
/// comes out with RMS 0.5 in the mean over the outputs; 1 for silence.
double autoLevelGain(const ResponseMatrix& matrix, double sampleRate,
                     const IsCancelled& isCancelled = {});

}  // namespace quillworks
