// SPDX-License-Identifier: ISC
// soak: random chains of all effects of the factory for as long as one likes. Chains are built,
// prepared for one layout, precision and block length after the other, played with automation, and
// released; memory must not grow. See tests/soak/run.
#include <CLI/CLI.hpp>

#include <chrono>
#include <cstdio>
#include <malloc.h>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

#include "module/module_main.h"
#include "tests/soak/programme.h"
#include "tests/soak/stage.h"

// Of the sanitizers, where the program is built with them.
extern "C" std::size_t __attribute__((weak)) __sanitizer_get_current_allocated_bytes();

namespace quillworks::test {
namespace {

std::atomic<int> gFindings{0};

struct Options {
    double seconds = 4;      // of audio
    double wallSeconds = 0;  // 0: until the audio is played
    std::vector<double> rates{8000,  11025, 22050,  44100,  48000,
                              88200, 96000, 176400, 192000, 384000};
    std::uint32_t seed = 1;
    bool threads = false;
    double growth = 2;  // allowed, megabytes
};

/// In megabytes: what is allocated. Not what is resident, since buffers take their memory only
/// where they are written, and under a sanitizer its shadow too.
double memoryInUse()
{
    if (__sanitizer_get_current_allocated_bytes)
        return double(__sanitizer_get_current_allocated_bytes()) / 1e6;
    const auto info = mallinfo2();
    return double(info.uordblks + info.hblkhd) / 1e6;
}

double median(std::vector<double> x)
{
    std::sort(x.begin(), x.end());
    return x[x.size() / 2];
}

class Soak {
public:
    explicit Soak(const Options& options) : options_(options), random_(options.seed)
    {
        for (double rate : options_.rates) played_[rate] = 0;
    }

    void run()
    {
        while (options_.wallSeconds > 0 ? wallSeconds() < options_.wallSeconds
                                        : audioSeconds() < options_.seconds) {
            playChain();
            memory_.push_back(memoryInUse());
        }
        // The first tenth warms the allocator up; medians, as chains differ in what they leave.
        double atStart = memory_.front(), atEnd = memory_.back();
        if (const auto tenth = static_cast<std::ptrdiff_t>(memory_.size() / 10); tenth >= 10) {
            atStart = median({memory_.begin() + tenth, memory_.begin() + 2 * tenth});
            atEnd = median({memory_.end() - tenth, memory_.end()});
            if (atEnd - atStart > options_.growth) found("memory has grown");
        }
        std::printf("%.0f s of audio in %.0f s, %zu chains, %.0f parameter changes, %.0f %% of the "
                    "output judged, %.1f MB in use after the warm-up, %.1f MB at the end, "
                    "%d findings\n",
                    audioSeconds(), wallSeconds(), memory_.size(), double(gParameterChanges),
                    100. * double(gFramesJudged) / double(gFrames), atStart, atEnd,
                    gFindings.load());
    }

private:
    double wallSeconds() const
    {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
    }
    double audioSeconds() const
    {
        double sum = 0;
        for (const auto& [rate, seconds] : played_) sum += seconds;
        return sum;
    }
    unsigned below(std::size_t n) { return static_cast<unsigned>(random_() % n); }
    VNK::IObject* create(int i) const
    {
        return factory_->createInstance(factory_->getClass(i)->classId);
    }

    /// The next class of a shuffled pack that holds the effects which do something four times.
    int draw()
    {
        for (int i = 0; pack_.empty() || i % factory_->countClasses() != 0; ++i) {
            std::int64_t flag = 0;
            const bool passes = VNK::HostedEffect::adopt(create(i)).getInteger("passThrough", flag);
            pack_.insert(pack_.end(), passes ? 1 : 4, i);
        }
        std::swap(pack_[below(pack_.size())], pack_.back());
        const int drawn = pack_.back();
        pack_.pop_back();
        return drawn;
    }

    void playChain()
    {
        chain_.clear();
        for (unsigned n = 2 + below(4); n > 0; --n) {
            const int i = draw();
            chain_.emplace_back(i, std::make_unique<Stage>(create(i), files_));
        }
        // The rate with the least frames so far: each gets the same share of the work.
        auto& [rate, seconds] =
            *std::min_element(played_.begin(), played_.end(), [](auto& a, auto& b) {
                return a.first * a.second < b.first * b.second;
            });
        for (unsigned n = 1 + below(3); n > 0; --n) {
            double length = (0.5 + 0.003 * below(1000)) / (options_.threads ? 4 : 1);
            if (options_.wallSeconds == 0) length = std::min(length, options_.seconds / 20);
            seconds +=
                below(2) == 0 ? playPart<float>(rate, length) : playPart<double>(rate, length);
        }
        chain_.clear();
    }

    VNK::SpeakerArrangement layout()
    {
        constexpr const char* names[] = {"mono",  "stereo", "quad", "5.1",
                                         "7.1.4", "9.1.6",  "16",   "32"};
        VNK::SpeakerArrangement arrangement;
        VNK::SpeakerArrangement::named(names[below(std::size(names))], arrangement);
        return arrangement;
    }

    /// One preparation: stages that cannot take the layout are left out. Returns the seconds
    /// played.
    template <typename T> double playPart(double rate, double seconds)
    {
        constexpr int lengths[] = {1, 61, 256, 441, 512, 1024, 2048, 4096, 4801, 8192};
        VNK::RunSetup setup;
        setup.sampleRate = rate;
        setup.maxFrames = lengths[below(std::size(lengths))];
        setup.precision = std::is_same_v<T, float> ? VNK::Precision::Float : VNK::Precision::Double;
        setup.input = layout();
        Programme programme(rate, below(1u << 31), setup.input.channels);
        running_.clear();
        for (auto& [index, stage] : chain_) {
            setup.output = below(3) == 0 ? layout() : setup.input;
            const auto& algorithm = stage->algorithm();
            if (!algorithm.acceptsArrangement(setup.input, setup.output))
                setup.output = setup.input;
            if (!algorithm.acceptsArrangement(setup.input, setup.output)) continue;
            stage->prepare(setup);
            running_.emplace_back(index, stage.get());
            setup.input = setup.output;
        }
        if (running_.empty()) return 0;
        if (setup.maxFrames < 64) seconds /= 10;  // or they would take most of the time
        std::mt19937 random(below(1u << 31));
        const auto frames = static_cast<long>(seconds * rate);
        if (options_.threads) {
            std::atomic<bool> isPlaying{true};
            std::thread audio([&] {
                play<T>(programme, frames, setup.maxFrames, random);
                isPlaying = false;
            });
            while (isPlaying) {
                running_[below(running_.size())].second->fiddle(random_);
                std::this_thread::yield();
            }
            audio.join();
        } else {
            play<T>(programme, frames, setup.maxFrames, random);
        }
        for (auto& [index, stage] : running_) {
            stage->checkLatency();
            Stage fresh(create(index), files_);
            stage->template compareWith<T>(fresh);
        }
        return seconds;
    }

    /// True once in `period` frames on average, seen from blocks of n.
    static bool isDue(int n, double period, std::mt19937& random)
    {
        return double(random()) < n / period * double(std::mt19937::max());
    }

    /// The audio thread.
    template <typename T>
    void play(Programme& programme, long frames, int maxFrames, std::mt19937& random)
    {
        // A block lies at the start or at the end of a buffer of exactly the prepared length, so
        // that a frame too many is beyond the allocation.
        Channels<T> first(VNK::kMaxChannels, Signal<T>(static_cast<std::size_t>(maxFrames)));
        Channels<T> second = first, side(first.begin(), first.begin() + 2);
        const double rate = running_.front().second->setup().sampleRate;
        Programme sideProgramme(rate, options_.seed, 2);
        for (long at = 0; at < frames;) {
            constexpr int lengths[] = {1,  2,  3,   7,   13,  31,  32,   33,   61,
                                       64, 97, 127, 441, 512, 997, 1024, 4096, 8192};
            const int n = std::min(lengths[random() % std::size(lengths)], maxFrames);
            at += n;
            const int offset = random() % 2 == 0 ? maxFrames - n : 0;
            auto in = pointers(first, offset), out = pointers(second, offset);
            const auto key = pointers(side, offset);
            programme.play(in.data(), n);
            sideProgramme.play(key.data(), n);
            for (auto& [index, stage] : running_) {
                if (random() % 64 == 0) stage->toggleSideChain();
                if (random() % 1024 == 0) stage->reset();
                playBlock(*stage, in, out, key, n, random);
                if (!options_.threads && isDue(n, rate / 100, random)) {
                    stage->fiddle(random);
                    stage->checkLatency();
                }
            }
        }
    }

    /// One block of one effect, cut where automation or transport want it. The output goes to
    /// buffers of its own, to those of the input, or to those of the input in another order; it is
    /// the next input.
    template <typename T>
    static void playBlock(Stage& stage, std::vector<T*>& in, std::vector<T*>& out,
                          const std::vector<T*>& key, int n, std::mt19937& random)
    {
        const int inputs = stage.setup().input.channels, outputs = stage.setup().output.channels;
        const int keys = stage.algorithm().hasSideChain() ? static_cast<int>(random() % 3) : 0;
        auto target = out;
        const auto order = inputs == outputs ? random() % 3 : 0;
        if (order > 0) target = in;
        if (order == 2) std::rotate(target.begin(), target.begin() + 1, target.begin() + outputs);
        if (order == 0)  // so that frames left unwritten are found
            for (auto* channel : out) std::fill_n(channel, n, std::numeric_limits<T>::quiet_NaN());
        for (int done = 0, piece = 0; done < n; done += piece) {
            const int left = n - done;
            piece = random() % 2 == 0 ? 1 + static_cast<int>(random() % unsigned(left)) : left;
            T *from[VNK::kMaxChannels], *to[VNK::kMaxChannels], *steer[2];
            const auto moved = [done](T* x) { return x + done; };
            std::transform(in.begin(), in.begin() + inputs, from, moved);
            std::transform(target.begin(), target.begin() + outputs, to, moved);
            std::transform(key.begin(), key.begin() + keys, steer, moved);
            stage.process<T>(from, to, steer, keys, piece, randomTransport(random));
            if (isDue(piece, stage.setup().sampleRate / 1000, random)) stage.automate(random);
        }
        if (order == 0) out = in;
        in = target;
    }

    Options options_;
    std::mt19937 random_;
    ForeignFiles files_;
    VNK::Ref<VNK::IClassFactory> factory_ =
        VNK::Ref<VNK::IClassFactory>::adopt(VNKGetClassFactory());
    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    std::map<double, double> played_;                            // seconds by rate
    std::vector<int> pack_;                                      // classes still to be drawn
    std::vector<std::pair<int, std::unique_ptr<Stage>>> chain_;  // with their classes
    std::vector<std::pair<int, Stage*>> running_;                // those that take the layout
    std::vector<double> memory_;                                 // megabytes after each chain
};

}  // namespace

void found(const std::string& what)
{
    static std::mutex mutex;
    const std::lock_guard lock(mutex);
    if (++gFindings <= 20) std::printf("found: %s\n", what.c_str());
    std::fflush(stdout);
}

}  // namespace quillworks::test

int main(int argc, char** argv)
{
    using namespace quillworks::test;
    Options options;
    CLI::App app("Random chains of all effects, automated and watched");
    app.add_option("--seconds", options.seconds, "audio to play, over all rates together");
    app.add_option("--wall", options.wallSeconds, "seconds to run instead, by the clock");
    app.add_option("--rates", options.rates, "sample rates in Hz")->delimiter(',');
    app.add_option("--seed", options.seed, "another number gives another run");
    app.add_option("--growth", options.growth, "allowed growth of memory in MB");
    app.add_flag("--threads", options.threads, "parameters, states and meters on a second thread");
    CLI11_PARSE(app, argc, argv);
    Soak(options).run();
    return gFindings > 0 ? 1 : 0;
}
