// SPDX-License-Identifier: ISC
// A window that nobody sees: a surface with its popups, drawn into memory and fed with events.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "editors/canvas.h"
#include "editors/effect_model.h"

namespace quillworks::editors {

/// Passes on to the component what a hand does, and keeps a list of it.
class GestureRecorder final : public ParameterWriter {
public:
    struct Event {
        enum What { Begin, Value, End, BeginGroup, EndGroup } what;
        std::string key;
        float value = 0;
    };
    GestureRecorder(VNK::HostedEffect effect, std::vector<Event>& events);

    void begin(int parameter) override;
    void set(int parameter, float value) override;
    void end(int parameter) override;
    void beginGroup() override;
    void endGroup() override;

private:
    VNK::ParameterInfo info(int parameter) const;

    VNK::HostedEffect effect_;
    std::vector<Event>& events_;
};

class OffscreenWindow final : private SurfaceHost {
public:
    explicit OffscreenWindow(Surface& surface);
    ~OffscreenWindow();
    OffscreenWindow(const OffscreenWindow&) = delete;
    OffscreenWindow& operator=(const OffscreenWindow&) = delete;

    /// Lets time go on in ticks of 1/30 s and draws after each.
    void wait(double seconds);
    double seconds() const noexcept { return seconds_; }

    // In device pixels of the surface below; what lies on a popup is given to that.
    void move(double x, double y, unsigned modifiers = 0);
    void press(double x, double y, int button = 1, unsigned modifiers = 0);
    void release(double x, double y, int button = 1, unsigned modifiers = 0);
    void wheel(double x, double y, double notches, unsigned modifiers = 0);
    /// Whether anybody has used it.
    bool key(Key key, const std::string& text = {}, unsigned modifiers = 0);

    /// Draws what is damaged; returns where.
    std::vector<PixelRect> draw();
    /// The surface's picture; with popups above it where they lie within.
    const Image& picture();
    Image withPopups();
    bool hasKeyboard() const noexcept { return hasKeyboard_; }
    const std::shared_ptr<Surface>& popup() const noexcept { return popup_; }
    std::string clipboard;

private:
    void resize(int width, int height) override;
    void showPopup(std::shared_ptr<Surface> popup, int x, int y) override;
    void wantKeyboard(bool wanted) override { hasKeyboard_ = wanted; }
    void copyText(const std::string& text) override { clipboard = text; }
    std::string pasteText() override { return clipboard; }
    void pointer(PointerAction action, double x, double y, int button, unsigned modifiers);

    Surface& surface_;
    Image picture_;
    bool isWhole_ = true;  // nothing has been drawn yet
    std::shared_ptr<Surface> popup_;
    int popupX_ = 0, popupY_ = 0;
    double seconds_ = 0;
    bool hasKeyboard_ = false;
};

}  // namespace quillworks::editors
