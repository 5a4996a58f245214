// SPDX-License-Identifier: ISC
// Vaulter: what it plays is the file, wherever that is; what the tank goes on with decays as it.
#include <cmath>
#include <filesystem>
#include <fstream>
#include <unistd.h>

#include "dsp/random.h"
#include "reverb/decay_analysis.h"
#include "reverb/response.h"
#include "tests/support/effect_under_test.h"
#include "tests/support/sanitised.h"
#include "vnk/file.h"
#include "vnk/sound_file.h"

namespace quillworks::test {
namespace {

namespace fs = std::filesystem;

template <typename T> class Vaulter : public ::testing::Test {
protected:
    using Effect = EffectUnderTest<T>;

    Vaulter() { fs::create_directories(folder_); }
    ~Vaulter() override { fs::remove_all(folder_); }

    std::string at(const std::string& name) const { return (folder_ / name).string(); }
    std::string write(const std::string& name, const Channels<float>& channels,
                      double rate = 48000) const
    {
        VNK::Sound<float> sound{rate, channels, 0};
        std::string content, reason;
        EXPECT_TRUE(VNK::encodeSound(sound, VNK::SoundKind::WavFloat, content, reason)) << reason;
        EXPECT_TRUE(VNK::writeFile(at(name).c_str(), content.data(), content.size(), reason));
        return at(name);
    }
    /// Wet alone, at the level of the file.
    static void plain(Effect& fx) { fx.set("mix", 100).set("autolevel", 0); }
    static bool open(Effect& fx, const std::string& file)
    {
        return fx.component().setText(fx.component().findText("irfile"), file.c_str());
    }
    static std::string problem(Effect& fx)
    {
        waitUntilReady(fx.component());
        return fx.component().textProblem(fx.component().findText("irfile"));
    }
    /// A room of noise, darker than white, that decays by 60 dB in `t60` seconds, behind a first
    /// sound after 12 ms.
    static Channels<float> room(double t60, std::size_t channels, double seconds)
    {
        Channels<float> x;
        for (std::size_t c = 0; c < channels; ++c) {
            auto& h = x.emplace_back(noise<float>(std::size_t(seconds * 48000), 70 + unsigned(c)));
            for (std::size_t i = 1; i < h.size(); ++i) h[i] = 0.3f * h[i] + 0.7f * h[i - 1];
            for (std::size_t i = 0; i < h.size(); ++i)
                h[i] *= i < 576 ? 0.0f : float(0.2 * std::pow(10, -3 * double(i) / 48000 / t60));
            h[576] = 0.6f;
        }
        return x;
    }
    /// What the effect makes of an impulse on the left, the right, or both.
    static Channels<T> response(Effect& fx, std::size_t frames, std::size_t on = 2)
    {
        Channels<T> x(2, Signal<T>(frames));
        for (std::size_t c = 0; c < 2; ++c) x[c][0] = on == c || on == 2 ? T(1) : T(0);
        return fx.play(x);
    }
    static std::string chunk(Effect& fx)
    {
        waitUntilReady(fx.component());
        VNK::StringSink state;
        EXPECT_TRUE(fx.component().saveState(state));
        return std::string(state.text());
    }
    static void restore(Effect& fx, const std::string& chunk)
    {
        EXPECT_TRUE(fx.component().loadState(chunk.data(), chunk.size()));
    }
    static double decibels(double power) { return 10 * std::log10(power + 1e-30); }
    static double power(const Signal<T>& x, double from, double to)
    {
        double sum = 0;
        const auto last = std::min(x.size(), std::size_t(to * 48000));
        for (auto i = std::size_t(from * 48000); i < last; ++i) sum += double(x[i]) * double(x[i]);
        return sum / double(last - std::size_t(from * 48000));
    }
    static double decayTime(const Signal<T>& x, int octave, double from)
    {
        const auto decay = BandDecay::ofOctave(as<double>(x), octaveCentre(octave), 48000);
        const auto line = decay.fit(from, 0, 25);
        return line ? line->t60 : 0;
    }

private:
    fs::path folder_ = fs::path(::testing::TempDir()) / ("vaulter-" + std::to_string(::getpid()));
};
TYPED_TEST_SUITE(Vaulter, Precisions);

TYPED_TEST(Vaulter, AnswersAnImpulseWithTheFileOnEveryPathOfEachRouting)
{
    struct Case {
        int routing;
        std::size_t inFile;
        int path[2][2];  // file channel from input to output, or -1
    };
    const Case cases[] = {
        {0, 1, {{0, -1}, {-1, 0}}}, {0, 2, {{0, -1}, {-1, 1}}}, {0, 4, {{0, 1}, {2, 3}}},
        {0, 3, {{0, -1}, {-1, 1}}}, {2, 4, {{0, -1}, {-1, 1}}}, {3, 4, {{0, 1}, {2, 3}}},
        {3, 2, {{0, 1}, {0, 1}}},   {3, 1, {{0, 0}, {0, 0}}},
    };
    for (const auto& test : cases) {
        Channels<float> file;
        for (std::size_t c = 0; c < test.inFile; ++c)
            file.push_back(noise<float>(9000, 10 + unsigned(c)));
        typename TestFixture::Effect fx("Vaulter");
        this->plain(fx);
        this->open(fx, this->write("paths.wav", file));
        fx.set("routing", test.routing);
        for (std::size_t in = 0; in < 2; ++in) {
            const auto y = this->response(fx, 12000, in);
            for (std::size_t out = 0; out < 2; ++out) {
                double error = 0;
                const int from = test.path[in][out];
                for (std::size_t i = 0; i < y[out].size(); ++i) {
                    const double expected =
                        from < 0 || i >= 9000 ? 0 : double(file[std::size_t(from)][i]);
                    error += std::pow(double(y[out][i]) - expected, 2);
                }
                EXPECT_LT(this->decibels(error / 750), -110)  // re the file's energy
                    << "routing " << test.routing << ", " << test.inFile << " channels, " << in
                    << " to " << out;
            }
            fx.algorithm().reset();
        }
    }
}

TYPED_TEST(Vaulter, ReversedIsTheMirrorImageOfWhatTheSameSettingsGiveForwards)
{
    const auto file = this->write("room.wav", this->room(0.5, 2, 0.8));
    Channels<TypeParam> both[2];
    for (const int reverse : {0, 1}) {
        typename TestFixture::Effect fx("Vaulter");
        this->plain(fx);
        this->open(fx, file);
        fx.set("reverse", reverse).set("start", 20).set("stretch", 140).set("length", 60);
        fx.set("decay", 0.7).set("tailmode", 1 - reverse ? 0 : 1);
        both[reverse] = this->response(fx, 48000);
    }
    const auto& forwards = both[0][0];
    std::size_t length = 48000;
    const double least = peak(forwards) * 1e-6;
    while (length > 0 && std::abs(forwards[length - 1]) < least) --length;
    const auto& reversed = both[1][0];
    std::size_t last = 48000;
    while (last > 0 && std::abs(reversed[last - 1]) < least) --last;
    double error = 0, all = 0;
    for (std::size_t i = 0; i < last; ++i) {
        const double mirror = double(forwards[last - 1 - i]);
        error += std::pow(double(reversed[i]) - mirror, 2);
        all += mirror * mirror;
    }
    EXPECT_NEAR(double(last), 0.6 * 1.4 * (0.8 - 0.02) * 48000, 3);
    EXPECT_LT(this->decibels(error / all), -90);
}

TYPED_TEST(Vaulter, PlaysTheSameBitsAtEveryBlockLengthAndWhileTheLoaderIsAutomated)
{
    const auto file = this->write("room.wav", this->room(1, 2, 1));
    const Channels<TypeParam> x{noise<TypeParam>(36000, 1), noise<TypeParam>(36000, 2)};
    Channels<TypeParam> whole;
    for (const int block : {512, 17, 100}) {
        if (kIsSanitised && block == 100) break;
        typename TestFixture::Effect fx("Vaulter");
        this->plain(fx);
        this->open(fx, file);
        fx.set("tailmode", 1).prepare(2);
        Channels<TypeParam> y(2, Signal<TypeParam>(36000));
        for (int done = 0; done < 36000;) {
            // Knobs that move at certain frames, in a host that waits between its calls.
            if (done == 7200) fx.set("stretch", 120);
            if (done == 8400) fx.set("stretch", 130).set("freeze", 1);
            if (done == 16800) fx.set("freeze", 0);
            if (done == 24000) fx.set("length", 50).set("decay", 2);
            if (done == 28800) fx.set("tailmode", 2);
            waitUntilReady(fx.component());
            const int next = done / 1200 * 1200 + 1200;
            const int n = std::min(block, next - done);
            fx.processBlock(x, y, done, n);
            done += n;
        }
        if (whole.empty()) whole = y;
        for (std::size_t c = 0; c < 2; ++c)
            for (std::size_t i = 0; i < y[c].size(); ++i)
                ASSERT_EQ(y[c][i], whole[c][i]) << "block " << block << " frame " << i;
    }
}

TYPED_TEST(Vaulter, ChangesItsResponseWithoutAGapOrAClick)
{
    const auto file = this->write("one.wav", this->room(0.4, 1, 0.5));
    const auto same = this->write("two.wav", this->room(0.4, 1, 0.5));
    typename TestFixture::Effect fx("Vaulter");
    this->plain(fx);
    this->open(fx, file);
    const auto tone = sine<TypeParam>(48000, 1000, 48000, 0.1);
    fx.run(tone);
    this->open(fx, same);
    const auto y = fx.run(tone);
    // Off the tone: what is left of a steady sine one period later.
    double off = 0, most = 0, least = 1e9;
    for (std::size_t i = 48; i < y.size(); ++i) off += std::pow(double(y[i] - y[i - 48]), 2);
    for (std::size_t i = 0; i + 480 <= y.size(); i += 480) {
        const double p = this->power(y, double(i) / 48000, double(i + 480) / 48000);
        most = std::max(most, p);
        least = std::min(least, p);
    }
    EXPECT_LT(this->decibels(off / double(y.size()) / most), -60);
    EXPECT_LT(this->decibels(most / least), 1);
    this->open(fx, this->write("three.wav", {{0.5f}}));
    fx.play({tone});
    EXPECT_NEAR(std::sqrt(this->power(fx.run(tone), 0.5, 1)), 0.5 * 0.1 / std::sqrt(2.0), 1e-5);
}

TYPED_TEST(Vaulter, GoesOnWithATankThatDecaysAsTheRecordingDidOrOtherwise)
{
    for (const double t60 : {0.6, 2.4}) {
        const auto file = this->write("hall.wav", this->room(t60, 2, 1.3 * t60));
        const auto frames = std::size_t(1.2 * t60 * 48000);
        typename TestFixture::Effect whole("Vaulter"), continued("Vaulter");
        for (auto* const fx : {&whole, &continued}) {
            this->plain(*fx);
            this->open(*fx, file);
            fx->set("motion", 0);
        }
        continued.set("tailmode", 1).set("tailstart", 150);
        const auto a = this->response(whole, frames), b = this->response(continued, frames);
        for (double from = 0.05; from < 0.15 + t60 / 2; from += 0.05) {
            const auto both = [&](const auto& y) {
                return this->power(y[0], from, from + 0.05) + this->power(y[1], from, from + 0.05);
            };
            const double error = this->decibels(both(b) / both(a));
            EXPECT_NEAR(error, 0, 2.5) << "T60 " << t60 << " at " << from;
        }
        for (int octave = 4; octave <= 8; ++octave)
            EXPECT_NEAR(this->decayTime(b[0], octave, 0.2), t60, 0.12 * t60) << octave;
        continued.algorithm().reset();
        continued.set("decay", 2);
        const auto longer = this->response(continued, 2 * frames);
        EXPECT_NEAR(this->decayTime(longer[0], 5, 0.25), 2 * t60, 0.3 * t60);
        continued.algorithm().reset();
        continued.set("tailmode", 2).set("replacetime", 1);
        EXPECT_NEAR(this->decayTime(this->response(continued, 72000)[0], 5, 0.25), 1, 0.12);
    }
}

TYPED_TEST(Vaulter, GoesOnAtTheSameLevelInEverySpeaker)
{
    const auto file = this->write("hall.wav", this->room(1.5, 1, 2));
    Channels<TypeParam> x(6, Signal<TypeParam>(48000)), y[2];
    for (unsigned c = 0; c < 6; ++c) {
        const auto burst = noise<TypeParam>(4800, 30 + c);
        std::copy(burst.begin(), burst.end(), x[c].begin());
    }
    VNK::SpeakerArrangement surround;
    ASSERT_TRUE(VNK::SpeakerArrangement::named("5.1", surround));
    for (const int mode : {0, 1}) {
        typename TestFixture::Effect fx("Vaulter");
        this->plain(fx);
        this->open(fx, file);
        fx.set("motion", 0).set("tailmode", mode);
        fx.layout(surround).prepare(6);
        y[mode] = fx.play(x);
    }
    for (std::size_t c = 0; c < 6; ++c) {
        if (c == 3) continue;  // LFE
        EXPECT_NEAR(this->decibels(this->power(y[1][c], 0.3, 0.7) / this->power(y[0][c], 0.3, 0.7)),
                    0, 2.5)
            << c;
    }
    EXPECT_EQ(y[1][3], Signal<TypeParam>(48000));
}

TYPED_TEST(Vaulter, HoldsWhatRingsWhileItIsFrozen)
{
    typename TestFixture::Effect fx("Vaulter");
    this->plain(fx);
    this->open(fx, this->write("hall.wav", this->room(1.5, 2, 2)));
    fx.set("tailmode", 1);
    const Channels<TypeParam> x{noise<TypeParam>(48000, 1), noise<TypeParam>(48000, 2)};
    const Channels<TypeParam> silence(2, Signal<TypeParam>(96000));
    fx.play(x);
    fx.set("freeze", 1).play(silence);
    const double before = this->power(fx.play(silence)[0], 0, 2);
    EXPECT_GT(before, 1e-4);
    for (int i = 0; i < 4; ++i) fx.play(x);
    fx.play(silence);
    EXPECT_NEAR(this->decibels(this->power(fx.play(silence)[0], 0, 2) / before), 0, 1);
}

TYPED_TEST(Vaulter, FindsAFileThatHasMovedAndSoundsLikeOneThatIsGone)
{
    const auto file = this->write("gone.wav", this->room(1.2, 2, 1.5));
    Channels<TypeParam> expected;
    std::string song, carried;
    {
        typename TestFixture::Effect first("Vaulter");
        this->plain(first);
        this->open(first, file);
        expected = this->response(first, 48000);
        song = this->chunk(first);
        first.set("embed", 1);
        carried = this->chunk(first);
    }

    fs::create_directories(this->at("elsewhere"));
    fs::rename(file, this->at("elsewhere/gone.wav"));
    {
        typename TestFixture::Effect moved("Vaulter");
        moved.component().setBaseFolder(this->at("").c_str());
        this->restore(moved, song);
        EXPECT_EQ(this->problem(moved), "");
        EXPECT_EQ(this->response(moved, 48000), expected);
    }

    fs::remove(this->at("elsewhere/gone.wav"));
    typename TestFixture::Effect embedded("Vaulter");
    this->restore(embedded, carried);
    const auto same = this->response(embedded, 48000);
    double error = 0;
    for (std::size_t i = 0; i < 48000; ++i)
        error = std::max(error, std::abs(double(same[0][i] - expected[0][i])));
    EXPECT_LT(error, 1e-6);  // 24 bits

    typename TestFixture::Effect substitute("Vaulter");
    this->restore(substitute, song);
    EXPECT_NE(this->problem(substitute), "");
    const auto y = this->response(substitute, 48000);
    EXPECT_EQ(substitute.meter("loadstatus"), 3);
    EXPECT_NEAR(double(firstSound(as<double>(y[0]))), 576, 0.005 * 48000);
    for (double from = 0.15; from < 0.6; from += 0.1)
        EXPECT_NEAR(this->decibels(this->power(y[0], from, from + 0.1) /
                                   this->power(expected[0], from, from + 0.1)),
                    0, 3)
            << from;
    for (int octave = 4; octave <= 8; ++octave)
        EXPECT_NEAR(this->decayTime(y[0], octave, 0.15), 1.2, 0.15 * 1.2) << octave;
}

using VaulterFiles = Vaulter<float>;

TEST_F(VaulterFiles, OfEveryRateLengthAndWidthPlayAsTheyAreResampled)
{
    const struct {
        double rate, seconds, session;
        std::size_t channels;
    } cases[] = {{44100, 0.5, 48000, 2},  {8000, 11, 48000, 1},    {384000, 0.2, 48000, 2},
                 {48000, 0.2, 48000, 16}, {48000, 0.1, 384000, 2}, {48000, 0.5, 8000, 1}};
    for (const auto& test : cases) {
        SCOPED_TRACE(std::to_string(test.rate) + " Hz in " + std::to_string(test.session));
        VNK::Sound<float> file{test.rate, {}, 0};
        for (std::size_t c = 0; c < test.channels; ++c) {
            auto& x = file.channels.emplace_back(
                noise<float>(std::size_t(test.rate * test.seconds), unsigned(c)));
            for (std::size_t i = 0; i < x.size(); ++i)
                x[i] *= float(std::exp2(-12 * double(i) / double(x.size())));
        }
        file.framesInFile = file.frames();
        Effect fx("Vaulter", test.session);
        plain(fx);
        open(fx, write("file.wav", file.channels, test.rate));
        fx.prepare(2);
        EXPECT_EQ(problem(fx), "");
        const auto expected = shapedResponse(file, {}, test.session);
        const auto y = response(fx, expected[0].size() + 100, 0);
        double error = 0, energy = 0;
        for (std::size_t i = 0; i < y[0].size(); ++i) {
            const double e = i < expected[0].size() ? expected[0][i] : 0;
            error += std::pow(double(y[0][i]) - e, 2);
            energy += e * e;
        }
        EXPECT_LT(decibels(error / energy), -110);
        EXPECT_EQ(peak(y[1]), 0);
    }
}

TEST_F(VaulterFiles, ThatCannotBePlayedLeaveTheResponseInUseAndSayWhy)
{
    const auto put = [&](const char* name, const std::string& content) {
        std::string reason;
        EXPECT_TRUE(VNK::writeFile(at(name).c_str(), content.data(), content.size(), reason));
        return at(name);
    };
    const Signal<float> one{1, 0.5f};
    std::ifstream good(write("good.wav", {{0.5f, 0.25f}}), std::ios::binary);
    const std::string content{std::istreambuf_iterator<char>(good), {}};
    const struct {
        std::string file;
        const char* why;
        double status;
    } cases[] = {
        {put("empty.wav", ""), "cannot be decoded", 4},
        {put("text.wav", "RIFF...."), "cannot be decoded", 4},
        {put("broken.wav", content.substr(0, content.size() - 12)), "", 4},
        {put("begun.flac", "fLaC"), "cannot be decoded", 4},
        {write("number.wav", {{1, std::nanf("")}}), "no numbers", 4},
        {write("silent.wav", {Signal<float>(100)}), "silence only", 4},
        {write("wide.wav", Channels<float>(17, one)), "17 channels", 4},
        {write("slow.wav", {one}, 500), "500 Hz", 4},
        {at(""), "no such file", 3},
        {at("none.wav"), "no such file", 3},
    };
    Effect fx("Vaulter");
    plain(fx);
    open(fx, at("good.wav"));
    const auto before = response(fx, 4800);
    EXPECT_GT(peak(before[0]), 0.4);
    for (const auto& test : cases) {
        SCOPED_TRACE(test.file);
        open(fx, test.file);
        const auto told = problem(fx);
        EXPECT_EQ(told.find(test.file), 0u) << told;
        EXPECT_NE(told.find(test.why), std::string::npos) << told;
        fx.algorithm().reset();
        EXPECT_EQ(response(fx, 4800), before);
        EXPECT_EQ(fx.meter("loadstatus"), test.status);
    }
}

TEST_F(VaulterFiles, OfAnHourArePlayedForTheirFirstMinute)
{
    constexpr double kRate = 8000;
    const auto file = write("hour.wav", {{0.5f, 0.25f}}, kRate);
    // As the header of an hour has it; what follows it are zeros that take no room on the disk.
    const auto sound = std::uint32_t(3600 * kRate * 4), whole = sound + 36;
    const auto had = fs::file_size(file) - 8;
    fs::resize_file(file, had + sound);
    std::fstream header(file, std::ios::binary | std::ios::in | std::ios::out);
    std::string begin(had, 0);
    header.read(begin.data(), std::streamsize(had));
    const auto data = begin.find("data") + 4;
    header.seekp(4).write(reinterpret_cast<const char*>(&whole), 4);
    header.seekp(std::streamoff(data)).write(reinterpret_cast<const char*>(&sound), 4);
    header.close();
    Effect fx("Vaulter", kRate);
    plain(fx);
    open(fx, file);
    fx.prepare(2);
    EXPECT_NE(problem(fx).find("first minute"), std::string::npos) << problem(fx);
    EXPECT_NEAR(response(fx, 100)[0][0], 0.5, 1e-6);
    EXPECT_NEAR(double(fx.algorithm().getTailLength()), 60 * kRate, kRate);
}

}  // namespace
}  // namespace quillworks::test
