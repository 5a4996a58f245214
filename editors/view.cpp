// SPDX-License-Identifier: ISC
#include "editors/view.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>

#include "editors/controls/display_control.h"
#include "editors/layout.h"

namespace quillworks::editors {
namespace {

constexpr double kRest = 0.6;              // s until a tip
constexpr std::size_t kMostDamage = 1024;  // parts between two pictures
constexpr double kRingClear = 1, kRingWidth = 2;
constexpr double kRing = kRingClear + kRingWidth;

void gather(std::vector<Rect>& parts, const Rect& rect)
{
    if (parts.size() < kMostDamage) return parts.push_back(rect);
    // Nobody draws: the whole of it will do.
    for (const auto& part : parts) parts[0] = parts[0].united(part);
    parts = {parts[0].united(rect)};
}

const VNK::SkinEffect* effectOf(const VNK::Skin& skin, const std::string& viewName)
{
    for (const auto& effect : skin.effects)
        for (const auto& view : effect.views)
            if (view.name == viewName) return &effect;
    return nullptr;
}

VNK::SkinView formOf(const VNK::Skin& skin, const EffectModel& model, const std::string& name)
{
    if (const auto* form = skin.findView(name)) return *form;
    return automaticForm(model, name, name.substr(0, name.find('/')));
}

}  // namespace

double roundScale(double scale) noexcept
{
    return std::clamp(std::round(scale * 8) / 8, 0.5, 4.0);
}

View::View(ViewSetup setup)
    : skin_(*setup.skin),
      fonts_(std::move(setup.fonts)),
      settings_(setup.settings),
      remember_(std::move(setup.remember)),
      model_(setup.effect, std::move(setup.writer)),
      presets_(model_),
      form_(formOf(skin_, model_, setup.name)),
      pages_(pagesOf(form_))
{
    if (const auto* effect = effectOf(skin_, setup.name)) accent_ = effect->accent;
    if (settings_.scale > 0) scale_ = roundScale(settings_.scale);
    setTheme();
    build();
}

View::~View()
{
    if (popup_) popup_->forget();  // its window may keep it for a moment
    if (host_) host_->showPopup(nullptr, 0, 0);
}

void View::setTheme()
{
    theme_ = std::make_shared<Theme>(skin_, settings_.variant, accent_);
    damageAll();
}

void View::build()
{
    actions_.title = form_.title;
    actions_.pages = pages_;
    actions_.page = [this] { return page_; };
    actions_.showPage = [this](int page) { showPage(page); };
    actions_.openMenu = [this](const Rect& anchor) { openMenu(anchor); };
    actions_.presets = &presets_;
    parts_ = makeForm(*this, form_, actions_, *fonts_, *theme_);
    for (auto& part : parts_)
        if (auto* display = dynamic_cast<DisplayControl*>(part.control.get()))
            display->setScale(scale_);
    damageAll();
}

int View::width() const
{
    return static_cast<int>(std::lround(form_.width * kUnit * scale_));
}

int View::height() const
{
    return static_cast<int>(std::lround(form_.height * kUnit * scale_));
}

void View::fitSize(int& width, int& height) const
{
    const double w = form_.width * kUnit, h = form_.height * kUnit;
    const double factor = roundScale(std::min(width / w, height / h));
    width = static_cast<int>(std::lround(w * factor));
    height = static_cast<int>(std::lround(h * factor));
}

void View::setSize(int width, int height)
{
    setScale(std::min(width / (form_.width * kUnit), height / (form_.height * kUnit)));
}

void View::setScale(double scale)
{
    scale = roundScale(scale);
    if (scale == scale_) return;
    scale_ = scale;
    for (auto& part : parts_)
        if (auto* display = dynamic_cast<DisplayControl*>(part.control.get()))
            display->setScale(scale);
    hideTip();
    damageAll();
}

void View::chooseScale(double scale)
{
    setScale(scale);
    settings_.scale = scale_;
    remember();
    if (host_) host_->resize(width(), height());
}

void View::setVariant(const std::string& variant)
{
    if (variant == theme_->variant()) return;
    settings_.variant = variant;
    setTheme();
}

void View::remember()
{
    if (remember_) remember_(settings_);
}

// Drawing

void View::damage(const Rect& rect)
{
    gather(damage_, rect);
}

void View::moved(const Rect& rect)
{
    gather(moved_, rect);
    // What is typed lies over everything.
    if (entry_ && entry_->request.field.overlaps(rect)) damage(entry_->request.field.inset(-1));
}

void View::damageStatic(const Rect& rect)
{
    staticDamage_.push_back(rect);
    damage(rect);
}

void View::damageAll()
{
    const Rect all{0, 0, form_.width * kUnit, form_.height * kUnit};
    damage_ = {all};
    staticDamage_ = {all};
}

PixelRect View::pixels(const Rect& rect) const
{
    const auto down = [&](double v, int most) {
        return std::clamp(static_cast<int>(std::floor(v * scale_ + 1e-6)), 0, most);
    };
    const auto up = [&](double v, int most) {
        return std::clamp(static_cast<int>(std::ceil(v * scale_ - 1e-6)), 0, most);
    };
    const int x = down(rect.x, width()), y = down(rect.y, height());
    return {x, y, up(rect.right(), width()) - x, up(rect.bottom(), height()) - y};
}

void View::drawStatic()
{
    if (static_.width() != width() || static_.height() != height()) {
        static_ = Image(width(), height());
        staticDamage_ = {{0, 0, form_.width * kUnit, form_.height * kUnit}};
    }
    if (staticDamage_.empty()) return;
    Canvas canvas(static_.pixels(), scale_, *fonts_, *theme_);
    for (const auto& rect : staticDamage_) {
        const auto saved = canvas.save();
        canvas.clip(rect);
        canvas.fill({0, 0, form_.width * kUnit + 1, form_.height * kUnit + 1}, Color::Background);
        for (const auto& part : parts_)
            if (isShown(part) && part.control->bounds().overlaps(rect))
                part.control->drawStatic(canvas);
    }
    staticDamage_.clear();
}

/// What is damaged, in pixels that none shares with another.
std::vector<PixelRect> View::takeDamage()
{
    std::vector<PixelRect> rects;
    for (const auto& damaged : damage_) {
        auto rect = pixels(damaged);
        if (rect.isEmpty()) continue;
        for (std::size_t i = 0; i < rects.size();) {
            if (!rects[i].overlaps(rect)) {
                ++i;
                continue;
            }
            rect = rect.united(rects[i]);
            rects.erase(rects.begin() + static_cast<std::ptrdiff_t>(i));
            i = 0;
        }
        rects.push_back(rect);
    }
    damage_.clear();
    return rects;
}

void View::drawMoved(const Pixels& picture)
{
    Canvas canvas(picture, scale_, *fonts_, *theme_);
    canvas.setGround(static_.pixels());
    for (const auto& part : parts_)
        if (isShown(part)) part.control->drawMoved(canvas);
}

std::vector<PixelRect> View::draw(const Pixels& picture, bool all)
{
    if (picture.width < width() || picture.height < height()) return {};
    if (all) damage_ = {{0, 0, form_.width * kUnit, form_.height * kUnit}};
    if (damage_.empty() && moved_.empty()) return {};
    drawStatic();
    std::vector<PixelRect> told;
    for (const auto& rect : std::exchange(moved_, {}))
        if (const auto part = pixels(rect); !part.isEmpty()) told.push_back(part);
    if (!told.empty()) drawMoved(picture);
    const auto rects = takeDamage();
    if (rects.empty()) return told;
    const auto isCovered = [this](const PixelRect& rect) {
        return std::any_of(parts_.begin(), parts_.end(), [&](const FormPart& part) {
            const auto covered = part.control->covered();
            if (covered.isEmpty() || !isShown(part)) return false;
            const auto device = [this](double v) {
                return static_cast<int>(std::lround(v * scale_));
            };
            const PixelRect own{device(covered.x), device(covered.y),
                                static_cast<int>(covered.w * scale_ + 1e-6),
                                static_cast<int>(covered.h * scale_ + 1e-6)};
            const auto common = own.common(rect);
            return common.w == rect.w && common.h == rect.h;
        });
    };
    for (const auto& r : rects) {
        if (isCovered(r)) continue;
        for (int y = r.y; y < r.bottom(); ++y) {
            const auto& from = static_.pixels();
            std::memcpy(reinterpret_cast<char*>(picture.data) + y * picture.stride + r.x * 4,
                        reinterpret_cast<const char*>(from.data) + y * from.stride + r.x * 4,
                        static_cast<std::size_t>(r.w) * 4);
        }
    }
    Canvas canvas(picture, scale_, *fonts_, *theme_);
    canvas.clip(rects);
    for (const auto& part : parts_)
        if (isShown(part) && canvas.sees(part.control->bounds().inset(-2)))
            part.control->draw(canvas);
    if (isKeyboardMode_ && focus_ && !entry_)
        canvas.strokeRounded(focus_->bounds().inset(-kRing), 7, kRingWidth, Color::Focus);
    if (entry_)
        entry_->line.draw(canvas, entry_->request.field, entry_->request.type,
                          entry_->request.align, !entry_->reason.empty());
    told.insert(told.end(), rects.begin(), rects.end());
    return told;
}

void View::tick(double seconds)
{
    now_ = seconds;
    model_.tick(seconds);
    for (const auto& part : parts_)
        if (isShown(part)) part.control->tick(seconds);
    const bool rests =
        !hasRested_ && hovered_ && !held_ && !popup_ && !entry_ && seconds - movedAt_ >= kRest;
    if (!rests) return;
    hasRested_ = true;
    if (settings_.tips) showTip(hovered_->tip(), hovered_->bounds());
}

// Pages

void View::showPage(int page)
{
    page = std::clamp(page, 0, countPages() - 1);
    if (page == page_) return;
    endEntry();
    hover(nullptr);
    page_ = page;
    if (focus_) setFocus(nullptr);
    damageAll();
}

std::vector<Control*> View::controls(int page) const
{
    std::vector<Control*> found;
    for (const auto& part : parts_)
        if (part.page < 0 || part.page == page) found.push_back(part.control.get());
    return found;
}

std::vector<std::string> View::texts() const
{
    std::vector<std::string> lines;
    for (const auto& part : parts_) {
        const auto& c = *part.control;
        if (c.kind() == "Ground" || c.kind() == "Well") continue;
        std::string line;
        if (part.page > 0) line += pages_[static_cast<std::size_t>(part.page)] + " / ";
        if (!part.panel.empty()) line += part.panel + " / ";
        line += c.title();
        if (const auto value = c.describe(); !value.empty()) line += ": " + value;
        lines.push_back(std::move(line));
    }
    return lines;
}

std::vector<std::string> View::problems() const
{
    std::vector<std::string> problems;
    const Rect form{0, 0, form_.width * kUnit, form_.height * kUnit};
    for (std::size_t i = 0; i < parts_.size(); ++i) {
        const auto& a = *parts_[i].control;
        std::vector<std::string> own;
        a.check(*fonts_, *theme_, own);
        const auto what = [](const Control& c) { return c.kind() + " \"" + c.title() + "\""; };
        if (!form.inset(-0.5).contains(a.bounds())) own.push_back(what(a) + " leaves the form");
        const bool isTarget = a.takesFocus() && a.kind() != "Display";
        if (isTarget && (a.bounds().w < kRowHeight - 0.5 || a.bounds().h < kRowHeight - 0.5) &&
            a.kind() != "Presets")
            own.push_back(what(a) + " is too small for a hand");
        for (std::size_t k = 0; k < i; ++k) {
            const auto& b = *parts_[k].control;
            const bool areApart =
                parts_[i].page >= 0 && parts_[k].page >= 0 && parts_[i].page != parts_[k].page;
            const auto isGround = [](const Control& c) {
                return c.kind() == "Ground" || c.kind() == "Well";
            };
            if (areApart || isGround(a) || isGround(b)) continue;
            if (a.bounds().inset(0.5).overlaps(b.bounds().inset(0.5)))
                own.push_back(what(a) + " lies on " + what(b));
        }
        for (auto& problem : own)
            problems.push_back(form_.name + ", " +
                               (parts_[i].panel.empty() ? "" : parts_[i].panel + ", ") +
                               std::move(problem));
    }
    return problems;
}

// Pointer

Control* View::at(double x, double y) const
{
    for (auto part = parts_.rbegin(); part != parts_.rend(); ++part)
        if (isShown(*part) && part->control->bounds().contains(x, y) &&
            part->control->kind() != "Ground" && part->control->kind() != "Well")
            return part->control.get();
    return nullptr;
}

void View::hover(Control* control)
{
    if (hovered_ == control) return;
    if (hovered_) hovered_->hover(false);
    hovered_ = control;
    if (hovered_) hovered_->hover(true);
}

void View::pointer(const PointerEvent& event)
{
    auto own = event;
    own.x /= scale_;
    own.y /= scale_;
    if (entryPointer(own)) return;
    const bool hasMoved = own.x != pointer_.x || own.y != pointer_.y;
    if (hasMoved || event.action != PointerAction::Move) {
        movedAt_ = event.seconds;
        hasRested_ = false;
        if (event.action != PointerAction::Leave) hideTip();
    }
    pointer_ = {own.x, own.y};
    const bool isPress = event.action == PointerAction::Press;
    const bool isRelease = event.action == PointerAction::Release;
    // One button at a time: what another does in the midst of a drag is nobody's.
    if (held_ && (isPress || isRelease) && event.button != heldButton_) return;
    if (held_ && isPress) {  // a menu or another window has got its release
        auto missed = own;
        missed.action = PointerAction::Release;
        std::exchange(held_, nullptr)->pointer(missed);
    }
    auto* const under = event.action == PointerAction::Leave ? nullptr : at(own.x, own.y);
    if (!held_) hover(under);
    if (hovered_) hovered_->hoverAt(own.x, own.y);
    if (isPress) {
        held_ = under;
        heldButton_ = event.button;
        if (held_ && held_->takesFocus()) setFocus(held_);
    }
    if (auto* const target = held_ ? held_ : under) target->pointer(own);
    if (isPress && popup_) held_ = nullptr;  // a menu, which gets what comes now
    if (isRelease) {
        held_ = nullptr;
        hover(under);
    }
}

void View::wheel(const WheelEvent& event)
{
    auto own = event;
    own.x /= scale_;
    own.y /= scale_;
    movedAt_ = event.seconds;
    hideTip();
    if (entry_ || held_) return;
    if (auto* const under = at(own.x, own.y)) under->wheel(own);
}

bool View::drop(double x, double y, const std::string& path)
{
    auto* const under = at(x / scale_, y / scale_);
    if (under && under->drop(path)) return true;
    // A form with one place for files takes them anywhere.
    for (const auto& part : parts_)
        if (isShown(part) && part.control->kind() == "File") return part.control->drop(path);
    return false;
}

// Keyboard

void View::setFocus(Control* control)
{
    if (focus_ == control) return;
    for (auto* changed : {focus_, control})
        if (changed) {
            damage(changed->bounds().inset(-kRing - 1));
            changed->setFocus(changed == control);
        }
    focus_ = control;
}

void View::setKeyboardMode(bool on)
{
    if (isKeyboardMode_ == on) return;
    isKeyboardMode_ = on;
    if (focus_) damage(focus_->bounds().inset(-kRing - 1));
    if (host_) host_->wantKeyboard(on);
}

bool View::moveFocus(int by)
{
    std::vector<const FormPart*> stops;
    int at = -1;
    for (const auto& part : parts_) {
        if (!part.control->takesFocus()) continue;
        if (part.control.get() == focus_) at = static_cast<int>(stops.size());
        stops.push_back(&part);
    }
    if (stops.empty()) return false;
    const int count = static_cast<int>(stops.size());
    const int next = at < 0 ? (by > 0 ? 0 : count - 1) : (at + by + count) % count;
    const auto& part = *stops[static_cast<std::size_t>(next)];
    if (part.page >= 0) showPage(part.page);
    setFocus(part.control.get());
    return true;
}

bool View::key(const KeyEvent& event)
{
    hideTip();
    if (entry_) return entryKey(event);
    if (event.key == Key::Tab && !(event.modifiers & (kControl | kAlt))) {
        const bool wasOn = isKeyboardMode_;
        setKeyboardMode(true);
        // The first Tab shows where the focus is, if a press has put it somewhere.
        if (!wasOn && focus_) return true;
        return moveFocus(event.modifiers & kShift ? -1 : 1);
    }
    if (!isKeyboardMode_) {
        if (event.key == Key::F1 && hovered_) {
            showTip(hovered_->tip(), hovered_->bounds());
            return true;
        }
        return false;
    }
    if (event.key == Key::Escape) {
        setKeyboardMode(false);
        return true;
    }
    if (!focus_) return false;
    if (event.key == Key::F1) {
        showTip(focus_->tip(), focus_->bounds());
        return true;
    }
    return focus_->key(event);
}

void View::keyboardLost()
{
    endEntry();
    if (isKeyboardMode_ && focus_) damage(focus_->bounds().inset(-kRing - 1));
    isKeyboardMode_ = false;
}

// Text entry

void View::editText(const Control& owner, TextRequest request)
{
    endEntry();
    hideTip();
    TextEntry line(
        request.text, request.isSelected,
        {[this](const std::string& text) { copyText(text); }, [this] { return pasteText(); }});
    damage(request.field);
    entry_.emplace(Entry{&owner, std::move(request), std::move(line), {}});
    if (host_) host_->wantKeyboard(true);
}

void View::endEntry()
{
    if (!entry_) return;
    damage(entry_->request.field.inset(-1));
    entry_.reset();
    isEntryHeld_ = false;
    hideTip();
    if (host_ && !isKeyboardMode_) host_->wantKeyboard(false);
}

bool View::takeEntry()
{
    auto take = entry_->request.take;
    std::string reason;
    if (!take(entry_->line.text(), reason)) {
        entry_->reason = reason.empty() ? "This cannot be taken" : reason;
        damage(entry_->request.field);
        showTip({entry_->reason, {}, {}}, entry_->request.field);
        return false;
    }
    endEntry();
    return true;
}

bool View::entryKey(const KeyEvent& event)
{
    damage(entry_->request.field);
    switch (entry_->line.key(event)) {
    case TextEntry::Result::Unused:
        return false;
    case TextEntry::Result::Used:
        entry_->reason.clear();
        return true;
    case TextEntry::Result::Leave:
        endEntry();
        return true;
    case TextEntry::Result::Take:
        takeEntry();
        return true;
    case TextEntry::Result::TakeAndNext:
    case TextEntry::Result::TakeAndPrevious: {
        const bool isBack = event.modifiers & kShift;
        const auto goOn = isBack ? nullptr : entry_->request.goOn;
        if (!takeEntry()) return true;
        setKeyboardMode(true);
        if (!goOn || !goOn()) moveFocus(isBack ? -1 : 1);
        return true;
    }
    }
    return true;
}

bool View::entryPointer(const PointerEvent& event)
{
    if (!entry_) return false;
    const auto& request = entry_->request;
    const bool isInside = request.field.contains(event.x, event.y);
    if (event.action == PointerAction::Press && !isInside) {
        // A press elsewhere takes what can be taken and leaves the rest.
        if (!takeEntry()) endEntry();
        return false;
    }
    const bool points = (event.action == PointerAction::Press && event.button == 1) ||
                        (event.action == PointerAction::Move && isEntryHeld_);
    if (points) {
        Canvas canvas(static_.pixels(), scale_, *fonts_, *theme_);
        entry_->line.point(canvas, request.field, request.type, request.align, event.x,
                           event.action == PointerAction::Move);
        damage(request.field);
    }
    if (event.action == PointerAction::Press) isEntryHeld_ = true;
    if (event.action == PointerAction::Release) isEntryHeld_ = false;
    return true;
}

// Popups

}  // namespace quillworks::editors
