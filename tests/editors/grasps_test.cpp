// SPDX-License-Identifier: ISC
// Everything that a hand moves in any display of any form: dragged, turned, typed and set back, as
// gestures that begin and end.
#include <map>

#include "editors/controls/display_control.h"
#include "tests/editors/editor_under_test.h"
#include "tests/support/every_effect.h"

namespace quillworks::test {
namespace {

using editors::Grasp;
using editors::Key;
using editors::PointerAction;
using What = editors::GestureRecorder::Event::What;

/// A display's view with a clock of its own, which leaves the drawing out.
class DisplayUnderTest {
public:
    DisplayUnderTest(EditorUnderTest& editor, editors::DisplayControl& control)
        : e(editor), control_(control)
    {}

    std::vector<Grasp> grasps() { return control_.display()->grasps(); }
    Grasp grasp(std::size_t i) { return grasps().at(i); }
    editors::Point middle(std::size_t i)
    {
        const auto c = grasp(i).at.centre();
        return {control_.bounds().x + c.x, control_.bounds().y + c.y};
    }
    void rest(double seconds = 1)
    {
        now_ += seconds;
        e.view().tick(now_);
    }
    void press(editors::Point p) { point(PointerAction::Press, p, 1); }
    void release(editors::Point p) { point(PointerAction::Release, p, 1); }
    void drag(std::size_t i, double dx, double dy)
    {
        const auto p = middle(i);
        rest();
        press(p);
        for (const double share : {0.5, 1.0})
            point(PointerAction::Move, {p.x + share * dx, p.y + share * dy}, 0);
        release({p.x + dx, p.y + dy});
        e.view().tick(now_);
    }
    void click(editors::Point p)
    {
        press(p);
        release(p);
    }
    void wheel(std::size_t i, double notches)
    {
        const auto p = middle(i);
        rest();
        e.view().wheel({p.x, p.y, notches, 0, now_});
        e.view().tick(now_);
    }
    void key(Key key, const std::string& text = {}) { e.view().key({key, text, 0, now_}); }
    void type(const std::string& text)
    {
        for (const char c : text) key(Key::None, std::string(1, c));
    }

    EditorUnderTest& e;

private:
    void point(PointerAction action, editors::Point p, int button)
    {
        now_ += 0.02;
        e.view().pointer({action, p.x, p.y, button, 0, now_});
    }

    editors::DisplayControl& control_;
    double now_ = 100;
};

/// What must hold of every stream: each value within the begin and end of its parameter and within
/// its range, nothing left open. Counts the values of each key.
std::map<std::string, int> checked(EditorUnderTest& e)
{
    std::map<std::string, int> open, values;
    int groups = 0;
    for (const auto& event : e.takeEvents()) {
        switch (event.what) {
        case What::Begin:
            EXPECT_EQ(open[event.key]++, 0) << event.key << " begun twice";
            break;
        case What::Value: {
            const auto& info =
                e.view().effectModel().info(e.effect().findParameter(event.key.c_str()));
            EXPECT_EQ(open[event.key], 1) << event.key << " set outside of a gesture";
            EXPECT_TRUE(event.value >= info.minimum && event.value <= info.maximum)
                << event.key << " " << event.value;
            ++values[event.key];
            break;
        }
        case What::End:
            EXPECT_EQ(open[event.key]--, 1) << event.key << " ended without a begin";
            break;
        case What::BeginGroup:
            ++groups;
            break;
        case What::EndGroup:
            EXPECT_EQ(groups--, 1);
            break;
        }
    }
    EXPECT_EQ(groups, 0);
    for (const auto& [key, count] : open) EXPECT_EQ(count, 0) << key << " left open";
    return values;
}

class GraspSweep {
public:
    GraspSweep(EditorUnderTest& editor, editors::DisplayControl& control) : d(editor, control) {}

    void run()
    {
        for (std::size_t i = 0; i < d.grasps().size(); ++i) {
            const auto grasp = d.grasp(i);
            SCOPED_TRACE(control(grasp) + " (" + std::to_string(i) + ")");
            if (grasp.isSwitch) {
                pressed(i);
                continue;
            }
            dragged(i);
            turned(i);
            typed(i);
            setBack(i);
        }
    }

private:
    EditorUnderTest& e() { return d.e; }
    float at(int p) { return e().effect().getValue(p); }
    const VNK::ParameterInfo& info(int p) { return e().view().effectModel().info(p); }
    std::string control(const Grasp& grasp)
    {
        std::string keys;
        for (const int p : grasp.parameters()) keys += std::string(" ") + info(p).key;
        return keys;
    }
    /// Of the stream, the keys that are none of these.
    void expectOnly(const std::map<std::string, int>& values, std::initializer_list<int> allowed)
    {
        for (const auto& [key, count] : values) {
            bool isAllowed = false;
            for (const int p : allowed) isAllowed |= p >= 0 && key == info(p).key;
            EXPECT_TRUE(isAllowed) << key << " moved too";
        }
    }

    void pressed(std::size_t i)
    {
        const int p = d.grasp(i).across;
        const auto place = d.middle(i);  // others may go with what it switches
        const float before = at(p);
        for (const bool back : {false, true}) {
            d.rest();
            d.click(place);
            EXPECT_EQ(at(p) == before, back);
        }
        d.press(place);
        d.release({-50, -50});
        EXPECT_EQ(at(p), before) << "left before the release";
        expectOnly(checked(e()), {p});
    }

    void dragged(std::size_t i)
    {
        const auto g = d.grasp(i);
        std::map<int, bool> moved;
        for (const double way : {23.0, -41.0}) {
            std::map<int, float> before;
            for (const int p : g.parameters()) before[p] = at(p);
            d.drag(i, g.across >= 0 ? way : 0, g.up >= 0 ? -0.7 * way : 0);
            for (const int p : g.parameters()) moved[p] |= at(p) != before[p];
            expectOnly(checked(e()), {g.across, g.up});
        }
        for (const int p : {g.across, g.up})
            EXPECT_TRUE(p < 0 || moved[p]) << info(p).key << " does not follow the hand";
        for (const double x : {-4000.0, 4000.0})
            for (const double y : {-4000.0, 4000.0}) {
                d.drag(i, g.across >= 0 ? x : 0, g.up >= 0 ? y : 0);
                expectOnly(checked(e()), {g.across, g.up});
            }
    }

    void turned(std::size_t i)
    {
        const auto g = d.grasp(i);
        const int p = g.wheel >= 0 ? g.wheel : g.up >= 0 ? g.up : g.across;
        setTo(p, 0.5f);
        const float before = at(p);
        d.wheel(i, 1);
        EXPECT_GT(e().effect().toNormalized(p, at(p)), e().effect().toNormalized(p, before));
        d.rest();
        expectOnly(checked(e()), {p});
    }

    void typed(std::size_t i)
    {
        const auto g = d.grasp(i);
        d.rest();
        if (g.value.isEmpty()) {
            // A press takes the focus there, or Tab and the keys would.
            d.key(Key::Tab);
            d.press(d.middle(i));
            d.release(d.middle(i));
            d.rest();
            d.key(Key::Enter);
        } else {
            d.click(d.middle(i));
        }
        checked(e());
        std::map<int, float> wanted;
        const auto all = g.parameters();
        for (std::size_t n = 0; n < all.size(); ++n) {
            const float value = e().effect().fromNormalized(all[n], 0.37f);
            const auto text = e().view().effectModel().text(all[n], value);
            ASSERT_TRUE(e().view().effectModel().read(all[n], text, wanted[all[n]])) << text;
            d.type(text);
            d.key(n + 1 < all.size() ? Key::Tab : Key::Enter);
        }
        const auto values = checked(e());
        for (const int p : all) {
            EXPECT_EQ(values.count(info(p).key), 1u) << info(p).key << " is not typed";
            EXPECT_NEAR(e().effect().toNormalized(p, at(p)),
                        e().effect().toNormalized(p, wanted[p]), 1e-5)
                << info(p).key;
        }
        d.key(Key::Escape);
    }

    void setBack(std::size_t i)
    {
        const auto g = d.grasp(i);
        d.rest();
        auto p = d.middle(i);
        // Beside the value, which a click types.
        if (!g.value.isEmpty()) p.x += g.value.x - g.at.centre().x - 4;
        d.click(p);
        checked(e());
        d.click(p);
        const auto values = checked(e());
        for (const int q : {g.across, g.up})
            EXPECT_TRUE(q < 0 || at(q) == info(q).defaultValue) << info(q).key;
        expectOnly(values, {g.across, g.up});
    }

    void setTo(int p, float position)
    {
        e().effect().setValue(p, e().effect().fromNormalized(p, position));
        d.rest();
    }

    DisplayUnderTest d;
};

class EveryDisplay : public ::testing::TestWithParam<std::string> {};

TEST_P(EveryDisplay, IsMovedByDragWheelAndTextAndSetBackByADoubleClick)
{
    const auto effect = VNK::HostedEffect::adopt(createEffect(GetParam()));
    for (int form = 0; const char* name = effect.viewName(form); ++form) {
        EditorUnderTest e(GetParam(), name);
        for (int page = 0; page < e.view().countPages(); ++page) {
            e.view().showPage(page);
            for (auto* control : e.view().controls(page)) {
                auto* const display = dynamic_cast<editors::DisplayControl*>(control);
                if (!display || !display->display()) continue;
                SCOPED_TRACE(std::string(name) + " " + display->title());
                GraspSweep(e, *display).run();
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Pack, EveryDisplay, ::testing::ValuesIn(registeredClasses()), className);

}  // namespace
}  // namespace quillworks::test
