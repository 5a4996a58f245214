// SPDX-License-Identifier: ISC
// "NAME:key=value,key=value": an effect with settings, as the command line writes it.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "session.h"

namespace quillhost {

struct EffectSpec {
    std::string name;
    std::vector<std::pair<std::string, std::string>> values;
    std::vector<std::string> presets;  // files, loaded in turn before the values are set
};

/// UsageError when the text is not of this form. The name may be "lv2:URI": then the keys are
/// the symbols of that plug-in's ports. A part without "=" belongs to the value before it,
/// so that texts of lists may hold commas.
EffectSpec parseEffectSpec(const std::string& text);

/// Several in series, one behind the other: "NAME:key=value,NAME". A part that begins with the name
/// of an effect begins the next one.
std::vector<EffectSpec> parseChainSpec(const Session& session, const std::string& text);

/// Behind the name, for people; "default settings" where nothing is.
std::string settingsOf(const std::string& text);

/// The effect with presets loaded and values set.
Effect createEffect(const Session& session, const EffectSpec& spec);

/// The effect that a preset file is for, with the preset loaded. WorkError where it is none of
/// ours.
Effect createFromPreset(const Session& session, const std::string& path);

}  // namespace quillhost
