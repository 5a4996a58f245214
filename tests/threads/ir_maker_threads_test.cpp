// SPDX-License-Identifier: ISC
// A measurement that is started, changed, stopped and destroyed from one thread while another
// processes and the worker solves.
#include <atomic>
#include <filesystem>
#include <gtest/gtest.h>
#include <thread>

#include "module/class_registry.h"
#include "vnk/effect_runner.h"
#include "vnk/hosted_effect.h"

namespace quillworks {
namespace {

TEST(IrMakerThreads, StartStopChangeAndDestroyWhileTheWorkerSolves)
{
    const auto folder =
        std::filesystem::temp_directory_path() / ("ir_maker_threads" + std::to_string(::getpid()));
    std::filesystem::create_directories(folder);
    for (int round = 0; round < 4; ++round) {
        auto effect = VNK::HostedEffect::adopt(createEffect("IR Maker"));
        ASSERT_TRUE(effect);
        ASSERT_TRUE(effect.setText(effect.findText("folder"), folder.c_str()));
        const auto set = [&](const char* key, float value) {
            effect.setValue(effect.findParameter(key), value);
        };
        set("sweeplength", 1), set("taillength", 0.5f), set("harmonics", 1);
        VNK::EffectRunner runner(*effect.algorithm());
        const auto stereo = VNK::SpeakerArrangement::withChannels(2);
        ASSERT_TRUE(runner.prepare({stereo, stereo, VNK::Precision::Float, 8000, 64}));

        std::atomic<bool> isOver{false};
        std::atomic<int> blocks{0};
        std::thread audio([&] {
            std::vector<float> x(2 * 64);
            float* const rows[] = {x.data(), x.data() + 64};
            // Its own output is what comes back.
            for (; !isOver; ++blocks) runner.process<float>({rows, 2, 0}, {rows, 2, 0}, 64);
        });
        const auto passed = [&](int n) {
            for (const int from = blocks; blocks < from + n;) std::this_thread::yield();
        };
        for (int i = 0; i < 6; ++i) {
            set("start", 1);
            set("lowfreq", static_cast<float>(20 + i));
            passed(200 << (i % 3));
            effect.setText(effect.findText("name"), ("take " + std::to_string(i)).c_str());
            if (i % 2) set("stop", 1);
            for (int m = 0; m < effect.countMeters(); ++m) effect.readMeter(m);
        }
        set("start", 1);
        std::int64_t busy = 1;  // the last goes on to its end, to be destroyed while it is solved
        passed(600);
        while (!effect.getInteger("busy", busy) || busy == 0) std::this_thread::yield();
        isOver = true;
        audio.join();
    }
    std::filesystem::remove_all(folder);
}

}  // namespace
}  // namespace quillworks
