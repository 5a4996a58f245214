// SPDX-License-Identifier: ISC
// Files of responses: found again where they have moved, imitated where they are gone.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <string>
#include <unistd.h>

#include "reverb/response_fingerprint.h"
#include "reverb/response_search.h"
#include "tests/support/signals.h"
#include "vnk/file.h"

namespace quillworks::test {
namespace {

namespace fs = std::filesystem;
using Outcome = LoadedResponse::Outcome;

class ResponseFiles : public ::testing::Test {
protected:
    ResponseFiles() { fs::create_directories(folder_); }
    ~ResponseFiles() override { fs::remove_all(folder_); }

    std::string at(const std::string& name) const { return (folder_ / name).string(); }
    std::string write(const std::string& name, int channels, unsigned seed, double rate = 48000)
    {
        VNK::Sound<float> sound{rate, {}, 0};
        for (int c = 0; c < channels; ++c)
            sound.channels.push_back(noise<float>(1000, seed + unsigned(c)));
        std::string content, reason;
        EXPECT_TRUE(VNK::encodeSound(sound, VNK::SoundKind::WavFloat, content, reason)) << reason;
        return writeBytes(name, content);
    }
    std::string writeBytes(const std::string& name, const std::string& content)
    {
        fs::create_directories((folder_ / name).parent_path());
        std::string reason;
        EXPECT_TRUE(VNK::writeFile(at(name).c_str(), content.data(), content.size(), reason));
        return at(name);
    }
    void move(const std::string& from, const std::string& to) const
    {
        fs::create_directories((folder_ / to).parent_path());
        fs::rename(folder_ / from, folder_ / to);
    }

private:
    fs::path folder_ = fs::path(::testing::TempDir()) / ("responses-" + std::to_string(::getpid()));
};

TEST_F(ResponseFiles, AreFoundWhereTheyHaveMoved)
{
    const auto path = write("song/ir/Hall.wav", 2, 1);
    ResponsePlaces places{at("song"), {at("library")}};
    const auto first = loadResponse(path, {}, places);
    ASSERT_EQ(first.outcome, Outcome::Loaded) << first.reason;
    EXPECT_EQ(first.identity.relative, "ir/Hall.wav");
    EXPECT_EQ(first.identity.channels, 2);
    EXPECT_EQ(first.identity.frames, 1000);
    StoredState state;
    first.identity.store(state);
    const auto known = ResponseIdentity::of(state);
    EXPECT_EQ(known, first.identity);

    const auto expectFound = [&](const std::string& place, const ResponsePlaces& in) {
        const auto found = loadResponse(path, known, in);
        ASSERT_EQ(found.outcome, Outcome::Loaded) << found.reason;
        EXPECT_EQ(found.identity.path, at(place));
        EXPECT_TRUE(found.sound.channels == first.sound.channels);
    };
    const auto expectMissing = [&](const ResponsePlaces& in) {
        const auto missing = loadResponse(path, known, in);
        EXPECT_EQ(missing.outcome, Outcome::Missing);
        EXPECT_EQ(missing.reason, path + ": there is no such file");
    };
    move("song", "moved song");
    expectMissing(places);
    expectFound("moved song/ir/Hall.wav", {at("moved song"), {}});
    // Somewhere in the library, among others of its name.
    write("library/a/Hall.wav", 2, 9);
    writeBytes("library/b/Hall.wav", "no sound");
    move("moved song/ir/Hall.wav", "library/1/2/3/4/5/Hall.wav");
    expectFound("library/1/2/3/4/5/Hall.wav", places);
    move("library/1", "library/0/1");
    expectMissing(places);
    EXPECT_EQ(loadResponse(path, {}, {"", {at("library")}}).outcome, Outcome::Missing)
        << "nothing is known of a file that was never read";
    EXPECT_THROW(loadResponse(path, known, places, [] { return true; }), Cancelled);
}

TEST_F(ResponseFiles, AreRefusedWithTheirNameAndTheReason)
{
    const ResponsePlaces places;
    const auto reasonOf = [&](const std::string& path) {
        const auto loaded = loadResponse(path, {}, places);
        EXPECT_EQ(loaded.outcome, Outcome::Unreadable);
        return loaded.reason;
    };
    const auto text = writeBytes("text.wav", "no sound");
    EXPECT_EQ(reasonOf(text).find(text + ": it cannot be decoded"), 0u);
    VNK::Sound<float> sound{48000, {Signal<float>(100)}, 0};
    const auto write = [&](const char* name) {
        std::string content, reason;
        EXPECT_TRUE(VNK::encodeSound(sound, VNK::SoundKind::WavFloat, content, reason));
        return writeBytes(name, content);
    };
    EXPECT_NE(reasonOf(write("silent.wav")).find("silence only"), std::string::npos);
    sound.channels[0][50] = 2e6f;
    EXPECT_NE(reasonOf(write("loud.wav")).find("beyond 120 dB"), std::string::npos);
    EXPECT_EQ(decodedResponse("no sound", {}).outcome, Outcome::Unreadable);
    for (const char* name : {"factory:", "factory:../skins/x", "factory:No Such Room", "", "x"})
        EXPECT_EQ(loadResponse(name, {}, places).outcome, Outcome::Missing) << name;
}

TEST_F(ResponseFiles, OfALeftAndARightChannelAreOne)
{
    const struct {
        const char *left, *right;
        int channels;
    } cases[] = {{"Hall L.wav", "Hall R.wav", 2},
                 {"hall-left.wav", "hall-right.wav", 2},
                 {"Small.wav", "Smalr.wav", 1},
                 {"x_l.wav", "x_r.wav", 2},
                 {"Alone L.wav", "Other R.wav", 1}};
    for (const auto& c : cases) {
        const auto left = write(c.left, 1, 1);
        write(c.right, 1, 2);
        EXPECT_EQ(int(loadResponse(left, {}, {}).sound.channels.size()), c.channels) << c.left;
    }
    const auto left = write("Fast L.wav", 1, 1);
    write("Fast R.wav", 1, 1, 96000);
    EXPECT_EQ(loadResponse(left, {}, {}).sound.channels.size(), 1u) << "of another rate";
    const auto wide = write("Wide L.wav", 2, 1);
    write("Wide R.wav", 1, 1);
    EXPECT_EQ(loadResponse(wide, {}, {}).sound.channels.size(), 2u) << "stereo already";
}

TEST(ResponseFingerprint, TellsDecayAndFirstSound)
{
    constexpr double kRate = 48000, kT60 = 1.2;
    ResponseChannels response;
    for (const unsigned seed : {1u, 2u}) {
        const auto white = noise<double>(96000, seed);
        auto& x = response.emplace_back(96000);
        for (std::size_t i = 960; i < x.size(); ++i)
            x[i] = 0.02 * white[i] * std::pow(10, -3 * double(i - 960) / (kRate * kT60));
        x[960] = seed == 1 ? -0.9 : 0.5;
    }
    const auto print = fingerprintOf(response, 0.2, kRate);
    ASSERT_TRUE(print.hasTail());
    for (int k = 1; k < kOctaves - 1; ++k)
        EXPECT_NEAR(print.t60[std::size_t(k)], kT60, (k < 4 ? 0.25 : 0.08) * kT60) << k;
    EXPECT_EQ(print.t60[0], print.t60[1]);
    EXPECT_EQ(print.t60[9], 0.7 * print.t60[8]);
    for (const auto& c : print.channels) {
        EXPECT_EQ(c.firstTime, 960 / kRate);
        for (const double density : c.density) EXPECT_GT(density, 0);
    }
    EXPECT_NEAR(print.channels[0].firstGain, -0.9, 0.02);
    EXPECT_NEAR(print.channels[1].firstGain, 0.5, 0.02);

    const auto blob = print.blob();
    const auto again = ResponseFingerprint::of(blob);
    ASSERT_TRUE(again);
    EXPECT_EQ(again->blob(), blob);
    EXPECT_EQ(again->channels.size(), 2u);
    EXPECT_FLOAT_EQ(float(again->t60[5]), float(print.t60[5]));

    for (std::size_t length = 0; length < blob.bytes.size(); ++length)
        EXPECT_FALSE(ResponseFingerprint::of({blob.bytes.substr(0, length)})) << length;
    for (std::size_t at = 0; at < blob.bytes.size(); at += 4) {
        auto damaged = blob;
        damaged.bytes.replace(at, 4, 4, '\xFF');  // not a number
        EXPECT_FALSE(ResponseFingerprint::of(damaged)) << at;
    }
    const auto click = fingerprintOf({std::vector<double>{0, 1}}, 0.2, kRate);
    EXPECT_FALSE(click.hasTail());
    EXPECT_TRUE(ResponseFingerprint::of(click.blob()));
}

}  // namespace
}  // namespace quillworks::test
