// SPDX-License-Identifier: ISC
// The view of an effect: a form of controls and displays as a surface.
#pragma once

#include <functional>
#include <memory>
#include <optional>

#include "editors/form.h"
#include "editors/popup.h"
#include "editors/presets.h"

namespace quillworks::editors {

/// What a person has set of all views.
struct ViewSettings {
    double scale = 0;  // 0: as the window says
    std::string variant = "dark";
    bool tips = true;
};

struct ViewSetup {
    VNK::HostedEffect effect;
    const VNK::Skin* skin = nullptr;  // outlives the view
    std::string name;                 // "Compressor/Editor"
    std::shared_ptr<Fonts> fonts;
    std::unique_ptr<ParameterWriter> writer;  // null: the component
    ViewSettings settings;
    std::function<void(const ViewSettings&)> remember;  // after a change by hand
};

/// [main thread]
class View final : public Surface, private ControlHost {
public:
    explicit View(ViewSetup setup);
    ~View() override;

    // Surface
    void setHost(SurfaceHost* host) override { host_ = host; }
    int width() const override;
    int height() const override;
    bool isResizable() const override { return true; }
    void fitSize(int& width, int& height) const override;
    void setSize(int width, int height) override;
    double scale() const override { return scale_; }
    void setScale(double scale) override;
    void tick(double seconds) override;
    std::vector<PixelRect> draw(const Pixels& picture, bool all) override;
    void pointer(const PointerEvent& event) override;
    void wheel(const WheelEvent& event) override;
    bool key(const KeyEvent& event) override;
    void keyboardLost() override;
    bool drop(double x, double y, const std::string& path) override;
    void closed() override {}

    EffectModel& effectModel() noexcept { return model_; }
    const VNK::SkinView& form() const noexcept { return form_; }
    const Theme& theme() const noexcept { return *theme_; }
    void setVariant(const std::string& variant);
    void showPage(int page);
    int page() const noexcept { return page_; }
    int countPages() const noexcept { return static_cast<int>(pages_.size()); }
    /// For who reads the form: one line per control, in the order of Tab.
    std::vector<std::string> texts() const;
    /// What a person would see as a fault: texts that are cut, controls on top of each other or
    /// outside of their form.
    std::vector<std::string> problems() const;
    /// The controls of a page, for tests.
    std::vector<Control*> controls(int page) const;

private:
    struct Entry {
        const Control* owner;
        TextRequest request;
        TextEntry line;
        std::string reason;  // why it was not taken
    };

    // ControlHost
    EffectModel& model() override { return model_; }
    void damage(const Rect& rect) override;
    void damageStatic(const Rect& rect) override;
    void moved(const Rect& rect) override;
    void editText(const Control& owner, TextRequest request) override;
    void openList(const Rect& anchor, ListContent content) override;
    void copyText(const std::string& text) override;
    std::string pasteText() override;
    std::vector<ListEntry> commonEntries() override;

    void build();
    void damageAll();
    void setTheme();
    void remember();
    void chooseScale(double scale);
    void openMenu(const Rect& anchor);
    std::vector<ListEntry> presetEntries();
    void askName(const std::string& text,
                 std::function<bool(const std::string&, std::string&)> take);
    bool isShown(const FormPart& part) const { return part.page < 0 || part.page == page_; }
    Control* at(double x, double y) const;
    void setFocus(Control* control);
    bool moveFocus(int by);
    void setKeyboardMode(bool on);
    void hover(Control* control);
    void endEntry();
    bool takeEntry();
    bool entryKey(const KeyEvent& event);
    bool entryPointer(const PointerEvent& event);
    void showTip(const Tip& tip, const Rect& anchor);
    void hideTip();
    Look look() const { return {fonts_, theme_, scale_}; }
    PixelRect pixels(const Rect& rect) const;
    void drawStatic();
    void drawMoved(const Pixels& picture);
    std::vector<PixelRect> takeDamage();

    SurfaceHost* host_ = nullptr;
    const VNK::Skin& skin_;
    std::shared_ptr<Fonts> fonts_;
    std::shared_ptr<const Theme> theme_;
    std::string accent_, effectName_;
    ViewSettings settings_;
    std::function<void(const ViewSettings&)> remember_;
    EffectModel model_;
    Presets presets_;
    VNK::SkinView form_;
    std::vector<std::string> pages_;
    HeaderActions actions_;
    std::vector<FormPart> parts_;
    int page_ = 0;

    double scale_ = 1;
    Image static_;
    std::vector<Rect> damage_;
    std::vector<Rect> moved_;
    std::vector<Rect> staticDamage_;

    Control* held_ = nullptr;
    int heldButton_ = 0;
    Control* focus_ = nullptr;
    Control* hovered_ = nullptr;
    bool isKeyboardMode_ = false;
    std::optional<Entry> entry_;
    bool isEntryHeld_ = false;
    std::shared_ptr<ListPopup> popup_;
    std::shared_ptr<Popup> tip_;
    Point pointer_;
    double movedAt_ = 0, now_ = 0;
    bool hasRested_ = false;
};

/// The nearest factor that a view takes: eighths from 1/2 to 4.
double roundScale(double scale) noexcept;

}  // namespace quillworks::editors
