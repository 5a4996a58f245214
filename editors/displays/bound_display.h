// SPDX-License-Identifier: ISC
// What the displays have in common: their bindings, and whether anything that they show is another
// than at the last tick.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "editors/display.h"
#include "editors/displays/values.h"
#include "editors/value_steps.h"

namespace quillworks::editors {

class BoundDisplay : public Display {
public:
    void tick(double seconds) override;

protected:
    BoundDisplay(const VNK::SkinBox& box, EffectModel& model)
        : model_(model), box_(box), turn_(model)
    {}

    EffectModel& model() const noexcept { return model_; }
    /// What an attribute of the box says; empty where it does not stand there.
    std::string attribute(const std::string& name) const;
    Value value(const std::string& name) const { return {model_, attribute(name)}; }
    Values values(const std::string& name) const { return {model_, attribute(name)}; }
    /// A wheel over what sets this parameter; false for -1.
    bool turn(int parameter, const WheelEvent& event);
    /// A fraction of the range on, by a key; false for -1.
    bool step(int parameter, double fraction);
    /// Too small for figures and titles.
    bool isSmall() const noexcept { return width() < 170 || height() < 90; }

    /// Numbers that all of the picture is made of: where one of them moves by more than nothing
    /// lookChanged() is called. Those of a display that knows its parts better are none.
    virtual void look(std::vector<double>& numbers) const = 0;
    /// The same of what drawStatic() draws.
    virtual void lookStatic(std::vector<double>&) const {}
    /// Before anything is drawn: damages what look() has changed, which may be the whole picture.
    virtual void lookChanged() { damage(); }
    /// Time has gone on, whatever has changed.
    virtual void ticked(double) {}

private:
    EffectModel& model_;
    const VNK::SkinBox& box_;
    WheelTurn turn_;
    std::vector<double> seen_, seenStatic_, now_;
};

/// A level to the nearest twentieth of a decibel, below which nobody sees a difference.
double seenDecibels(double db) noexcept;

}  // namespace quillworks::editors
