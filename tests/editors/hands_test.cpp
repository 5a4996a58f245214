// SPDX-License-Identifier: ISC
// What a hand does to a control, as the stream of gestures that a host gets.
#include "tests/editors/editor_under_test.h"

namespace quillworks::test {
namespace {

using editors::kControl;
using editors::Key;
using editors::kShift;

class Hands : public ::testing::Test {
protected:
    void drag(const std::string& key, double dx, double dy, unsigned modifiers = 0)
    {
        const auto p = e.place(key);
        e.window().press(p.x, p.y, 1, modifiers);
        e.window().move(p.x + dx, p.y + dy, modifiers);
        e.window().release(p.x + dx, p.y + dy, 1, modifiers);
    }
    void focus(const std::string& key)
    {
        e.click(e.place(key));
        if (!e.window().hasKeyboard()) e.window().key(Key::Tab);
        e.gestures();
    }

    EditorUnderTest e{"Compressor", "Compressor/Editor"};
};

TEST_F(Hands, DraggingIsOneGestureOf200PixelsForTheRangeAndTenfoldWithShift)
{
    e.effect().setValue(e.effect().findParameter("knee"), 0);
    e.window().wait(0.1);
    const int knee = e.effect().findParameter("knee");
    const auto at = [&] { return e.effect().toNormalized(knee, e.value("knee")); };
    drag("knee", 0, -100);
    EXPECT_NEAR(at(), 0.5, 1e-3);
    e.window().wait(1);  // no double click
    drag("knee", 40, 0, kShift);
    EXPECT_NEAR(at(), 0.52, 1e-3);
    const auto stream = e.gestures();
    EXPECT_EQ(stream.find("begin knee, knee="), 0u) << stream;
    EXPECT_TRUE(stream.ends_with(", end knee")) << stream;
    // Shift that is pressed on the way makes no jump.
    e.window().wait(1);
    const auto p = e.place("knee");
    e.window().press(p.x, p.y);
    e.window().move(p.x, p.y - 20);
    const auto before = at();
    e.window().move(p.x, p.y - 20, kShift);
    EXPECT_EQ(at(), before);
    e.window().release(p.x, p.y - 20, 1, kShift);
    e.window().wait(1);
    drag("knee", 0, -1000, kControl);
    EXPECT_EQ(at(), 1);
    drag("threshold", -35, 0, kControl);
    EXPECT_EQ(e.value("threshold"), std::round(e.value("threshold")));
}

TEST_F(Hands, ADragBelongsToItsButtonAndOneWhoseReleaseIsLostIsOver)
{
    const auto p = e.place("knee"), other = e.place("mix");
    e.window().press(p.x, p.y);
    e.click(p, 3);
    EXPECT_EQ(e.window().popup(), nullptr);
    e.window().move(p.x, p.y - 50);
    e.gestures();
    e.window().release(p.x, p.y - 50);
    EXPECT_EQ(e.gestures(), "end knee");
    e.window().wait(1);
    e.window().press(p.x, p.y);  // its release goes to another window
    e.window().press(other.x, other.y);
    e.window().release(other.x, other.y);
    EXPECT_EQ(e.gestures(), "begin knee, end knee, begin mix, end mix");
    // A menu that is held open and chosen from gets the release.
    e.window().press(p.x, p.y, 3);
    ASSERT_NE(e.window().popup(), nullptr);
    e.window().key(Key::Escape);
    e.window().wait(1);
    e.window().press(other.x, other.y);
    e.window().release(other.x, other.y);
    EXPECT_EQ(e.gestures(), "begin mix, end mix");
}

TEST_F(Hands, ADoubleClickOrDeleteIsTheDefaultAsOneGesture)
{
    e.effect().setValue(e.effect().findParameter("attack"), 3);
    e.window().wait(0.1);
    e.click(e.place("attack"));
    e.gestures();
    e.click(e.place("attack"));
    EXPECT_EQ(e.gestures(), "begin attack, attack=15, end attack");
    e.effect().setValue(e.effect().findParameter("attack"), 3);
    e.window().wait(1);
    focus("attack");
    e.window().key(Key::Delete);
    EXPECT_EQ(e.gestures(), "begin attack, attack=15, end attack");
}

TEST_F(Hands, AWheelsGestureEndsAfterAPause)
{
    const auto p = e.place("mix");
    e.window().wheel(p.x, p.y, -1);
    e.window().wheel(p.x, p.y, -1);
    EXPECT_EQ(e.gestures(), "begin mix, mix=0.98, mix=0.96");
    e.window().wait(0.2);
    EXPECT_EQ(e.gestures(), "");
    e.window().wait(0.2);
    EXPECT_EQ(e.gestures(), "end mix");
}

TEST_F(Hands, ValuesAreTypedWithUnitsAndWhatIsWrongChangesNothing)
{
    focus("threshold");
    e.type("-2");
    EXPECT_TRUE(e.window().hasKeyboard());
    e.type("4 dB");
    EXPECT_EQ(e.gestures(), "");
    e.window().key(Key::Enter);
    EXPECT_EQ(e.gestures(), "begin threshold, threshold=-24, end threshold");
    e.window().key(Key::Enter);
    e.type("loud");
    e.window().key(Key::Enter);
    EXPECT_EQ(e.gestures(), "");
    e.window().key(Key::Escape);
    EXPECT_EQ(e.value("threshold"), -24);
    // A click on the value opens the field too; Tab takes it and goes on.
    const auto& knob = e.control("threshold").bounds();
    e.window().wait(1);
    e.click({knob.centre().x, knob.bottom() - 10});
    EXPECT_EQ(e.gestures(), "");
    e.type("-12");
    e.window().key(Key::Tab);
    e.window().key(Key::End);
    EXPECT_EQ(e.gestures(), "begin threshold, threshold=-12, end threshold, begin ratio, "
                            "ratio=" +
                                std::to_string(static_cast<int>(e.value("ratio"))) + ", end ratio");
}

TEST_F(Hands, KeysStepTheFocusedControlAndBelongToTheHostOtherwise)
{
    EXPECT_FALSE(e.window().key(Key::Space, " "));
    EXPECT_FALSE(e.window().key(Key::Up));
    e.click(e.place("mix"));
    EXPECT_FALSE(e.window().key(Key::Down)) << "a press alone takes no keys";
    EXPECT_FALSE(e.window().hasKeyboard());
    focus("mix");
    e.window().key(Key::Down);
    e.window().key(Key::PageDown);
    e.window().key(Key::Home);
    EXPECT_EQ(e.gestures(), "begin mix, mix=0.99, end mix, begin mix, mix=0.89, end mix, "
                            "begin mix, mix=0, end mix");
    EXPECT_FALSE(e.window().key(Key::Space, " ")) << "a knob is no button";
    focus("linked");
    EXPECT_TRUE(e.window().key(Key::Space, " "));
    EXPECT_EQ(e.gestures(), "begin linked, linked=1, end linked");
    e.window().key(Key::Escape);
    EXPECT_FALSE(e.window().key(Key::Space, " "));
}

TEST_F(Hands, AButtonActsOnReleaseAndCanBeLeft)
{
    const auto p = e.place("autospeed");
    e.window().press(p.x, p.y);
    EXPECT_EQ(e.gestures(), "");
    e.window().release(p.x, p.y + 200);
    EXPECT_EQ(e.gestures(), "");
    e.click(p);
    EXPECT_EQ(e.gestures(), "begin autospeed, autospeed=1, end autospeed");
}

TEST_F(Hands, MenusOpenWithTheRightButtonAndPastedTextIsAValue)
{
    e.window().clipboard = "-18";
    e.click(e.place("threshold"), 3);
    ASSERT_TRUE(e.window().popup());
    e.type("p");  // Paste
    e.window().key(Key::Enter);
    EXPECT_FALSE(e.window().popup());
    EXPECT_EQ(e.gestures(), "begin threshold, threshold=-18, end threshold");
    e.click(e.place("threshold"), 3);
    const auto p = e.place("ratio");
    e.click(p);  // beside the menu: closes it and does nothing else
    EXPECT_FALSE(e.window().popup());
    EXPECT_EQ(e.gestures(), "");
}

TEST_F(Hands, ATipComesWithRestAndGoesWithTheNextMove)
{
    const auto p = e.place("ratio");
    e.window().move(p.x, p.y);
    e.window().wait(0.5);
    EXPECT_FALSE(e.window().popup());
    e.window().wait(0.2);
    ASSERT_TRUE(e.window().popup());
    EXPECT_FALSE(e.window().popup()->takesPointer());
    e.window().move(p.x + 1, p.y);
    EXPECT_FALSE(e.window().popup());
}

TEST(HandsOnLists, SegmentsAndChoicesSetOneValueAndTheWheelSteps)
{
    EditorUnderTest e("Surround Panner", "SurroundPan/Editor");
    const auto& listen = e.control("mode").bounds();
    e.click({listen.right() - 4, listen.centre().y});
    const auto last = e.effect().getValue(e.effect().findParameter("mode"));
    EXPECT_EQ(e.gestures(),
              "begin mode, mode=" + std::to_string(static_cast<int>(last)) + ", end mode");
    EXPECT_GT(last, 0);
    e.window().wheel(listen.centre().x, listen.centre().y, -1);
    e.window().wait(0.4);
    EXPECT_EQ(e.value("mode"), last - 1);

    EditorUnderTest d("Beat Delay", "BeatDelay/Editor");
    const int next = static_cast<int>(d.value("routing")) + 1;
    d.click(d.place("routing"));
    ASSERT_TRUE(d.window().popup());
    d.window().key(Key::Down);
    d.window().key(Key::Enter);
    EXPECT_EQ(d.gestures(), "begin routing, routing=" + std::to_string(next) + ", end routing");
}

TEST(HandsOnDisplays, ABandThatIsPressedIsTheOneWhoseCurveIsShown)
{
    EditorUnderTest e("Multiband Dynamics", "MultiBand/Editor");
    const auto shown = [&](const std::string& kind) {
        for (auto* control : e.view().controls(0))
            if (control->title() == kind) return control;
        throw std::runtime_error("no " + kind);
    };
    const auto press = [&](const std::string& kind, double share) {
        const auto& b = shown(kind)->bounds();
        e.click({b.x + share * b.w, b.centre().y});
        e.window().key(Key::Escape);
        e.window().wait(1);
        return shown("CurveDisplay")->describe();
    };
    EXPECT_TRUE(press("BandKnobs", 0.6).starts_with("Curve of Band 3,"));
    EXPECT_TRUE(press("BandCurve", 0.95).starts_with("Curve of Band 4,"));
}

TEST(HandsOnWindows, AViewThatGoesWhileAKnobIsHeldEndsTheGesture)
{
    const auto effect = VNK::HostedEffect::adopt(createEffect("Compressor"));
    std::vector<editors::GestureRecorder::Event> events;
    {
        editors::ViewSetup setup;
        setup.effect = effect;
        setup.skin = &skin();
        setup.name = "Compressor/Editor";
        setup.fonts = fonts();
        setup.writer = std::make_unique<editors::GestureRecorder>(effect, events);
        editors::View view(std::move(setup));
        const int ratio = effect.findParameter("ratio");
        for (auto* control : view.controls(0))
            if (control->parameter() == ratio) {
                const auto c = control->bounds().centre();
                view.pointer({editors::PointerAction::Press, c.x, c.y, 1, 0, 0});
            }
    }
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events.back().what, editors::GestureRecorder::Event::End);
}

}  // namespace
}  // namespace quillworks::test
