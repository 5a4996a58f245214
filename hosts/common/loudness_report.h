// SPDX-License-Identifier: ISC
// Loudness and peaks of a programme, through the Level Meter effect.
#pragma once

#include <atomic>
#include <optional>
#include <string>
#include <vector>

#include "session.h"
#include "sound_file.h"
#include "vnk/effect_runner.h"

namespace quillhost {

/// Figures with nothing to report are not-a-number.
struct LoudnessReport {
    std::string file;
    std::vector<std::string> remarks;              // on the file
    float integrated, momentaryMax, shortTermMax;  // LUFS
    float range, rangeLow, rangeHigh;              // LU, LUFS, LUFS
    float truePeak;                                // dBTP
    std::vector<float> samplePeak, rms;            // dBFS, per channel
    std::int64_t frames;
    int sampleRate, channels;
};

/// Measures programmes one after the other by EBU Tech 3341 and 3342 and ITU-R BS.1770, with
/// channel weights from the layout. One to a thread.
class LoudnessGauge {
public:
    static constexpr int kWhole = 1000;  // steps of progress per file

    /// WorkError when the module's meter cannot measure so.
    explicit LoudnessGauge(const Session& session);

    /// Reads the file block by block; adds up to kWhole to `progress`. WorkError for a file that
    /// cannot be read.
    LoudnessReport measure(const std::string& path, std::atomic<std::int64_t>& progress);

    /// Begins a programme that comes in pieces. WorkError when it cannot be measured.
    void start(const VNK::SpeakerArrangement& layout, int sampleRate, VNK::Precision precision);
    /// Frames from .. to of the planes, which stay as they are, in the precision of start().
    template <typename T> void feed(Planes<T>& planes, int from, int to);
    /// How loud it is now, LUFS; not-a-number while there is nothing to report. What is integrated
    /// is brought up to date every second.
    struct Reading {
        float momentary, shortTerm, integrated;
    };
    Reading now() const;
    /// The figures of what has been fed; `file` and `remarks` are left to the caller.
    LoudnessReport finish();

private:
    template <typename T> void play(SoundReader& reader, std::atomic<std::int64_t>& progress);
    template <typename T> void end();
    float meter(const std::string& key) const;

    Effect effect_;
    VNK::EffectRunner runner_;
    std::int64_t frames_ = 0;
};

}  // namespace quillhost
