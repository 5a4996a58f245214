// SPDX-License-Identifier: ISC
// Makes the sound files that hosts are fed with, and compares what they return.
#include <sndfile.hh>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace {

int usage()
{
    std::fprintf(
        stderr,
        "usage: sound_tool make FILE CHANNELS SECONDS [SILENCE]\n"
        "         hits of decaying noise at 48 kHz; channels beyond two are silent, and so\n"
        "         is everything for SILENCE seconds before\n"
        "       sound_tool compare A B DECIBELS [SKIP]\n"
        "         exit 1 where B departs from A by more than that of full scale, or both\n"
        "         are silent, or lengths differ; SKIP frames of A are left out\n"
        "       sound_tool pick FILE OUT FIRST COUNT\n"
        "         COUNT channels from number FIRST on, counted from 0\n"
        "       sound_tool peak A B\n"
        "         by how many decibels A peaks above B\n");
    return 2;
}

int make(const char* file, int channels, double seconds, double silence)
{
    SndfileHandle out(file, SFM_WRITE, SF_FORMAT_WAV | SF_FORMAT_FLOAT, channels, 48000);
    if (out.error()) return std::fprintf(stderr, "%s: %s\n", file, out.strError()), 1;
    std::mt19937 random(7);
    std::uniform_real_distribution<float> uniform(-0.7f, 0.7f);
    const auto frames = static_cast<sf_count_t>(seconds * 48000);
    std::vector<float> frame(static_cast<std::size_t>(channels));
    for (auto i = static_cast<sf_count_t>(silence * 48000); i > 0; --i) out.writef(frame.data(), 1);
    for (sf_count_t i = 0; i < frames; ++i) {
        const float level = std::exp(-static_cast<float>(i % 12000) / 3000);
        for (std::size_t c = 0; c < frame.size(); ++c)
            frame[c] = c < 2 ? level * uniform(random) : 0;
        out.writef(frame.data(), 1);
    }
    return 0;
}

int pick(const char* file, const char* out, int first, int count)
{
    SndfileHandle from(file);
    if (!from || from.error() || first < 0 || count < 1 || first + count > from.channels())
        return std::fprintf(stderr, "%s: cannot be read so\n", file), 1;
    SndfileHandle to(out, SFM_WRITE, SF_FORMAT_WAV | SF_FORMAT_FLOAT, count, from.samplerate());
    std::vector<float> frame(static_cast<std::size_t>(from.channels()));
    while (from.readf(frame.data(), 1) == 1) to.writef(frame.data() + first, 1);
    return to.error() ? 1 : 0;
}

int compare(const char* first, const char* second, double decibels, long skip)
{
    SndfileHandle a(first), b(second);
    if (!a || a.error()) return std::fprintf(stderr, "%s: cannot be read\n", first), 1;
    if (!b || b.error()) return std::fprintf(stderr, "%s: cannot be read\n", second), 1;
    if (a.channels() != b.channels())
        return std::printf("%d and %d channels\n", a.channels(), b.channels()), 1;
    const auto channels = static_cast<std::size_t>(a.channels());
    const auto read = [&](SndfileHandle& file) {
        std::vector<float> x(static_cast<std::size_t>(file.frames()) * channels);
        file.readf(x.data(), file.frames());
        return x;
    };
    auto x = read(a);
    const auto y = read(b);
    x.erase(x.begin(), x.begin() + static_cast<std::ptrdiff_t>(std::min(
                                       x.size(), static_cast<std::size_t>(skip) * channels)));
    const std::size_t n = std::min(x.size(), y.size());
    double peak = 0, difference = 0;
    std::size_t where = 0;
    for (std::size_t i = 0; i < n; ++i) {
        peak = std::max(peak, std::abs(double(x[i])));
        const double d = std::abs(double(x[i]) - double(y[i]));
        if (!(d <= difference)) difference = d, where = i / channels;
    }
    const auto db = [](double v) { return 20 * std::log10(std::max(v, 1e-20)); };
    std::printf("%zu frames, peak %.1f dB, difference %.1f dB (frame %zu)\n", n / channels,
                db(peak), db(difference), where);
    // Renderers may end a block early or late, but not much.
    const bool sameLength = n > 0 && std::max(x.size(), y.size()) - n <= 8192 * channels;
    return sameLength && peak > 1e-4 && db(difference) <= decibels ? 0 : 1;
}

int peak(const char* first, const char* second)
{
    const auto of = [](const char* name) {
        SndfileHandle file(name);
        std::vector<float> x(static_cast<std::size_t>(file.frames() * file.channels()));
        file.readf(x.data(), file.frames());
        double most = 1e-10;
        for (const float v : x) most = std::max(most, std::abs(double(v)));
        return 20 * std::log10(most);
    };
    std::printf("%.2f\n", of(first) - of(second));
    return 0;
}

}  // namespace

int main(int argc, char** argv)
{
    const std::string command = argc > 1 ? argv[1] : "";
    if (command == "make" && (argc == 5 || argc == 6))
        return make(argv[2], std::max(1, std::atoi(argv[3])), std::atof(argv[4]),
                    argc == 6 ? std::atof(argv[5]) : 0);
    if (command == "pick" && argc == 6)
        return pick(argv[2], argv[3], std::atoi(argv[4]), std::atoi(argv[5]));
    if (command == "compare" && (argc == 5 || argc == 6))
        return compare(argv[2], argv[3], std::atof(argv[4]), argc == 6 ? std::atol(argv[5]) : 0);
    if (command == "peak" && argc == 4) return peak(argv[2], argv[3]);
    return usage();
}
