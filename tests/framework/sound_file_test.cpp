// SPDX-License-Identifier: ISC
// Whole sound files: what is read back, and what is refused with which reason.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <unistd.h>

#include "tests/support/signals.h"
#include "vnk/file.h"
#include "vnk/sound_file.h"

namespace quillworks::test {
namespace {

template <typename T> VNK::Sound<T> noiseSound(int channels, std::size_t frames, double rate)
{
    VNK::Sound<T> sound{rate, {}, static_cast<std::int64_t>(frames)};
    for (int c = 0; c < channels; ++c) {
        auto& x = sound.channels.emplace_back(noise<T>(frames, kSeed + std::uint32_t(c)));
        for (auto& v : x) v = T(std::nearbyint(double(v) * 0x1p22) / 0x1p23);  // what 24 bits hold
    }
    return sound;
}

template <typename T> std::string encoded(const VNK::Sound<T>& sound, VNK::SoundKind kind)
{
    std::string content, reason;
    EXPECT_TRUE(VNK::encodeSound(sound, kind, content, reason)) << reason;
    return content;
}

std::string refusal(const std::string& content, const VNK::SoundLimits& limits = {})
{
    VNK::Sound<float> sound{1, {{0.5f}}, 1};
    std::string reason;
    EXPECT_FALSE(VNK::readSoundData(content.data(), content.size(), limits, sound, reason));
    EXPECT_EQ(sound.frames(), 1) << "it stays as it was";
    EXPECT_EQ(reason.find('\n'), reason.npos);
    return reason;
}

template <typename T> class SoundFiles : public ::testing::Test {};
using Samples = ::testing::Types<float, double>;
TYPED_TEST_SUITE(SoundFiles, Samples);

TYPED_TEST(SoundFiles, ComeBackBitByBit)
{
    const struct {
        VNK::SoundKind kind;
        int channels;
        double rate;
    } cases[] = {{VNK::SoundKind::Wav24, 16, 768000},
                 {VNK::SoundKind::WavFloat, 1, 1000},
                 {VNK::SoundKind::Flac24, 8, 44100},
                 {VNK::SoundKind::Flac24, 2, 384000}};
    for (const auto& c : cases) {
        const auto sound = noiseSound<TypeParam>(c.channels, 5001, c.rate);
        const auto content = encoded(sound, c.kind);
        EXPECT_EQ(content, encoded(sound, c.kind)) << "equal sounds make equal files";
        const auto path = ::testing::TempDir() + "sound-" + std::to_string(::getpid());
        std::string reason;
        ASSERT_TRUE(VNK::writeFile(path.c_str(), content.data(), content.size(), reason));
        VNK::Sound<TypeParam> read, fromFile;
        ASSERT_TRUE(VNK::readSoundData(content.data(), content.size(), {}, read, reason)) << reason;
        ASSERT_TRUE(VNK::readSoundFile(path.c_str(), {}, fromFile, reason)) << reason;
        std::filesystem::remove(path);
        EXPECT_EQ(read.sampleRate, c.rate);
        EXPECT_FALSE(read.isCut());
        EXPECT_TRUE(read.channels == sound.channels);
        EXPECT_TRUE(fromFile.channels == sound.channels);
    }
}

TEST(SoundFile, IsCutAtTheLimitsAndTakesNoMemoryForMore)
{
    const auto content = encoded(noiseSound<float>(4, 50000, 8000), VNK::SoundKind::Wav24);
    const struct {
        VNK::SoundLimits limits;
        std::int64_t frames;
    } cases[] = {{{.seconds = 2}, 16000}, {{.bytes = 160000}, 10000}, {{.seconds = 100}, 50000}};
    for (const auto& c : cases) {
        VNK::Sound<float> sound;
        std::string reason;
        ASSERT_TRUE(VNK::readSoundData(content.data(), content.size(), c.limits, sound, reason));
        EXPECT_EQ(sound.frames(), c.frames);
        EXPECT_EQ(sound.framesInFile, 50000);
        EXPECT_EQ(sound.isCut(), c.frames < 50000);
    }
    VNK::Sound<float> sound;
    std::string reason;
    EXPECT_FALSE(VNK::readSoundData(content.data(), content.size(), {}, sound, reason, [] {
        return true;
    })) << "its user is gone";
}

TEST(SoundFile, RefusesWhatItCannotHaveWithAReason)
{
    const auto wave = encoded(noiseSound<float>(2, 1000, 48000), VNK::SoundKind::WavFloat);
    const auto flac = encoded(noiseSound<float>(2, 20000, 48000), VNK::SoundKind::Flac24);
    EXPECT_NE(refusal(""), "");
    EXPECT_NE(refusal("no sound at all, but text that is a little longer").find("decoded"),
              std::string::npos);
    auto notANumber = wave;
    std::memset(notANumber.data() + notANumber.size() - 8, 0xFF, 4);
    EXPECT_EQ(refusal(notANumber), "it holds samples that are no numbers");
    EXPECT_NE(refusal(wave, {.channels = 1}).find("2 channels (1 to 1"), std::string::npos);
    EXPECT_NE(refusal(wave, {.lowestRate = 96000}).find("48000 Hz"), std::string::npos);
    auto silent = encoded(VNK::Sound<float>{48000, {{}}, 0}, VNK::SoundKind::Wav24);
    EXPECT_EQ(refusal(silent), "it holds no sound");
    EXPECT_NE(refusal(flac.substr(0, flac.size() / 2)), "") << "breaks off";
    auto damaged = flac;
    for (std::size_t i = flac.size() / 2; i < flac.size() / 2 + 4000; ++i) damaged[i] ^= 0x55;
    EXPECT_NE(refusal(damaged), "");

    VNK::Sound<float> sound;
    std::string reason, content;
    EXPECT_FALSE(VNK::readSoundFile("/no/such/file.wav", {}, sound, reason));
    EXPECT_EQ(reason, "there is no such file");
    for (const char* path : {"/dev/zero", "/"}) {
        EXPECT_FALSE(VNK::readSoundFile(path, {}, sound, reason));
        EXPECT_EQ(reason, "it is not a file");
    }
    EXPECT_FALSE(VNK::readSoundFile<float>(nullptr, {}, sound, reason));
    EXPECT_FALSE(
        VNK::encodeSound(noiseSound<float>(9, 10, 48000), VNK::SoundKind::Flac24, content, reason));
    EXPECT_EQ(reason, "a file of this kind does not hold 9 channels at 48000 Hz");
}

/// Headers that promise more than there is, in every field that a reader may believe.
TEST(SoundFile, BelievesNoHeader)
{
    for (const auto kind : {VNK::SoundKind::Wav24, VNK::SoundKind::Flac24}) {
        const auto good = encoded(noiseSound<float>(2, 300, 48000), kind);
        for (std::size_t at = 4; at < std::min<std::size_t>(good.size(), 90); ++at)
            for (const char byte : {'\x00', '\x7F', '\xFF'}) {
                auto content = good;
                content[at] = byte;
                VNK::Sound<float> sound;
                std::string reason;
                const bool isRead =
                    VNK::readSoundData(content.data(), content.size(), {}, sound, reason);
                EXPECT_TRUE(isRead || !reason.empty()) << at;
                EXPECT_LT(sound.frames(), 100000) << at;
            }
    }
}

}  // namespace
}  // namespace quillworks::test
