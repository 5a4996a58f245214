// SPDX-License-Identifier: ISC
// The small effect in its frame, as the tests of the frame drive it.
#pragma once

#include <vector>

#include <gtest/gtest.h>

#include "tests/framework/probe_effect.h"
#include "tests/support/audio_thread_guard.h"
#include "tests/support/signals.h"
#include "vnk/effect_runner.h"

namespace quillworks::test {

class Frame : public ::testing::Test {
protected:
    Frame()
    {
        component->identify(VNK::UID::constant("{00000000-0000-4000-8000-000000000001}"), "Probe");
    }
    void prepare(int channels = 1, int frames = 480, double rate = 48000)
    {
        const auto layout = VNK::SpeakerArrangement::withChannels(channels);
        ASSERT_TRUE(VNK::EffectRunner(*algorithm)
                        .prepare({layout, layout, VNK::Precision::Float, rate, frames}));
    }
    Channels<float> play(Channels<float> x, int outputs = 0, const Channels<float>& side = {})
    {
        Channels<float> y(outputs ? static_cast<std::size_t>(outputs) : x.size(),
                          Signal<float>(x[0].size(), 99.f));
        const AudioThreadGuard guard;
        VNK::EffectRunner(*algorithm)
            .process<float>({x, int(x.size())}, {y, int(y.size())}, int(x[0].size()),
                            {side, int(side.size())});
        return y;
    }
    void set(const char* key, float value)
    {
        ASSERT_TRUE(component->setValue(component->findParameter(key), value)) << key;
    }

    VNK::Ref<ProbeAlgorithm> algorithm = VNK::Ref<ProbeAlgorithm>::adopt(new ProbeAlgorithm);
    VNK::Ref<ProbeComponent> component =
        VNK::Ref<ProbeComponent>::adopt(new ProbeComponent(*algorithm));
};

}  // namespace quillworks::test
