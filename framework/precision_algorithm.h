// SPDX-License-Identifier: ISC
// Glue between the frame and a core that exists in both precisions.
#pragma once

#include <algorithm>
#include <map>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "framework/core.h"
#include "framework/effect_algorithm.h"

namespace quillworks {

/// Each fault of a core as a message of its own.
template <class C, typename T> constexpr bool isCore()
{
    static_assert(!std::is_final_v<C>, "a core is not final: its hooks are looked for by deriving");
    static_assert(CoreVerbs<C, T>,
                  "a core has prepare, reset, apply and process (framework/core.h)");
    static_assert(SaysItsHooks<C>, "a core has static constexpr CoreHooks kHooks");
    static_assert(hasTempoHookAsSaid<C>(),
                  "kHooks.tempo and void setTempo(double) noexcept go together");
    static_assert(hasWetOnlyHookAsSaid<C>(),
                  "kHooks.wetOnly and void setWetOnly(bool) noexcept go together");
    static_assert(hasPublishHookAsSaid<C>(),
                  "kHooks.publish and void publish(MeterSlots&) noexcept go together");
    return true;
}

/// Keeps one core alive, float or double, by the precision of the host. Values arrive by the rows
/// of the effect's table: a changed value is stored in its field and its groups are marked.
template <template <typename> class CoreOf, class Base = AudioInsertAlgorithm>
class PrecisionAlgorithm : public Base {
public:
    using Settings = typename CoreOf<float>::Settings;
    static_assert(isCore<CoreOf<float>, float>() && isCore<CoreOf<double>, double>());

    explicit PrecisionAlgorithm(std::span<const Parameter<Settings>> rows)
        : PrecisionAlgorithm(tableOf(rows))
    {}

    void setParameter(Tag tag, float value) noexcept override
    {
        const auto& byTag = table_->byTag;
        const auto at = std::lower_bound(byTag.begin(), byTag.end(), tag,
                                         [](const Entry& e, Tag t) { return e.tag < t; });
        if (at == byTag.end() || at->tag != tag) return;
        if (float* field = fieldOf(settings_, *at->row, at->index))
            store(*field, value, at->row->dirty);
        else
            markDirty(at->row->dirty);
    }

protected:
    /// Stores a value and marks `groups` if it differs. For effects that couple parameters.
    void store(float& field, float value, unsigned groups) noexcept
    {
        if (field == value) return;
        field = value;
        dirty_ |= groups;
    }
    void markDirty(unsigned groups) noexcept { dirty_ |= groups; }
    Settings& settings() noexcept { return settings_; }
    const Settings& settings() const noexcept { return settings_; }

    /// f(core) on the core in use.
    template <class F> void withCore(F&& f)
    {
        if (float_)
            f(*float_);
        else if (double_)
            f(*double_);
    }

    void prepareCore(const ProcessSpec& spec, VNK::Precision precision) override
    {
        const bool wantsFloat = precision == VNK::Precision::Float;
        if (wantsFloat) {
            double_.reset();
            if (!float_) float_ = std::make_unique<CoreOf<float>>();
        } else {
            float_.reset();
            if (!double_) double_ = std::make_unique<CoreOf<double>>();
        }
        withCore([&](auto& core) {
            core.prepare(spec);
            core.apply(settings_, ~0u);
        });
        dirty_ = 0;
    }
    void resetCore() noexcept override
    {
        withCore([](auto& core) { core.reset(); });
    }
    void applyChanges() noexcept override
    {
        const unsigned dirty = std::exchange(dirty_, 0u);
        if (dirty != 0) withCore([&](auto& core) { core.apply(settings_, dirty); });
    }
    void setCoreTempo(double beatsPerMinute) noexcept override
    {
        withCore([&](auto& core) {
            if constexpr (kHooks.tempo) core.setTempo(beatsPerMinute);
        });
    }
    void setCoreWetOnly(bool wetOnly) noexcept override
    {
        withCore([&](auto& core) {
            if constexpr (kHooks.wetOnly) core.setWetOnly(wetOnly);
        });
    }
    void processCore(const AudioBlock<float>& block) noexcept override { float_->process(block); }
    void processCore(const AudioBlock<double>& block) noexcept override { double_->process(block); }
    void publish(MeterSlots& meters) noexcept override
    {
        withCore([&](auto& core) {
            if constexpr (kHooks.publish) core.publish(meters);
        });
    }

private:
    static constexpr CoreHooks kHooks = CoreOf<float>::kHooks;

    struct Entry {
        Tag tag;
        int index;
        const Parameter<Settings>* row;
    };

    /// What all instances of a class share, made for the first of them.
    struct Table {
        explicit Table(std::span<const Parameter<Settings>> rows)
            : list(std::make_shared<AlgorithmParameterList>(rows))
        {
            for (const auto& row : rows)
                for (int i = 0; i < row.count(); ++i) {
                    if (row.isMeter()) continue;
                    byTag.push_back({row.tag + static_cast<Tag>(i), i, &row});
                    if (float* field = fieldOf(defaults, row, i))
                        *field = row.forward(row.defaultAt(i));
                }
            std::sort(byTag.begin(), byTag.end(),
                      [](const Entry& a, const Entry& b) { return a.tag < b.tag; });
        }

        std::shared_ptr<const AlgorithmParameterList> list;
        std::vector<Entry> byTag;
        Settings defaults{};
    };

    /// Of these rows, which live as long as the process. [any thread]
    static const Table& tableOf(std::span<const Parameter<Settings>> rows)
    {
        static std::mutex mutex;
        static std::map<const void*, Table> tables;  // classes may share a core
        const std::lock_guard lock(mutex);
        return tables.try_emplace(rows.data(), rows).first->second;
    }

    explicit PrecisionAlgorithm(const Table& table)
        : Base(table.list), table_(&table), settings_(table.defaults)
    {}

    static float* fieldOf(Settings& settings, const Parameter<Settings>& row, int index) noexcept
    {
        if (row.family.element) return &row.family.element(settings, index);
        return row.field ? &(settings.*row.field) : nullptr;
    }

    std::unique_ptr<CoreOf<float>> float_;
    std::unique_ptr<CoreOf<double>> double_;
    unsigned dirty_ = 0;
    const Table* table_;
    Settings settings_{};
};

}  // namespace quillworks
