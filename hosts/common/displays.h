// SPDX-License-Identifier: ISC
// What the displays of an effect show.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "session.h"
#include "vnk/effect_displays.h"

namespace quillhost {

/// Reads an effect's displays while it lives; without displays there is nothing to read.
class Displays {
public:
    explicit Displays(const Effect& effect);
    ~Displays();
    Displays(Displays&& other) noexcept = default;
    Displays& operator=(Displays&&) = delete;

    static std::vector<std::string> namesOf(const Effect& effect);
    /// The names asked for; UsageError, which lists the effect's, where one is not among them.
    static std::vector<std::string> chosen(const Effect& effect, std::vector<std::string> asked);

    void update() const noexcept
    {
        if (displays_) displays_->updateDisplays();
    }
    /// What it shows, as an object; WorkError when memory runs out.
    nlohmann::ordered_json show(const std::string& name) const;

private:
    VNK::Ref<VNK::IEffectDisplays> displays_;
};

}  // namespace quillhost
