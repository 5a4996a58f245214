// SPDX-License-Identifier: ISC
// The worker's half of a measurement: takes memory, solves, judges, writes the files.
#pragma once

#include <array>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "framework/meter_slots.h"
#include "framework/worker.h"
#include "reverb/decay_analysis.h"
#include "reverb/measured_response.h"
#include "reverb/sweep_capture.h"
#include "reverb/sweep_run.h"
#include "vnk/sound_file.h"

namespace quillworks {

struct ResponseTarget {
    /// Absolute; empty: the user's library of responses.
    std::string folder;
    std::string name;  // without its ending
    VNK::SoundKind kind = VNK::SoundKind::WavFloat;
};

/// $XDG_DATA_HOME/quillworks/ir, where responses are also looked for; empty where there is no home.
std::string responseLibrary();

/// Writes a response as one file, and those of its harmonics beside it; a name that exists gets a
/// number. What a kind cannot hold (more than 8 channels in FLAC, a peak beyond full scale in 24
/// bits) becomes WAV of the same or a larger range. False with a reason in one line.
bool writeResponse(const MeasuredResponse& response, const ResponseTarget& target,
                   std::vector<std::string>& files, std::string& reason);

/// What there is to say of the last measurement. Never changes once made.
struct ResponseReport {
    static constexpr int kColumns = 512;

    std::vector<std::string> files;
    std::string failure;  // in one line; empty where all went well
    ResponseFigures figures;
    double sampleRate = 0, seconds = 0;  // of the response
    int microphones = 1;
    /// Largest magnitude of each column in dB, by path.
    std::vector<std::vector<float>> envelopes;
    /// Centres of twelfths of an octave in Hz, and by path the response's magnitude in each in dB,
    /// of its first seconds.
    std::vector<float> hertz;
    std::vector<std::vector<float>> magnitudes;
    std::array<double, kOctaves> t60{};  // seconds, of all paths; NaN where nothing can be told
};

class ResponseMaker {
public:
    /// What is asked for at present. [worker thread]
    struct Wishes {
        CapturePlan plan;
        SolveOptions options;
        ResponseTarget target;
    };
    using Ask = std::function<Wishes(const CaptureShape&)>;

    ResponseMaker(CaptureExchange& exchange, MeterSlots& meters, Ask ask)
        : exchange_(exchange), meters_(meters), ask_(std::move(ask))
    {}

    /// Does what is to be done. [worker thread]
    void run(const WorkerJob::Progress& progress);
    /// Null before the first. [any thread but audio]
    std::shared_ptr<const ResponseReport> report() const;

private:
    void offer();
    void solve(SweepCapture& capture, const WorkerJob::Progress& progress);
    void publish(const ResponseFigures& figures) noexcept;
    void setReport(std::shared_ptr<const ResponseReport> report);

    CaptureExchange& exchange_;
    MeterSlots& meters_;
    const Ask ask_;
    mutable std::mutex mutex_;  // of the report
    std::shared_ptr<const ResponseReport> report_;
};

}  // namespace quillworks
