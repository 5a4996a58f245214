// SPDX-License-Identifier: ISC
// The engine behind a spectrum meter's displays.
#pragma once

#include <string>
#include <vector>

#include "analysis/averaged_bands.h"
#include "analysis/averaged_spectrum.h"
#include "analysis/meter_engine.h"
#include "analysis/sonogram.h"
#include "analysis/spectrum_peaks.h"
#include "analysis/spectrum_source.h"
#include "analysis/weighting.h"

namespace quillworks {

enum class SpectrumMode { Spectrum, Bands, Sonogram };
/// Level of a sine, or power density of noise.
enum class SpectrumReading { SineLevel, Density };

struct SpectrumSettings {
    SpectrumMode mode = SpectrumMode::Spectrum;
    SourceKind source = SourceKind::EachChannel;
    int resolution = 1;  // transforms of 2048, 8192, 16384, 32768 frames, times rateFactor()
    WindowShape window = WindowShape::Nuttall;
    int fraction = 3;        // bands of 1/fraction octave
    double average = 0.125;  // seconds; 0: none, infinity: the mean
    double hold = 2;         // seconds; 0: none, infinity: for ever
    Weighting weighting = Weighting::Z;
    SpectrumReading reading = SpectrumReading::SineLevel;
    double smoothing = 0;           // octaves
    double low = 20, high = 20000;  // Hz, of the sonogram's rows
    double offset = 0;              // dB
    bool compares = false;          // with the stored reference

    bool operator==(const SpectrumSettings&) const = default;
};

class SpectrumEngine final : public MeterEngine {
public:
    using MeterEngine::set;
    /// `stores`: how often the present curves have been stored as the reference.
    void set(const SpectrumSettings& settings, std::uint32_t stores);

private:
    void prepareMeter(const ProcessSpec& spec) override;
    void releaseMeter() noexcept override;
    void begin(std::int64_t first) override;
    void clear() override;
    void take(const float* const* x, int n) override;
    void resetHolds() override;
    void publishMeter(MeterSlots& meters) noexcept override;
    void showMeter(int index, VNK::IDisplaySink& sink) const override;

    int length() const noexcept;
    void build(std::int64_t first);
    void buildBands();
    void weigh();
    void figure();
    void store();

    void showSpectrum(VNK::IDisplaySink& sink) const;
    void showBands(VNK::IDisplaySink& sink) const;
    void showSonogram(VNK::IDisplaySink& sink) const;
    /// Powers to dB, as they are shown.
    std::vector<float> spectrumLevels(const std::vector<double>& powers) const;
    std::vector<float> bandLevels(const std::vector<double>& powers) const;
    double densityOverSine() const noexcept;

    /// What the user compares with: powers of curves by name.
    struct Reference {
        int length = 0;  // of the transform, or the fraction of bands
        double rate = 0;
        std::vector<std::string> names;
        std::vector<std::vector<double>> powers;

        /// Null where the curve of that number has another name.
        const std::vector<double>* find(std::size_t curve, const std::string& name) const noexcept;
    };

    SpectrumSettings settings_;
    std::uint32_t stores_ = 0;
    SpectrumSource source_;
    AveragedSpectrum spectrum_;
    AveragedBands bands_;
    Sonogram sonogram_;
    bool isBuilt_ = false, isFigured_ = false;
    std::vector<double> weights_, weightDb_;        // of the bins: factors of powers, dB
    std::vector<std::vector<SpectrumPeak>> peaks_;  // curve by curve
    double level_ = 0;                              // dB
    Reference spectrumReference_, bandReference_;
};

}  // namespace quillworks
