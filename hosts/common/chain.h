// SPDX-License-Identifier: ISC
// Effects in series, run block by block as a host runs them.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "automation.h"
#include "session.h"
#include "sound_file.h"
#include "vnk/dry_path.h"
#include "vnk/effect_runner.h"

namespace quillhost {

struct ChainSetup {
    double sampleRate = 48000;
    int block = 512;  // longest block
    VNK::Precision precision = VNK::Precision::Float;
    VNK::SpeakerArrangement input;
    std::optional<VNK::SpeakerArrangement> output;  // asked for; else what the effects make of it
    int sideChainChannels = 0;                      // 0: not connected
    double tempo = 120;                             // quarter notes per minute
    bool playing = true;
    double position = 0;  // quarter notes at frame 0
};

class Chain {
public:
    /// Called after each effect's share of a block.
    using Watcher = std::function<void(std::size_t effect, std::int64_t frame, int frames)>;

    /// Prepares and resets the effects. WorkError when one cannot run so, UsageError when the
    /// output layout cannot be had. Setting up a chain of no effects is allowed.
    Chain(const std::vector<Effect>& effects, const ChainSetup& setup);

    const VNK::SpeakerArrangement& input() const noexcept { return input_; }
    const VNK::SpeakerArrangement& output() const noexcept { return output_; }
    /// Channels that the planes given to run() must have.
    int planeChannels() const noexcept { return planeChannels_; }
    bool hasSideChain() const noexcept;
    /// Samples, with the present parameters.
    std::int64_t latency() const noexcept;
    /// Samples that the output goes on beyond the input, latency included, at most `limit`.
    std::int64_t tail(std::int64_t limit) const noexcept;

    /// What is set to a parameter that shows the host's tempo moves the song's tempo instead. An
    /// effect with a delay whose "bypass" is automated is switched off here and not by itself: what
    /// its bypass plays comes as late as its output would, so that the sound stays in line.
    void setAutomation(std::vector<AutomationEvent> events);
    /// How many events lie behind the last frame run.
    std::size_t eventsLeft() const noexcept { return events_.size() - nextEvent_; }
    /// Value of a parameter as the user sees it.
    float value(std::size_t effect, int parameter) const noexcept;
    void setWatcher(Watcher watcher) { watcher_ = std::move(watcher); }

    /// Starts again at frame 0 with cleared effects.
    void restart() noexcept;

    /// Runs the next `frames` frames in place. Calls must divide the signal at multiples of the
    /// block length, save for the last one. `sideChain` may be null: silence.
    template <typename T> void run(Planes<T>& planes, const Planes<T>* sideChain, int frames);
    /// Until no effect has anything under way beside the sound (a file, a table). The first block
    /// waits for it, and so does what comes before and behind a piece in which automation has
    /// acted; who lets the effects go calls it once more. WorkError after two minutes.
    void waitUntilReady() const;
    /// Effects have been given something to do between two calls of run(), as automation does: the
    /// next one waits before and behind its first piece.
    void unsettle() noexcept { isUnsettled_ = true; }
    /// Waits likewise, and says what is wrong with what the effects' texts name, a line each.
    std::vector<std::string> problems() const;
    /// Waits likewise, and looks whether what the effects' texts name can be had. WorkError where a
    /// file cannot, or, if that is allowed, a note. Before a result is begun, and before latency or
    /// tail are asked for, which may depend on what is loaded.
    void requireFiles(const Session& session, bool allowMissing) const;

private:
    struct Link {
        Effect effect;
        VNK::EffectRunner runner;
        VNK::RunSetup setup = {};
        bool hasSideChain = false;
        int bypass = -1;  // parameter that is followed here, -1: none
        bool isBypassed = false;
        VNK::DryPath<float> floatDry = {};
        VNK::DryPath<double> doubleDry = {};
        template <typename T> VNK::DryPath<T>& dry() noexcept
        {
            if constexpr (std::is_same_v<T, float>)
                return floatDry;
            else
                return doubleDry;
        }
    };
    void arrange();
    void followBypass(Link& link, int parameter);
    std::int64_t applyEvents();
    template <typename T>
    void runSettled(Planes<T>& planes, const Planes<T>* sideChain, int at, int frames);
    void setTempo(double tempo) noexcept;
    double quarterNotes() const noexcept;
    template <typename T>
    void runPiece(Planes<T>& planes, const Planes<T>* sideChain, int at, int frames);

    std::vector<Link> links_;
    ChainSetup setup_;
    VNK::SpeakerArrangement input_, output_;
    int planeChannels_ = 0;
    std::int64_t frame_ = 0;  // of the next block
    double tempo_ = 120;      // from tempoFrame_ on, where the song stands at tempoPosition_
    std::int64_t tempoFrame_ = 0;
    double tempoPosition_ = 0;  // quarter notes
    std::vector<AutomationEvent> events_;
    std::size_t nextEvent_ = 0;
    bool isUnsettled_ = true;  // effects may have been given something to do
    Watcher watcher_;
    Planes<float> floatScratch_;  // where channel counts differ
    Planes<double> doubleScratch_;
};

/// Prepares an effect at 48 kHz in its usual layout and waits for it, so that delay, tail and what
/// is wrong with its files are known. As requireFiles() with a session.
void prepareAsUsual(const Effect& effect);
void prepareAsUsual(const Effect& effect, const Session& session, bool allowMissing);

}  // namespace quillhost
