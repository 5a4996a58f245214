// SPDX-License-Identifier: ISC
#include "meter_log.h"

#include <nlohmann/json.hpp>

#include "text.h"

namespace quillhost {
namespace {

constexpr std::size_t kFlushAt = 1 << 16;

std::string keyText(const char* key)
{
    return nlohmann::json(key).dump() + ":";
}

void append(std::string& text, float value)
{
    text += std::isfinite(value) ? shortText(value) : "null";
}

}  // namespace

MeterLog::MeterLog(const std::string& path, const std::vector<Effect>& effects) : file_(path)
{
    for (const auto& effect : effects) {
        effect.component().setEditorOpen(true);
        Source source{effect, Displays(effect), {}, {}};
        for (int i = 0; i < effect.component().countMeters(); ++i) {
            VNK::MeterInfo info{};
            effect.component().getMeter(i, info);
            source.meterKeys.push_back(keyText(info.key));
        }
        for (int i = 0; i < effect.component().countParameters(); ++i)
            source.parameterKeys.push_back(keyText(effect.parameter(i).key));
        sources_.push_back(std::move(source));
    }
}

void MeterLog::write(const Chain& chain, std::size_t effect, std::int64_t frame, int frames)
{
    const auto& source = sources_[effect];
    const auto& component = source.effect.component();
    source.displays.update();
    text_ += "{\"frame\":" + shortText(frame) + ",\"frames\":" + shortText(frames) +
             ",\"fx\":" + shortText(effect) + ",\"values\":{";
    for (std::size_t i = 0; i < source.meterKeys.size(); ++i) {
        if (i) text_ += ',';
        text_ += source.meterKeys[i];
        append(text_, component.readMeter(static_cast<int>(i)));
    }
    text_ += "},\"parameters\":{";
    for (std::size_t i = 0; i < source.parameterKeys.size(); ++i) {
        if (i) text_ += ',';
        text_ += source.parameterKeys[i];
        append(text_, chain.value(effect, static_cast<int>(i)));
    }
    text_ += "}}\n";
    if (text_.size() > kFlushAt) flush();
}

void MeterLog::flush()
{
    file_.write(text_);
    text_.clear();
}

void MeterLog::finish()
{
    flush();
    file_.finish();
}

}  // namespace quillhost
