// SPDX-License-Identifier: ISC
// Forms drawn while a sound plays, beside pictures that a person has looked at: one of every kind
// of display, at scales and in colours of all sorts. QUILLWORKS_DRAW=1 stores the present ones.
#include <filesystem>
#include <numbers>
#include <set>

#include "tests/editors/editor_under_test.h"
#include "tests/editors/picture.h"
#include "tests/support/build_paths.h"
#include "tests/support/effect_under_test.h"

namespace quillworks::test {
namespace {

constexpr int kTick = 1600;  // frames of 1/30 s
constexpr double kRate = 48000;

struct Case {
    const char* effect;
    const char* form;
    double scale;
    const char* variant = "dark";
    std::vector<std::pair<const char*, double>> settings = {};
};

std::ostream& operator<<(std::ostream& out, const Case& c)
{
    return out << c.form;
}

// Reverberation is left out of what meters show: how it sounds is another matter.
const Case kCases[] = {
    {"Multiband Dynamics", "MultiBand/Editor", 0.75, "dark", {{"ratio1", 6}, {"gain2", 4}}},
    {"Compressor", "Compressor/Compact", 1.5, "dark", {{"threshold", -30}, {"ratio", 4}}},
    {"Analog Delay", "AnalogDelay/Editor", 0.75, "contrast", {{"lfowidth", 0.5}}},
    {"Surround Delay", "SurroundDelay/Editor", 0.75},
    {"Groove Delay", "RhythmDelay/Editor", 0.75, "contrast"},
    {"Room Reverb", "Reverb/Editor", 0.75, "dark", {{"mix", 0}}},
    {"Swellroom", "Swellroom/Editor", 0.75, "dark", {{"swell", 40}, {"mix", 0}}},
    {"Vaulter", "FDNReverb/Editor", 0.75, "dark", {{"mix", 0}}},
    {"Level Meter", "LevelMeter/Editor", 0.75, "contrast"},
    {"EmberDist", "SimpleDist/Compact", 2, "dark", {{"drive", 24}}},
    {"Bitcrusher", "Bitcrusher/Editor", 0.75, "dark", {{"bits", 4}}},
    {"Flanger", "Flanger/Editor", 0.75, "contrast"},
    {"Wobbla", "SuperTrem/Compact", 1.5},
    {"Scope", "TestScope/Compact", 1},
    {"Chorus", "Chorus/Editor", 0.75, "dark", {{"voices", 5}}},
    {"Phase Meter", "PhaseMeter/Editor", 0.75},
    {"Spectrum Meter", "SpectrumMeter/Compact", 1.5, "contrast"},
    {"Dual Pan", "DualPan/Editor", 0.75, "dark", {{"panleft", -60}, {"position", 20}}},
    {"IR Maker", "IrMaker/Editor", 0.75},
};

/// A chord that fades in and out twice a second, the right side softer than the left, over a bass.
Channels<float> music(int seconds)
{
    const auto frames = static_cast<std::size_t>(seconds * kRate);
    Channels<float> sides(2, Signal<float>(frames));
    for (std::size_t i = 0; i < frames; ++i) {
        const double t = 2 * std::numbers::pi * double(i) / kRate;
        const double envelope = 0.5 - 0.45 * std::cos(2 * t);
        const double chord = std::sin(440 * t) + std::sin(554.4 * t) + 0.5 * std::sin(2637 * t);
        for (std::size_t side = 0; side < 2; ++side)
            sides[side][i] =
                static_cast<float>(0.2 * std::sin(110 * t) + envelope * (side ? 0.1 : 0.2) * chord);
    }
    return sides;
}

/// The form after two seconds of the music, drawn 30 times a second.
editors::Image drawn(const Case& c, const VNK::Skin& skin)
{
    EffectUnderTest<float> fx(c.effect);
    for (const auto& [key, value] : c.settings) fx.set(key, value);
    editors::ViewSetup setup;
    setup.effect = fx.component();
    setup.skin = &skin;
    setup.name = c.form;
    setup.fonts = fonts();
    setup.settings.scale = c.scale;
    setup.settings.variant = c.variant;
    editors::View view(std::move(setup));
    editors::OffscreenWindow window(view);
    fx.prepare(2, kTick);
    static const auto sound = music(2);
    for (std::size_t at = 0; at < sound[0].size(); at += kTick) {
        Channels<float> block;
        for (const auto& side : sound)
            block.emplace_back(side.begin() + long(at), side.begin() + long(at + kTick));
        fx.algorithm().setTransport({.playing = true,
                                     .positionKnown = true,
                                     .quarterNotes = double(at) / kRate * 2,
                                     .frameKnown = true,
                                     .frame = std::int64_t(at),
                                     .tempo = 120});
        fx.play(block, kTick);
        window.wait(1.0 / 30);
    }
    const auto& shown = window.picture();
    editors::Image picture(shown.width(), shown.height());
    std::memcpy(picture.pixels().data, shown.pixels().data,
                std::size_t(shown.pixels().stride) * std::size_t(shown.height()));
    return picture;
}

std::string fileOf(const Case& c)
{
    std::string name = c.form;
    std::replace(name.begin(), name.end(), '/', '-');
    return name + ".png";
}

class Pictures : public ::testing::TestWithParam<Case> {};

TEST_P(Pictures, LookAsTheyDid)
{
    const auto picture = drawn(GetParam(), skin());
    const auto stored = paths::source + "/tests/editors/pictures/" + fileOf(GetParam());
    if (std::getenv("QUILLWORKS_DRAW")) {
        ASSERT_TRUE(writePicture(picture, stored));
        return;
    }
    const auto wanted = readPicture(stored);
    const bool isSized = wanted.width() == picture.width() && wanted.height() == picture.height();
    const auto difference = isSized ? differenceOf(picture, wanted) : PictureDifference{};
    if (isSized && !difference.isSeen()) return;
    const auto got = std::filesystem::absolute("got-" + fileOf(GetParam())).string();
    EXPECT_TRUE(writePicture(picture, got));
    ADD_FAILURE() << got << " is not as " << stored << ": at " << difference.x << ", "
                  << difference.y << " by " << difference.most << " of 255, "
                  << 100 * difference.tintedSquares << " % in another colour. If it is right, "
                  << "QUILLWORKS_DRAW=1 stores it.";
}

INSTANTIATE_TEST_SUITE_P(Forms, Pictures, ::testing::ValuesIn(kCases), [](const auto& info) {
    std::string name = info.param.form;
    name.erase(std::remove(name.begin(), name.end(), '/'), name.end());
    return name;
});

TEST(PictureCases, ShowEveryKindOfDisplay)
{
    std::set<std::string> kinds, shown;
    for (const auto& effect : skin().effects)
        for (const auto& view : effect.views)
            for (const auto& box : view.boxes) {
                if (box.kind != "Display") continue;
                const auto kind = box.attributes.at("kind");
                kinds.insert(kind);
                for (const auto& c : kCases)
                    if (view.name == c.form) shown.insert(kind);
            }
    EXPECT_EQ(shown, kinds);
}

/// The stored picture stands for what a person has seen; here are faults that must not pass for it.
TEST(PictureCases, ALabelMovedAKnobGoneAndAnotherColourAreSeenAndSofterEdgesAreNot)
{
    const auto& c = kCases[1];
    const auto right = drawn(c, skin());
    EXPECT_EQ(differenceOf(right, drawn(c, skin())).most, 0);

    const auto change = [&](auto&& apply) {
        auto changed = skin();
        apply(changed);
        return differenceOf(drawn(c, changed), right);
    };
    const auto viewOf = [&](VNK::Skin& all) -> VNK::SkinView& {
        return const_cast<VNK::SkinView&>(*all.findView(c.form));
    };
    EXPECT_TRUE(change([&](VNK::Skin& s) {
                    auto& controls = viewOf(s).boxes.back().controls;
                    controls.erase(controls.begin());
                }).isSeen());
    EXPECT_TRUE(
        change([](VNK::Skin& s) { s.variants["dark"].colors["panel"] ^= 0x040404; }).isSeen());
    EXPECT_TRUE(change([](VNK::Skin& s) {
                    s.variants["dark"].colors["accent-dynamics"] ^= 0x3000;
                }).isSeen());

    // The title of the form, three logical pixels to the right.
    const auto copy = [&](auto&& pixelOf) {
        editors::Image image(right.width(), right.height());
        const auto& from = right.pixels();
        for (int y = 0; y < from.height; ++y)
            for (int x = 0; x < from.width; ++x)
                image.pixels().data[y * from.width + x] = pixelOf(from.data + y * from.width, x, y);
        return image;
    };
    const int by = int(3 * c.scale), left = int(36 * c.scale), end = int(140 * c.scale);
    const int below = int(32 * c.scale);
    const auto moved = copy([&](const std::uint32_t* row, int x, int y) {
        return y < below && x >= left && x < end ? row[x - by] : row[x];
    });
    EXPECT_TRUE(differenceOf(moved, right).isSeen());
    const auto softer = copy([](const std::uint32_t* row, int x, int) {
        std::uint32_t mixed = 0;
        for (int shift = 0; shift < 24; shift += 8) {
            const auto here = row[x] >> shift & 0xFF,
                       before = row[std::max(x - 1, 0)] >> shift & 0xFF;
            mixed |= (here * 7 + before) / 8 << shift;
        }
        return mixed;
    });
    const auto soft = differenceOf(softer, right);
    EXPECT_FALSE(soft.isSeen()) << soft.most << " at " << soft.x << ", " << soft.y << ", tint "
                                << soft.tintedSquares;
}

}  // namespace
}  // namespace quillworks::test
