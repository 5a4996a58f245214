// SPDX-License-Identifier: ISC
// Displays of effects as diagrams.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "picture.h"
#include "session.h"

namespace quillhost {

/// What a display shows, and the effect whose parameters say how it wants to be drawn.
struct ShownDisplay {
    const nlohmann::ordered_json& shown;
    const Effect& effect;
    int sampleRate;
    Colour accent;

    /// The value of a parameter in its own unit; 0 where the effect has none of that key.
    double value(const char* key) const;
    /// Of the n-th channel.
    Colour colour(std::size_t channel) const;
    std::string name(const char* list, std::size_t i) const { return shown[list][i]["name"]; }
};

/// Draws below title and subtitle. WorkError where there is nothing to draw yet or no drawing for
/// this display.
void drawDisplay(const std::string& name, const ShownDisplay& display, Picture& picture);

/// Numbers of a list, not-a-number for null; none where the list itself is null.
std::vector<double> numbersOf(const nlohmann::ordered_json& list);

inline constexpr double kDisplayTop = 84;  // px, below title and subtitle

// Of the spectrum meter.
void drawSpectrum(const ShownDisplay& display, Picture& picture);
void drawBands(const ShownDisplay& display, Picture& picture);
void drawSonogram(const ShownDisplay& display, Picture& picture);
// Of the phase meter.
void drawGoniometer(const ShownDisplay& display, Picture& picture);
void drawBandCorrelation(const ShownDisplay& display, Picture& picture);
void drawMatrix(const ShownDisplay& display, Picture& picture);

}  // namespace quillhost
