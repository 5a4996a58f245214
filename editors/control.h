// SPDX-License-Identifier: ISC
// What a view is made of beside displays: something that is drawn in a rectangle, may be held, and
// may have the focus.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "editors/canvas.h"
#include "editors/effect_model.h"

namespace quillworks::editors {

class Control;

/// A line of a menu or list.
struct ListEntry {
    std::string text;
    std::function<void()> choose;  // none: a heading
    bool isChecked = false, isEnabled = true;
    bool opensList = false;  // `choose` opens another list in its place
    bool startsGroup = false;
};

struct ListContent {
    std::vector<ListEntry> entries;
    bool hasSearch = false;  // typing narrows the list
    double leastWidth = 0;
};

struct TextRequest {
    Rect field;  // of the view
    Type type = Type::Value;
    Align align = Align::Centre;
    std::string text;
    bool isSelected = true;  // what is typed replaces it
    /// Takes the text; false with a reason that is shown where it is wrong.
    std::function<bool(const std::string& text, std::string& reason)> take;
    /// After Tab has taken it: opens the next field of the same owner; false where there is none.
    std::function<bool()> goOn;
};

/// What a control asks of its view.
class ControlHost {
public:
    virtual EffectModel& model() = 0;
    virtual void damage(const Rect& rect) = 0;
    /// The same of what drawStatic() draws.
    virtual void damageStatic(const Rect& rect) = 0;
    /// Something has changed that drawMoved() will draw.
    virtual void moved(const Rect& rect) = 0;
    virtual void editText(const Control& owner, TextRequest request) = 0;
    virtual void openList(const Rect& anchor, ListContent content) = 0;
    virtual void copyText(const std::string& text) = 0;
    virtual std::string pasteText() = 0;
    /// Entries of every menu: scale, variant.
    virtual std::vector<ListEntry> commonEntries() = 0;

protected:
    ~ControlHost() = default;
};

struct Tip {
    std::string title, help;
    std::vector<std::string> lines;
};

class Control {
public:
    Control(ControlHost& host, std::string kind, std::string title, const Rect& bounds)
        : host_(host), kind_(std::move(kind)), title_(std::move(title)), bounds_(bounds)
    {}
    virtual ~Control() = default;
    Control(const Control&) = delete;
    Control& operator=(const Control&) = delete;

    const std::string& kind() const noexcept { return kind_; }
    const std::string& title() const noexcept { return title_; }
    const Rect& bounds() const noexcept { return bounds_; }

    /// Labels and what else does not change.
    virtual void drawStatic(Canvas&) {}
    virtual void draw(Canvas& canvas) = 0;
    /// What has been told as moved, before anything that is damaged, into a picture that holds what
    /// was drawn before, and with a ground.
    virtual void drawMoved(Canvas&) {}
    /// After the model has read the effect; damages itself where it looks different.
    virtual void tick(double) {}

    /// Presses within it; while it is held, moves and the release wherever they are.
    virtual void pointer(const PointerEvent&) {}
    virtual void hover(bool) {}
    virtual void hoverAt(double, double) {}
    virtual void setFocus(bool) {}
    virtual bool wheel(const WheelEvent&) { return false; }
    /// While it has the focus.
    virtual bool key(const KeyEvent&) { return false; }
    virtual bool takesFocus() const { return true; }
    virtual bool drop(const std::string&) { return false; }
    virtual Tip tip() const { return {title_, {}, {}}; }
    /// For the list of texts: the value, as shown.
    virtual std::string describe() const { return {}; }
    /// -1 where it is none.
    virtual int parameter() const { return -1; }
    /// A part of which draw() sets every pixel, from the border of pixels that is nearest to its
    /// left upper corner; empty where there is none.
    virtual Rect covered() const { return {}; }
    /// Says what does not fit its place.
    virtual void check(Fonts&, const Theme&, std::vector<std::string>&) const {}

protected:
    /// A number with unit to three digits or so, as there is room for: "229.37 Hz" is "229 Hz".
    static std::string shortened(const std::string& text);
    ControlHost& host() const noexcept { return host_; }
    EffectModel& model() const noexcept { return host_.model(); }
    /// With what texts and rims stand out.
    void damage() { host_.damage(bounds_.inset(-2)); }
    /// A problem where a text is wider than there is room for it.
    void checkText(Fonts& fonts, const Theme::Face& face, const std::string& text, double room,
                   std::vector<std::string>& problems) const;

private:
    ControlHost& host_;
    std::string kind_, title_;
    Rect bounds_;
};

}  // namespace quillworks::editors
