// SPDX-License-Identifier: ISC
// Which channels of a response serve which paths, and how loud they are together.
#include <algorithm>
#include <bit>
#include <cmath>
#include <map>
#include <new>
#include <numeric>

#include "dsp/fft.h"
#include "framework/speakers.h"
#include "reverb/response.h"

namespace quillworks {
namespace {

constexpr double kLoudnessFrom = 100, kLoudnessTo = 8000;  // Hz
constexpr double kLoudness = 0.5;

double energy(const std::vector<double>& x)
{
    return std::inner_product(x.begin(), x.end(), x.begin(), 0.0);
}

/// Makes a matrix out of what each path asks for; every response is made once.
class Router {
public:
    explicit Router(ResponseChannels channels) : channels_(std::move(channels)) {}

    int channels() const { return static_cast<int>(channels_.size()); }
    /// One channel of the file.
    void path(int input, int output, int channel)
    {
        channel %= channels();
        add(input, output, {channel, channel, false}, [&] { return at(channel); });
    }
    /// The mean of two, as it is or with the mean of their energies.
    void meanPath(int input, int output, int a, int b, bool atEqualEnergy)
    {
        a %= channels(), b %= channels();
        add(input, output, {a, b, atEqualEnergy}, [&] {
            auto mean = meanOf({a, b});
            const double own = energy(mean), wanted = (energy(at(a)) + energy(at(b))) / 2;
            if (atEqualEnergy && own > 0)
                for (auto& v : mean) v *= std::sqrt(wanted / own);
            return mean;
        });
    }
    void meanPath(int input, int output)
    {
        std::vector<int> all(channels_.size());
        std::iota(all.begin(), all.end(), 0);
        add(input, output, {-1, -1, false}, [&] { return meanOf(all); });
    }
    ResponseMatrix take()
    {
        std::sort(matrix_.paths.begin(), matrix_.paths.end(),
                  [](const ResponsePath& a, const ResponsePath& b) {
                      return std::pair(a.output, a.input) < std::pair(b.output, b.input);
                  });
        return std::move(matrix_);
    }

private:
    struct Source {
        int a, b;
        bool atEqualEnergy;
        auto operator<=>(const Source&) const = default;
    };

    const std::vector<double>& at(int channel) const
    {
        return channels_[static_cast<std::size_t>(channel)];
    }
    std::vector<double> meanOf(const std::vector<int>& some) const
    {
        std::vector<double> mean(channels_.front().size());
        for (const int c : some)
            for (std::size_t i = 0; i < mean.size(); ++i)
                mean[i] += at(c)[i] / static_cast<double>(some.size());
        return mean;
    }
    template <class Make> void add(int input, int output, Source source, Make&& make)
    {
        const auto [place, isNew] = made_.try_emplace(source, std::ssize(matrix_.responses));
        if (isNew) matrix_.responses.push_back(make());
        matrix_.paths.push_back({input, output, static_cast<int>(place->second)});
    }

    ResponseChannels channels_;
    ResponseMatrix matrix_;
    std::map<Source, std::ptrdiff_t> made_;
};

/// Left and right sides of a layout, and what is neither.
struct Sides {
    std::vector<std::pair<int, int>> pairs;
    std::vector<int> middle;
};

Sides sidesOf(const VNK::SpeakerArrangement& layout, const std::vector<int>& heard)
{
    Sides sides{{}, heard};
    const auto pairs = ChannelPairs::of(layout);
    for (int i = 0; i < pairs.count; ++i) {
        const auto pair = pairs.pairs[static_cast<std::size_t>(i)];
        sides.pairs.push_back(pair);
        std::erase(sides.middle, pair.first);
        std::erase(sides.middle, pair.second);
    }
    return sides;
}

void routeStereo(Router& router, const Sides& sides)
{
    for (const auto& [left, right] : sides.pairs) {
        router.path(left, left, 0);
        router.path(right, right, 1);
    }
    for (const int c : sides.middle) router.meanPath(c, c, 0, 1, true);
}

void routeTrueStereo(Router& router, const Sides& sides)
{
    for (const auto& [left, right] : sides.pairs) {
        router.path(left, left, 0);
        router.path(left, right, 1);
        router.path(right, left, 2);
        router.path(right, right, 3);
    }
    for (const int c : sides.middle) router.meanPath(c, c, 0, 3, false);
}

/// Files of as many channels as the layout has may leave the LFE out or hold it.
void routeByCount(Router& router, const std::vector<int>& heard, int channels, const Sides& sides)
{
    const int inFile = router.channels(), present = static_cast<int>(heard.size());
    for (const int count : {channels, present}) {
        const auto place = [&](int i) {
            return count == channels ? heard[static_cast<std::size_t>(i)] : i;
        };
        if (inFile == 1 || inFile == count) {
            for (int i = 0; i < present; ++i)
                router.path(heard[static_cast<std::size_t>(i)], heard[static_cast<std::size_t>(i)],
                            place(i));
            return;
        }
        if (inFile == count * count) {
            for (int from = 0; from < present; ++from)
                for (int to = 0; to < present; ++to)
                    router.path(heard[static_cast<std::size_t>(from)],
                                heard[static_cast<std::size_t>(to)],
                                place(from) * count + place(to));
            return;
        }
    }
    if (inFile == 2 && channels > 2) return routeStereo(router, sides);
    for (const int c : heard) router.path(c, c, c);
}

/// Power of pink noise of power 1 between the two frequencies behind a response.
class PinkPower {
public:
    PinkPower(std::size_t longest, double sampleRate) : sampleRate_(sampleRate)
    {
        // From here on plans are made without measuring, that is, at once.
        constexpr int kLeastOrder = 17;
        const int order = std::max(kLeastOrder, static_cast<int>(std::bit_width(longest)));
        // A song sounds the same whenever it is opened.
        fft_.setSize(1u << std::min(order, Fft<float>::kMaxOrder), FftPlanning::Repeatable);
        if (!fft_.isReady()) throw std::bad_alloc();
        buffer_.resize(fft_.length());
    }

    double of(const std::vector<double>& x)
    {
        std::fill(buffer_.begin(), buffer_.end(), 0.0f);
        std::copy_n(x.begin(), std::min(x.size(), buffer_.size()), buffer_.begin());
        fft_.forward(buffer_.data(), buffer_.data());
        const double bin = sampleRate_ / static_cast<double>(buffer_.size());
        double sum = 0, weights = 0;
        for (std::uint32_t k = 1; k < buffer_.size() / 2; ++k) {
            const double f = bin * k;
            if (f < kLoudnessFrom || f > kLoudnessTo) continue;
            sum += double(fft_.binPower(buffer_.data(), k)) / f;
            weights += 1 / f;
        }
        return sum / weights;
    }

private:
    double sampleRate_;
    Fft<float> fft_;
    std::vector<float> buffer_;
};

}  // namespace

ResponseMatrix routedResponse(ResponseChannels response, ResponseRouting routing,
                              const VNK::SpeakerArrangement& layout)
{
    Router router(std::move(response));
    std::vector<int> heard;
    for (int c = 0; c < layout.channels; ++c)
        if (layout.speakers[c] != VNK::Speaker::LFE) heard.push_back(c);
    const auto sides = sidesOf(layout, heard);
    const bool isMono = layout.channels == 1;
    if (routing == ResponseRouting::Mono)
        for (const int c : heard) router.meanPath(c, c);
    else if (isMono)
        router.path(0, 0, 0);
    else if (routing == ResponseRouting::Stereo)
        routeStereo(router, sides);
    else if (routing == ResponseRouting::TrueStereo)
        routeTrueStereo(router, sides);
    else
        routeByCount(router, heard, layout.channels, sides);
    return router.take();
}

double autoLevelGain(const ResponseMatrix& matrix, double sampleRate,
                     const IsCancelled& isCancelled)
{
    std::size_t longest = 1;
    for (const auto& response : matrix.responses) longest = std::max(longest, response.size());
    PinkPower power(longest, sampleRate);
    std::vector<double> powers;
    for (const auto& response : matrix.responses) {
        if (isCancelled && isCancelled()) throw Cancelled();
        powers.push_back(power.of(response));
    }
    std::map<int, double> outputs;
    for (const auto& path : matrix.paths)
        outputs[path.output] += powers[static_cast<std::size_t>(path.response)];
    double sum = 0;
    for (const auto& [output, p] : outputs) sum += p;
    return sum > 0 ? kLoudness / std::sqrt(sum / static_cast<double>(outputs.size())) : 1;
}

}  // namespace quillworks
