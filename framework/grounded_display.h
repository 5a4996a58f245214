// SPDX-License-Identifier: ISC
// Effects with displays of their own whose editors also draw the spectrum of the output as the
// ground of a curve.
#pragma once

#include <string_view>

#include "framework/display_engine.h"
#include "framework/spectrum_ground.h"

namespace quillworks {

/// The algorithm: each core gets the second ring by `void setGround(CaptureRing&) noexcept` and
/// writes what it puts out.
template <template <typename> class CoreOf, class Engine, class Base = AudioInsertAlgorithm>
class GroundedAlgorithm : public DisplayAlgorithm<CoreOf, Engine, Base> {
    using Own = DisplayAlgorithm<CoreOf, Engine, Base>;

public:
    using Own::Own;

    DisplayFeed& groundFeed() noexcept { return feed_; }
    SpectrumGround& ground() noexcept { return ground_; }

protected:
    void prepareCore(const ProcessSpec& spec, VNK::Precision precision) override
    {
        feed_.prepare(spec, ground_);
        Own::prepareCore(spec, precision);
        this->withCore([this](auto& core) { core.setGround(feed_.ring()); });
    }
    void resetCore() noexcept override
    {
        feed_.ring().reset();
        Own::resetCore();
    }

private:
    SpectrumGround ground_;
    DisplayFeed feed_;
};

/// The component of such an effect. Algorithm is a GroundedAlgorithm.
template <class Algorithm> class GroundedComponent : public DisplayComponent<Algorithm> {
    using Own = DisplayComponent<Algorithm>;

public:
    GroundedComponent(Algorithm& algorithm, EffectTraits traits, std::vector<const char*> names)
        : Own(algorithm, std::move(traits), std::move(names)), grounded_(algorithm)
    {}

    void setDisplaysOpen(bool open) noexcept final
    {
        Own::setDisplaysOpen(open);
        grounded_.groundFeed().setOpen(open, grounded_.ground(), this->meterSlots());
    }
    void updateDisplays() noexcept final
    {
        Own::updateDisplays();
        grounded_.groundFeed().update(grounded_.ground(), this->meterSlots(), [] {});
    }
    bool snapshot(const char* name, VNK::IDisplaySink* sink) noexcept final
    {
        if (!name || std::string_view(name) != kSpectrumGround) return Own::snapshot(name, sink);
        return sink && grounded_.groundFeed().show(grounded_.ground(), 0, *sink);
    }

private:
    Algorithm& grounded_;
};

}  // namespace quillworks
