// SPDX-License-Identifier: ISC
// Makes what Vaulter plays out of a file and its settings, on the worker thread.
#pragma once

#include <array>
#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "framework/audio_block.h"
#include "framework/worker.h"
#include "reverb/response_fingerprint.h"
#include "reverb/response_search.h"
#include "reverb/vaulter_sound.h"

namespace quillworks {

class VaulterLoader {
public:
    /// What a sound is made from beside its file, in the units of the rows.
    enum Value { Start, Length, Stretch, Reverse, Routing, Mode, TailFrom, Decay, kValues };
    /// The list "loadstatus".
    enum class Status { None, Loading, Playing, Missing, Unreadable };
    /// A file, and what is known of it from the last time.
    struct Source {
        std::string file;  // a path, "factory:NAME", or empty
        ResponseIdentity known;
        std::optional<ResponseFingerprint> fit;
        std::string embedded;  // content of a sound file, or empty
        std::string baseFolder;
        bool isRestored = false;  // by a state: what was there before has no meaning any more
    };
    /// What the last job has found and made.
    struct Report {
        std::string problem;  // one line, or empty
        ResponseIdentity identity;
        std::optional<ResponseFingerprint> fit;         // of the file
        std::shared_ptr<const VNK::Sound<float>> file;  // as it was read; null if there is none
        std::string embedded;                           // what a state carried, until it is read
        std::vector<std::vector<float>> envelope;       // peaks in columns, of each response
        double seconds = 0;                             // of what is convolved
        std::vector<float> whole;                       // peaks of the file, in as many columns
        double wholeSeconds = 0;                        // of the file
        double tailStart = 0;                           // s; 0 without a tank
        std::array<double, kOctaves> t60{};             // measured; 0 without a tank
    };

    VaulterLoader();
    ~VaulterLoader();
    VaulterLoader(const VaulterLoader&) = delete;
    VaulterLoader& operator=(const VaulterLoader&) = delete;

    /// Asks for a new sound where it depends on the value. [any thread, wait-free]
    void set(Value which, float value) noexcept;
    /// True from a change until the new sound lies ready. [any thread]
    bool isBusy() const noexcept { return job_->isBusy(); }
    Status status() const noexcept { return status_.load(std::memory_order_relaxed); }
    float progress() const noexcept { return progress_.load(std::memory_order_relaxed); }  // %
    /// How long a sound rings, in seconds. [any thread]
    double ringSeconds(const TailControls& controls) const noexcept;
    /// Hz, of the last sound.
    double sampleRate() const noexcept { return sampleRate_.load(); }
    /// Whether there is a tank that can be frozen. [any thread]
    bool hasTank() const noexcept { return mode_.load() != TailMode::Whole; }

    // [main thread]
    void setSource(Source source);
    /// What a state says of the file that is in use or on its way; counts until it has been read.
    void expect(const Source& source);
    /// The way to a core, which is the same while rate and layout are. May throw std::bad_alloc.
    template <typename T> std::shared_ptr<VaulterExchange<T>> connect(const ProcessSpec& spec);
    Report report() const;
    /// Called on the worker thread when a job has ended; null for nobody.
    void setListener(std::function<void()> listener);

private:
    template <typename T> using Exchange = std::shared_ptr<VaulterExchange<T>>;
    using Target = std::variant<std::monostate, Exchange<float>, Exchange<double>>;

    static Report expected(const Source& source);
    float value(Value which) const noexcept { return values_[which].load(); }
    void run(const WorkerJob::Progress& progress);
    void read(const Source& source, const IsCancelled& isCancelled);
    VaulterPlan plan(double sampleRate, const VNK::SpeakerArrangement& layout, int sampleBytes,
                     const IsCancelled& isCancelled);
    void limitMemory(ResponseChannels& response, int channels, double sampleRate, int sampleBytes);
    void tell(const VaulterPlan& plan);
    template <typename T>
    void give(VaulterExchange<T>& exchange, const VaulterPlan& plan,
              const IsCancelled& isCancelled);

    std::array<std::atomic<float>, kValues> values_;
    std::atomic<Status> status_{Status::None};
    std::atomic<float> progress_{0};
    std::atomic<TailMode> mode_{TailMode::Whole};
    std::atomic<double> seconds_{0}, tailStart_{0}, sampleRate_{44100};
    std::array<std::atomic<double>, kOctaves> t60_{};

    mutable std::mutex mutex_;  // of main and worker thread
    Source source_;
    std::uint32_t sourceSerial_ = 0;
    Target target_;
    Report report_;
    std::mutex listenerMutex_;
    std::function<void()> listener_;

    // Of the worker:
    std::uint32_t readSerial_ = 0;
    std::shared_ptr<const VNK::Sound<float>> sound_;  // in use
    Status outcome_ = Status::None;
    Report found_;  // being made

    std::unique_ptr<WorkerJob> job_;  // last: ends first
};

/// A sound of the same decay, with the first sound of each channel in its place, for a response
/// that is gone. [worker thread] May throw std::bad_alloc and Cancelled.
VNK::Sound<float> substituteResponse(const ResponseFingerprint& fit,
                                     const IsCancelled& isCancelled = {});

}  // namespace quillworks
