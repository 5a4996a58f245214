// SPDX-License-Identifier: ISC
// Factory and own presets as one list.
#pragma once

#include "editors/control.h"

namespace quillworks::editors {

class Presets {
public:
    explicit Presets(EffectModel& model) : model_(model) {}

    std::string name() const;
    bool isModified() const;
    /// The preset `by` places further, around the ends.
    void step(int by);
    ListContent list();
    bool canSave() const noexcept { return model_.userPresets(); }
    /// Whether the present one is the user's own.
    bool isOwn() const;
    bool save(const std::string& name, bool replace, std::string& reason);
    bool rename(const std::string& name, std::string& reason);
    bool remove(std::string& reason);

private:
    struct Entry {
        std::string name;
        int index = 0;
        bool isOwn = false;
    };
    std::vector<Entry> all() const;
    int current(const std::vector<Entry>& entries) const;
    void load(const Entry& entry);
    int ownIndex() const;

    EffectModel& model_;
    std::string loaded_;
    bool isLoadedOwn_ = false;
};

}  // namespace quillworks::editors
