// SPDX-License-Identifier: ISC
// The small effect in its frame, as the tests of the frame drive it.
#pragma once

#include <vector>

#include <gtest/gtest.h>

#include "tests/framework/probe_effect.h"
#include "tests/support/audio_thread_guard.h"
#include "tests/support/signals.h"

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
        ASSERT_TRUE(algorithm->setSpeakerArrangement(layout, layout));
        ASSERT_TRUE(algorithm->setSampleRate(frames, rate));
        algorithm->reset();
    }
    Channels<float> play(Channels<float> x, int outputs = 0, const Channels<float>& side = {})
    {
        Channels<float> y(outputs ? static_cast<std::size_t>(outputs) : x.size(),
                          Signal<float>(x[0].size(), 99.f));
        std::vector<const void*> in, sideIn;
        std::vector<void*> out;
        for (auto& s : x) in.push_back(s.data());
        for (auto& s : side) sideIn.push_back(s.data());
        for (auto& s : y) out.push_back(s.data());
        VNK::ProcessData data{in.data(),     int(in.size()),     out.data(),      int(out.size()),
                              sideIn.data(), int(sideIn.size()), int(x[0].size())};
        const AudioThreadGuard guard;
        algorithm->process(data);
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
