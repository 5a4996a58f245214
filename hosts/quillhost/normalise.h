// SPDX-License-Identifier: ISC
// Files to a loudness.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "rendering.h"

namespace quillhost {

/// What is asked for.
struct LoudnessTarget {
    double loudness = -23;           // LUFS
    double truePeak = -1;            // dBTP, the ceiling
    std::optional<double> rangeMax;  // LU
};

/// Targets by their usual names ("ebu-r128"); UsageError with the names.
LoudnessTarget targetNamed(const std::string& name);

struct Normalised {
    Rendered rendered;
    LoudnessReport before, after;  // of the file as it is, of what is written
    double gain = 0;               // dB
    bool limits = false;           // the true-peak limiter is in the chain
    std::int64_t clipped = 0;
    std::string missed;  // in words, what of the target could not be had; empty if nothing
};

/// The files of a call do not make one programme.
struct NoAlbum : WorkError {
    using WorkError::WorkError;
};

/// Brings one file to the target: measures what the effects make of it, adds a gain, and where the
/// peaks would pass the ceiling a true-peak limiter; measures what it writes, and where the limiter
/// took loudness away begins anew with more gain, until it is within 0.1 LU or more gain brings
/// nothing. A range that is too wide is compressed slowly first. Memory does not depend on the
/// file's length. [any thread, with gauges of its own]
class Normaliser {
public:
    explicit Normaliser(const Session& session);

    Normalised run(const RenderPlan& plan, const LoudnessTarget& target, const std::string& in,
                   const std::string& out, const Watched& watched);
    /// The gain in dB that brings the files together, one behind the other, to the target. `at`
    /// tells which of them is being read, also when that fails. NoAlbum when their rates or layouts
    /// differ, or they have no loudness.
    double albumGain(const RenderPlan& plan, const LoudnessTarget& target,
                     const std::vector<std::string>& files, std::size_t& at,
                     const Watched& watched);
    /// One file with a gain that is given; a limiter where its peaks need one.
    Normalised runWith(double gain, const RenderPlan& plan, const LoudnessTarget& target,
                       const std::string& in, const std::string& out, const Watched& watched);
    /// One file as it comes, measured before and after.
    Normalised measured(const RenderPlan& plan, const std::string& in, const std::string& out,
                        const Watched& watched);

private:
    struct Attempt {
        double gain = 0, ceiling = 0;  // dB
        bool limits = false;
        double ratio = 1, threshold = 0;  // of the compressor, 1: none
    };

    LoudnessReport measure(const RenderPlan& plan, const Attempt& attempt, const std::string& in,
                           const Watched& watched);
    Normalised finish(const RenderPlan& plan, const LoudnessTarget& target, Attempt attempt,
                      bool mayCorrect, const LoudnessReport& first, const std::string& in,
                      const std::string& out, const Watched& watched);
    void narrow(const RenderPlan& plan, double most, Attempt& attempt, LoudnessReport& measured,
                const std::string& in, const Watched& watched);

    const Session& session_;
    LoudnessGauge input_, output_;
    std::optional<LoudnessReport> before_;
};

}  // namespace quillhost
