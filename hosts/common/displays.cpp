// SPDX-License-Identifier: ISC
#include "displays.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

#include "error.h"
#include "text.h"

namespace quillhost {
namespace {

using Json = nlohmann::ordered_json;

Json jsonOf(double value)
{
    return std::isfinite(value) ? Json(value) : Json(nullptr);
}

class JsonSink final : public VNK::IDisplaySink {
public:
    explicit JsonSink(Json& object) { open_.push_back(&object); }

    void beginObject(const char* key) override { open_.push_back(&add(key, Json::object())); }
    void beginList(const char* key) override { open_.push_back(&add(key, Json::array())); }
    void end() override { open_.pop_back(); }
    void number(const char* key, double value) override
    {
        // Counts and frames are whole.
        const bool isWhole = value == std::trunc(value) && std::abs(value) < 1e15;
        add(key, isWhole ? Json(static_cast<std::int64_t>(value)) : jsonOf(value));
    }
    void numbers(const char* key, const float* values, std::int64_t count) override
    {
        addAll(key, values, count);
    }
    void numbers(const char* key, const double* values, std::int64_t count) override
    {
        addAll(key, values, count);
    }
    void text(const char* key, const char* text) override { add(key, Json(text)); }
    void flag(const char* key, bool value) override { add(key, Json(value)); }

private:
    Json& add(const char* key, Json value)
    {
        Json& to = *open_.back();
        if (key) return to[key] = std::move(value);
        to.push_back(std::move(value));
        return to.back();
    }
    template <typename T> void addAll(const char* key, const T* values, std::int64_t count)
    {
        Json& list = add(key, Json::array());
        for (std::int64_t i = 0; i < count; ++i) list.push_back(jsonOf(double(values[i])));
    }

    std::vector<Json*> open_;  // innermost last; the parents of those last ones do not grow
};

}  // namespace

Displays::Displays(const Effect& effect)
    : displays_(effect.component().queryInterface<VNK::IEffectDisplays>())
{
    if (displays_) displays_->setDisplaysOpen(true);
}

Displays::~Displays()
{
    if (displays_) displays_->setDisplaysOpen(false);
}

std::vector<std::string> Displays::namesOf(const Effect& effect)
{
    std::vector<std::string> names;
    const auto displays = effect.component().queryInterface<VNK::IEffectDisplays>();
    for (int i = 0; displays && displays->displayName(i); ++i)
        names.emplace_back(displays->displayName(i));
    return names;
}

std::vector<std::string> Displays::chosen(const Effect& effect, std::vector<std::string> asked)
{
    const auto names = namesOf(effect);
    for (const auto& name : asked) {
        if (std::find(names.begin(), names.end(), name) != names.end()) continue;
        std::string list;
        for (const auto& n : names) list += (list.empty() ? "" : ", ") + n;
        throw UsageError(effect.name() + " has no display " + inQuotes(name) +
                         (list.empty() ? " (it has none)" : " (" + list + ")"));
    }
    return asked;
}

Json Displays::show(const std::string& name) const
{
    Json object = Json::object();
    JsonSink sink(object);
    if (!displays_->snapshot(name.c_str(), &sink))
        throw WorkError("there is not enough memory for the display " + name);
    return object;
}

}  // namespace quillhost
