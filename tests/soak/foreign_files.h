// SPDX-License-Identifier: ISC
// Files that come, change, break and go while effects play what they hold.
#pragma once

#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/signals.h"
#include "vnk/file.h"
#include "vnk/sound_file.h"

namespace quillworks::test {

/// A folder of decaying noises as sound files, from mono to 16 channels and 8 to 192 kHz, one that
/// ends in the middle, one that is no sound, and one that is not there. The folder goes with it.
class ForeignFiles {
public:
    ForeignFiles()
        : folder_(std::filesystem::temp_directory_path() /
                  ("quillworks-soak-" + std::to_string(::getpid())))
    {
        std::filesystem::create_directories(folder_);
        struct Kind {
            double rate;
            std::size_t channels, frames;
        };
        for (const Kind& k : {Kind{48000, 2, 9000}, Kind{44100, 1, 60000}, Kind{8000, 4, 3000},
                              Kind{192000, 2, 30000}, Kind{48000, 16, 5000}, Kind{96000, 6, 1}})
            add(decay(k.rate, k.channels, k.frames));
        add(contents_[0].substr(0, contents_[0].size() / 2));
        add("no sound at all");
        names_.push_back(folder_ / "none.wav");
    }
    ~ForeignFiles()
    {
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }
    ForeignFiles(const ForeignFiles&) = delete;
    ForeignFiles& operator=(const ForeignFiles&) = delete;

    /// One that plays.
    const std::string& good() const { return names_.front(); }

    /// Any; now and then it is cut short, gone for a moment and written again, so that who reads it
    /// sees one or another of these.
    const std::string& any(std::mt19937& random)
    {
        const auto i = random() % names_.size();
        if (i < contents_.size() && random() % 4 == 0) {
            std::error_code ignored;
            std::filesystem::resize_file(names_[i], contents_[i].size() / 3, ignored);
            std::filesystem::remove(names_[i], ignored);
            rewrite(i);
        }
        return names_[i];
    }

private:
    static std::string decay(double rate, std::size_t channels, std::size_t frames)
    {
        VNK::Sound<float> sound{rate, {}, 0};
        for (std::size_t c = 0; c < channels; ++c) {
            auto& x = sound.channels.emplace_back(noise<float>(frames, unsigned(c)));
            for (std::size_t i = 0; i < frames; ++i)
                x[i] *= float(std::exp2(-20 * double(i) / double(frames)));
        }
        std::string content, reason;
        if (!VNK::encodeSound(sound, VNK::SoundKind::WavFloat, content, reason))
            throw std::runtime_error(reason);
        return content;
    }
    void add(std::string content)
    {
        contents_.push_back(std::move(content));
        names_.push_back(folder_ / (std::to_string(names_.size()) + ".wav"));
        rewrite(names_.size() - 1);
    }
    void rewrite(std::size_t i) const
    {
        std::string reason;
        if (!VNK::writeFile(names_[i].c_str(), contents_[i].data(), contents_[i].size(), reason))
            throw std::runtime_error(reason);
    }

    std::filesystem::path folder_;
    std::vector<std::string> names_, contents_;
};

}  // namespace quillworks::test
