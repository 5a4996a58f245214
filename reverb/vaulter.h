// SPDX-License-Identifier: ISC
// Vaulter: rooms, plates, springs and cabinets from recorded impulse responses, whose tail a tank
// can take over, longer, shorter, or for ever.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "dsp/course.h"
#include "dsp/crossfade.h"
#include "framework/effect_component.h"
#include "reverb/reverb_settings.h"
#include "reverb/vaulter_loader.h"
#include "reverb/wet_path.h"
#include "vnk/effect_displays.h"

namespace quillworks {

struct VaulterSettings : ReverbSettings {
    // What the loader works from, as the rows have it:
    float tailMode, tailStart, start, length, stretch, reverse, routing;
    float decay, replaceTime;  // see TailControls; decay concerns the loader too
    float motion, freeze;
    float early, late;  // linear
    float autoLevel;    // toggle
    float embed;        // toggle, the component's alone
};

template <typename T> class VaulterCore {
public:
    using Sample = T;
    using Settings = VaulterSettings;
    static constexpr CoreHooks kHooks{.tempo = true, .wetOnly = true, .publish = true};
    enum Group : unsigned {
        Response = Settings::kFirstOwnGroup,
        Tail = 2 * Response,
        Level = 4 * Response
    };

    void prepare(const ProcessSpec& spec);
    /// Where sounds come from; lives as long as the core. [not processing]
    void connect(const VaulterLoader& loader, std::shared_ptr<VaulterExchange<T>> exchange);
    void reset() noexcept;
    void apply(const Settings& settings, unsigned dirty) noexcept;
    void setTempo(double beatsPerMinute) noexcept { path_.setTempo(beatsPerMinute); }
    void setWetOnly(bool wetOnly) noexcept { path_.setWetOnly(wetOnly); }
    void process(const AudioBlock<T>& block) noexcept;
    void publish(MeterSlots& meters) noexcept;

private:
    void play(const T* const* in, T* const* out, GridSlice slice) noexcept;
    void playSound(VaulterSound<T>& sound, const T* const* in, T* const* out,
                   GridSlice slice) noexcept;
    void playPrevious(const T* const* in, T* const* out, GridSlice slice) noexcept;
    void beginSubBlock() noexcept;
    bool mayTake() const noexcept;
    void take() noexcept;
    void setTails() noexcept;

    WetPath<T> path_;
    const VaulterLoader* loader_ = nullptr;
    std::shared_ptr<VaulterExchange<T>> exchange_;
    TailControls controls_;
    Smoothed<T> early_, late_;
    Course<T> earlies_, lates_;
    Switch<bool> autoLevel_;

    bool isFresh_ = true;            // no sub-block since reset
    int sinceChange_ = 0;            // frames since what the sound depends on changed, limited
    int settled_ = 0;                // frames after which it may be taken
    std::int64_t previousLeft_ = 0;  // frames that the sound before rings on
    Crossfade entry_;                // of the input, from the sound before to that in use
    Crossfade leaving_;              // of the sound before, when yet another one waits
    bool isLeaving_ = false;
};

class FDNReverbAlgorithm final : public WetPathAlgorithm<VaulterCore> {
public:
    FDNReverbAlgorithm();

    VaulterLoader& loader() noexcept { return loader_; }

protected:
    void prepareCore(const ProcessSpec& spec, VNK::Precision precision) override;

private:
    VaulterLoader loader_;
};

/// Display "response": "seconds" that are convolved, "tailstart" in seconds and "t60" by octave (0
/// and empty without a tank), for each of "channels" the "peaks" of the shaped response in 512
/// columns, and of the file as it was read its "seconds", "peaks" and measured "decay" by octave.
class FDNReverbComponent final : public VNK::Extended<AudioEffectComponent, VNK::IEffectDisplays> {
public:
    explicit FDNReverbComponent(FDNReverbAlgorithm& algorithm);
    ~FDNReverbComponent() override;

    const char* displayName(std::int32_t index) const noexcept override;
    void setDisplaysOpen(bool) noexcept override {}
    void updateDisplays() noexcept override {}
    bool snapshot(const char* name, VNK::IDisplaySink* sink) noexcept override;

private:
    void changed(const AlgorithmParameter& parameter, float before, Setter by) noexcept override;
    void reconcile() noexcept override;
    void textChanged(const std::string& key) noexcept override;
    void complete(StoredState& state) const override;
    void restored(const StoredState& state) override;
    std::string problemOf(const std::string& key) const override;
    Delays delays(double sampleRate) const noexcept override;
    bool isBusy() const noexcept override { return loader_.isBusy(); }
    void tellLoader() noexcept;
    void updateDelays() noexcept;

    FDNReverbAlgorithm& vaulter_;
    VaulterLoader& loader_;
    std::optional<VaulterLoader::Source> restored_;  // until the text that belongs to it is set
};

}  // namespace quillworks
