// SPDX-License-Identifier: ISC
#include "adapters/clap/features.h"

#include <algorithm>
#include <string_view>

#include "adapters/clap/abi.h"

namespace quillworks::clap {
namespace {

struct FeatureOf {
    std::string_view name;
    const char* feature;
};

constexpr FeatureOf kSubCategories[] = {
    {"Distortion", CLAP_PLUGIN_FEATURE_DISTORTION}, {"Delay", CLAP_PLUGIN_FEATURE_DELAY},
    {"Reverb", CLAP_PLUGIN_FEATURE_REVERB},         {"Analysis", CLAP_PLUGIN_FEATURE_ANALYZER},
    {"Tool", CLAP_PLUGIN_FEATURE_UTILITY},          {"Mixing", CLAP_PLUGIN_FEATURE_MIXING},
    {"Spatial", CLAP_PLUGIN_FEATURE_MIXING},        {"Dynamics", CLAP_PLUGIN_FEATURE_COMPRESSOR},
};
constexpr FeatureOf kKinds[] = {
    {"compressor", CLAP_PLUGIN_FEATURE_COMPRESSOR}, {"limiter", CLAP_PLUGIN_FEATURE_LIMITER},
    {"strip", CLAP_PLUGIN_FEATURE_MULTI_EFFECTS},   {"chorus", CLAP_PLUGIN_FEATURE_CHORUS},
    {"flanger", CLAP_PLUGIN_FEATURE_FLANGER},       {"phaser", CLAP_PLUGIN_FEATURE_PHASER},
    {"filter", CLAP_PLUGIN_FEATURE_FILTER},         {"equaliser", CLAP_PLUGIN_FEATURE_EQUALIZER},
    {"tremolo", CLAP_PLUGIN_FEATURE_TREMOLO},       {"waveshaper", CLAP_PLUGIN_FEATURE_DISTORTION},
};

const char* find(const auto& table, std::string_view name)
{
    for (const auto& row : table)
        if (row.name == name) return row.feature;
    return nullptr;
}

}  // namespace

std::vector<const char*> featuresOf(const adapters::OfferedEffect& effect)
{
    std::vector<const char*> features{CLAP_PLUGIN_FEATURE_AUDIO_EFFECT};
    const auto add = [&](const char* feature) {
        if (feature && std::find(features.begin(), features.end(), feature) == features.end())
            features.push_back(feature);
    };
    const char* const finer = find(kKinds, effect.kind);
    add(finer ? finer : find(kSubCategories, effect.description->subCategory->text()));
    for (const auto& layout : effect.layouts) {
        const int channels = layout.output.channels;
        add(channels == 1   ? CLAP_PLUGIN_FEATURE_MONO
            : channels == 2 ? CLAP_PLUGIN_FEATURE_STEREO
                            : CLAP_PLUGIN_FEATURE_SURROUND);
    }
    return features;
}

}  // namespace quillworks::clap
