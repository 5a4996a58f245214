// SPDX-License-Identifier: ISC
// Responses that are loaded, changed and given up while the audio thread plays. Meant for the
// thread sanitizer.
#include <atomic>
#include <filesystem>
#include <thread>
#include <unistd.h>

#include "tests/support/effect_under_test.h"
#include "vnk/file.h"
#include "vnk/sound_file.h"

namespace quillworks::test {
namespace {

std::string written(const std::string& name, double rate, std::size_t channels, std::size_t frames)
{
    VNK::Sound<float> sound{rate, {}, 0};
    for (std::size_t c = 0; c < channels; ++c) {
        auto& x = sound.channels.emplace_back(noise<float>(frames, unsigned(c)));
        for (std::size_t i = 0; i < frames; ++i)
            x[i] *= float(std::exp2(-20 * double(i) / double(frames)));
    }
    std::string content, reason;
    EXPECT_TRUE(VNK::encodeSound(sound, VNK::SoundKind::WavFloat, content, reason)) << reason;
    const auto path =
        std::filesystem::path(::testing::TempDir()) / (std::to_string(::getpid()) + name);
    EXPECT_TRUE(VNK::writeFile(path.c_str(), content.data(), content.size(), reason)) << reason;
    return path.string();
}

TEST(ResponseLoading, WhileProcessingWhileLoadingAndUntilItsEffectIsDestroyed)
{
    const std::string files[] = {written("a.wav", 48000, 2, 9000), written("b.wav", 44100, 1, 5000),
                                 written("c.wav", 48000, 4, 20000), "/nowhere/none.wav"};
    const Channels<float> x(2, noise<float>(64));
    Channels<float> y = x;
    for (int round = 0; round < 6; ++round) {
        EffectUnderTest<float> fx("Vaulter");
        fx.prepare(2, 64);
        const auto& component = fx.component();
        std::atomic<bool> stop{false};
        std::thread audio([&] {
            for (int block = 0; !stop.load(); ++block) {
                if (block % 50 == 0) component.automate(fx.indexOf("start"), float(block % 7));
                if (block % 90 == 0)
                    component.automate(fx.indexOf("tailmode"), float(block % 4 / 2));
                fx.processBlock(x, y, 0, 64);
                std::this_thread::yield();
            }
        });
        const int text = component.findText("irfile");
        for (int change = 0; change < 12; ++change) {
            component.setText(text, files[(change + round) % 4].c_str());
            // Ready it may never be while automation asks for another.
            if (change % 3 == 0) std::this_thread::sleep_for(std::chrono::milliseconds(50));
            VNK::StringSink state;
            component.saveState(state);
            if (change % 4 == 3) component.loadState(state.text().data(), state.text().size());
            component.textProblem(text);
            std::this_thread::sleep_for(std::chrono::milliseconds(3 * round));
        }
        stop = true;
        audio.join();
        waitUntilReady(component);  // once nobody asks for another any more
        EXPECT_TRUE(isFinite(y[0]));
        component.setText(text, files[2].c_str());  // and it goes
    }
    for (const auto& file : files) std::filesystem::remove(file);
}

}  // namespace
}  // namespace quillworks::test
