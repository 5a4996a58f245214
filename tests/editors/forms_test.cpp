// SPDX-License-Identifier: ISC
// What every form of every effect owes: nothing cut, and every control does what it shows.
#include <cmath>
#include <cstring>
#include <unistd.h>

#include <filesystem>
#include <random>

#include "tests/editors/editor_under_test.h"
#include "tests/support/every_effect.h"
#include "vnk/effect_runner.h"

namespace quillworks::test {
namespace {

using editors::Rect;

std::vector<std::string> formsOf(const std::string& effect)
{
    const auto component = VNK::HostedEffect::adopt(createEffect(effect));
    std::vector<std::string> names;
    for (int i = 0; const char* name = component.viewName(i); ++i) names.emplace_back(name);
    return names;
}

class EveryForm : public ::testing::TestWithParam<std::string> {};

TEST_P(EveryForm, ShowsItsTextsWholeAndNothingOnTopOfAnything)
{
    for (const auto& form : formsOf(GetParam())) {
        EditorUnderTest e(GetParam(), form);
        for (const auto& problem : e.view().problems()) ADD_FAILURE() << problem;
    }
    // The form that is made where the skin has none.
    EditorUnderTest e(GetParam(), "Unknown/Editor");
    for (const auto& problem : e.view().problems()) ADD_FAILURE() << problem;
}

/// Where two pictures differ by more than some steps of a colour, in pixels.
Rect difference(const editors::Image& a, const editors::Image& b, int steps = 0)
{
    const auto differ = [steps](std::uint32_t p, std::uint32_t q) {
        for (int shift = 0; shift < 32; shift += 8)
            if (std::abs(int(p >> shift & 0xFF) - int(q >> shift & 0xFF)) > steps) return true;
        return false;
    };
    int left = a.width(), top = a.height(), right = 0, bottom = 0;
    for (int y = 0; y < a.height(); ++y)
        for (int x = 0; x < a.width(); ++x)
            if (differ(a.pixels().data[y * a.width() + x], b.pixels().data[y * b.width() + x])) {
                left = std::min(left, x);
                right = std::max(right, x + 1);
                top = std::min(top, y);
                bottom = std::max(bottom, y + 1);
            }
    if (right <= left) return {};
    return {double(left), double(top), double(right - left), double(bottom - top)};
}

editors::Image copyOf(const editors::Image& image)
{
    editors::Image copy(image.width(), image.height());
    std::memcpy(copy.pixels().data, image.pixels().data,
                static_cast<std::size_t>(image.height()) *
                    static_cast<std::size_t>(image.pixels().stride));
    return copy;
}

TEST_P(EveryForm, DamagedPartsAreDrawnAsTheWholeWouldBe)
{
    for (const auto& form : formsOf(GetParam())) {
        EditorUnderTest e(GetParam(), form, 1.5);
        for (int i = 0; i < e.effect().countParameters(); ++i) {
            VNK::ParameterInfo info{};
            e.effect().getParameter(i, info);
            if (!info.has(VNK::isReadOnly) && !info.has(VNK::isTrigger))
                e.effect().setValue(i, info.maximum);
        }
        e.window().wait(0.1);
        const auto parts = copyOf(e.window().picture());
        editors::Image whole(parts.width(), parts.height());
        e.view().draw(whole.pixels(), true);
        EXPECT_TRUE(difference(parts, whole).isEmpty()) << form;
    }
}

/// A thirtieth of a second of sound whose level comes and goes.
void playNoise(const VNK::EffectRunner& runner, int turn)
{
    std::minstd_rand random(static_cast<unsigned>(turn));
    std::uniform_real_distribution<float> uniform(-1, 1);
    std::vector<float> sound[] = {std::vector<float>(1600), std::vector<float>(1600)};
    for (auto& x : sound)
        for (auto& v : x) v = (turn % 5 < 3 ? 0.5f : 0.001f) * uniform(random);
    runner.process<float>({sound, runner.setup().input.channels}, {sound, 2}, 1600);
}

TEST_P(EveryForm, WhatTheSoundMovesIsDrawnAsTheWholeWouldBe)
{
    for (const auto& form : formsOf(GetParam())) {
        EditorUnderTest e(GetParam(), form, 1.25);
        VNK::EffectRunner runner(*e.effect()->algorithm());
        const auto stereo = VNK::SpeakerArrangement::withChannels(2);
        const auto mono = VNK::SpeakerArrangement::withChannels(1);
        ASSERT_TRUE(runner.prepare({stereo, stereo, VNK::Precision::Float, 48000, 1600}) ||
                    runner.prepare({mono, stereo, VNK::Precision::Float, 48000, 1600}));
        for (int turn = 0; turn < 12; ++turn) {
            playNoise(runner, turn);
            e.window().wait(1.0 / 30);
        }
        const auto parts = copyOf(e.window().picture());
        editors::Image whole(parts.width(), parts.height());
        e.view().draw(whole.pixels(), true);
        // Runs of colours and rims are rounded otherwise where a part of them is drawn.
        const auto d = difference(parts, whole, 16);
        EXPECT_TRUE(d.isEmpty()) << form << " at " << d.x << ", " << d.y << ", " << d.w << " x "
                                 << d.h;
    }
}

TEST(Readouts, OfAnEnginesFiguresShowThemInFormsWithoutDisplays)
{
    EditorUnderTest e("Phase Meter", "PhaseMeter/Micro");
    VNK::EffectRunner runner(*e.effect()->algorithm());
    const auto stereo = VNK::SpeakerArrangement::withChannels(2);
    ASSERT_TRUE(runner.prepare({stereo, stereo, VNK::Precision::Float, 48000, 1600}));
    for (int turn = 0; turn < 12; ++turn) {
        playNoise(runner, 0);
        e.window().wait(1.0 / 30);
    }
    int readouts = 0;
    for (const auto* control : e.view().controls(0)) {
        if (control->kind() != "Readout") continue;
        ++readouts;
        EXPECT_NE(control->describe(), "-") << control->title();
    }
    EXPECT_GT(readouts, 0);
}

TEST_P(EveryForm, ControlsFollowTheHandToBothEndsAndTakeTheirOwnText)
{
    for (const auto& form : formsOf(GetParam())) {
        EditorUnderTest e(GetParam(), form);
        auto& model = e.view().effectModel();
        for (int page = 0; page < e.view().countPages(); ++page) {
            e.view().showPage(page);
            for (auto* control : e.view().controls(page)) {
                const int parameter = control->parameter();
                if (parameter < 0 || (control->kind() != "Knob" && control->kind() != "Slider"))
                    continue;
                const auto& info = model.info(parameter);
                SCOPED_TRACE(form + " " + info.key);
                const auto c = control->bounds().centre();
                const double y =
                    control->kind() == "Knob" ? c.y - 8 : control->bounds().bottom() - 4;
                for (const double way : {-2100.0, 2100.0}) {
                    e.window().press(c.x, y);
                    e.window().move(c.x + way, y);
                    e.window().release(c.x + way, y);
                    e.window().wait(0.5);
                    const float end = way < 0 ? info.minimum : info.maximum;
                    if (!info.wraps) {
                        EXPECT_EQ(e.effect().getValue(parameter), end);
                    }
                }
                const auto text = control->describe();
                const auto before = e.effect().getValue(parameter);
                float read = 0;
                if (model.read(parameter, text, read))
                    EXPECT_NEAR(e.effect().toNormalized(parameter, read),
                                e.effect().toNormalized(parameter, before), 0.01)
                        << text;
                else
                    ADD_FAILURE() << "does not read its own text " << text;
            }
        }
    }
}

/// A history goes on with time.
bool isHistory(const editors::View& view, const editors::PixelRect& r)
{
    for (const auto* control : view.controls(view.page()))
        if (control->title() == "GainHistory" &&
            control->bounds().inset(-1).contains(
                Rect{double(r.x), double(r.y), double(r.w), double(r.h)}))
            return true;
    return false;
}

TEST_P(EveryForm, NothingIsDrawnWhileNothingChanges)
{
    for (const auto& form : formsOf(GetParam())) {
        EditorUnderTest e(GetParam(), form);
        e.window().wait(0.5);
        int drawn = 0;
        for (int i = 0; i < 30; ++i) {
            e.view().tick(10 + i / 30.0);
            for (const auto& r : e.window().draw()) drawn += !isHistory(e.view(), r);
        }
        EXPECT_EQ(drawn, 0) << form;
    }
}

INSTANTIATE_TEST_SUITE_P(Pack, EveryForm, ::testing::ValuesIn(registeredClasses()), className);

TEST(Theme, TextAndMarksStandOutFromTheirGroundInBothVariants)
{
    using editors::Color;
    struct Pair {
        Color mark, ground;
        double least;
    };
    const Pair pairs[] = {
        {Color::Text, Color::Panel, 7},      {Color::Text2, Color::Panel, 7},
        {Color::Text, Color::Well, 7},       {Color::Text3, Color::Well, 4.5},
        {Color::Text3, Color::Panel, 4.5},   {Color::Text2, Color::Raised, 4.5},
        {Color::Text, Color::CapTop, 4.5},   {Color::Accent, Color::Panel, 4.5},
        {Color::OnAccent, Color::Accent, 7}, {Color::Focus, Color::Panel, 3},
        {Color::Level, Color::Well, 3},      {Color::Output, Color::Well, 3},
        {Color::Ok, Color::Well, 3},         {Color::Warn, Color::Well, 3},
    };
    for (const char* variant : {"dark", "contrast"})
        for (const char* accent : {"dynamics", "mixing", "distortion", "modulation", "delay",
                                   "reverb", "analysis", "spatial"}) {
            const editors::Theme theme(skin(), variant, accent);
            EXPECT_NE(theme.rgb(Color::Focus), theme.rgb(Color::Accent)) << accent;
            for (const auto& pair : pairs)
                EXPECT_GE(editors::contrast(theme.rgb(pair.mark), theme.rgb(pair.ground)),
                          pair.least)
                    << variant << " " << accent << " " << static_cast<int>(pair.mark);
        }
}

TEST(Text, DigitsAreAllOfOneWidthSoThatValuesStandStill)
{
    const auto f = fonts();
    for (const char* digit : {"1", "4", "8"})
        EXPECT_EQ(f->width(editors::Weight::Medium, 12, digit),
                  f->width(editors::Weight::Medium, 12, "0"));
    EXPECT_EQ(editors::withMinus("-3.5 dB, A-B"), "\u22123.5 dB, A-B");
    EXPECT_FALSE(f->covers("日本"));
    EXPECT_TRUE(f->covers("Größe Ø −"));
}

TEST(Text, IsDrawnThoughItsFontsAreWrittenOverInPlace)
{
    namespace fs = std::filesystem;
    const fs::path folder = fs::path(::testing::TempDir()) / ("fonts" + std::to_string(getpid()));
    fs::remove_all(folder);
    fs::copy(resources() + "/skins/fonts", folder);
    std::string reason;
    const auto f = editors::Fonts::load(folder.string(), reason);
    ASSERT_TRUE(f) << reason;
    for (const auto& file : fs::directory_iterator(folder)) fs::resize_file(file.path(), 0);
    int seen = 0;
    f->layOut(editors::Weight::Medium, 24, 0, "Quill",
              [&](const editors::Glyph& glyph, int) { seen += glyph.coverage != nullptr; });
    EXPECT_EQ(seen, 5);
    fs::remove_all(folder);
}

}  // namespace
}  // namespace quillworks::test
