// SPDX-License-Identifier: ISC
// Axes of displays: where a value lies, and which values carry a line and a figure.
#pragma once

#include <string>
#include <vector>

namespace quillworks::editors {

/// Values from `minimum` to `maximum` onto 0 .. 1, in equal steps or in equal ratios. The minimum
/// may be the larger one.
struct Axis {
    double minimum = 0, maximum = 1;
    bool isLogarithmic = false;

    double position(double value) const noexcept;
    double value(double position) const noexcept;
    /// Limited to 0 .. 1; where not-a-number stays what it is.
    double limited(double value) const noexcept;
};

struct Tick {
    double value = 0;
    std::string text;     // empty: a line alone
    bool isMain = false;  // ends of decades, zero
};

/// 20 Hz, 50 Hz, 100 Hz, ... with a line at every whole multiple of a decade. Texts in the short
/// form of instruments: "200", "5k".
std::vector<Tick> frequencyTicks(const Axis& hertz);
/// Multiples of the smallest of 1, 2, 5 times a power of ten, or of 3, 6, 12, 24 for decibels, that
/// leaves at most `most` of them.
std::vector<Tick> linearTicks(const Axis& axis, int most, bool inDecibels);

/// "−12", "0.5", "+3" where signed: U+2212 for the minus, as many decimals as asked for.
std::string figure(double value, int decimals = 0, bool isSigned = false);
/// "82", "440", "1.2k", "15k".
std::string shortFrequency(double hertz);
/// "82 Hz", "1.2 kHz".
std::string frequencyText(double hertz);
/// "12 ms", "1.5 s".
std::string shortTime(double seconds);

}  // namespace quillworks::editors
