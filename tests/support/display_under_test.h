// SPDX-License-Identifier: ISC
// An effect whose displays somebody looks at.
#pragma once

#include <map>

#include "tests/support/effect_under_test.h"
#include "vnk/effect_displays.h"

namespace quillworks::test {

/// What a display gives, by path: "channels/0/peaks/1/level".
class Shown final : public VNK::IDisplaySink {
public:
    std::map<std::string, double> value;  // numbers and flags
    std::map<std::string, std::vector<double>> list;
    std::map<std::string, std::string> label;

    void beginObject(const char* key) override { open_.push_back({path(key)}); }
    void beginList(const char* key) override { open_.push_back({path(key)}); }
    void end() override { open_.pop_back(); }
    void number(const char* key, double x) override { value[path(key)] = x; }
    void numbers(const char* key, const float* x, std::int64_t n) override
    {
        list[path(key)].assign(x, x + n);
    }
    void numbers(const char* key, const double* x, std::int64_t n) override
    {
        list[path(key)].assign(x, x + n);
    }
    void text(const char* key, const char* text) override { label[path(key)] = text; }
    void flag(const char* key, bool x) override { value[path(key)] = x; }

    bool operator==(const Shown& other) const
    {
        // Not-a-number stands for the same nothing everywhere.
        const auto isSame = [](double a, double b) {
            return a == b || (std::isnan(a) && std::isnan(b));
        };
        const auto areSame = [&](const auto& a, const auto& b) {
            return a.first == b.first && std::equal(a.second.begin(), a.second.end(),
                                                    b.second.begin(), b.second.end(), isSame);
        };
        return label == other.label &&
               std::equal(value.begin(), value.end(), other.value.begin(), other.value.end(),
                          [&](const auto& a, const auto& b) {
                              return a.first == b.first && isSame(a.second, b.second);
                          }) &&
               std::equal(list.begin(), list.end(), other.list.begin(), other.list.end(), areSame);
    }

private:
    struct Level {
        std::string path;
        int count = 0;  // pieces of a list
    };
    std::string path(const char* key)
    {
        const std::string name = key ? key : std::to_string(open_.back().count++);
        return open_.empty() ? name : open_.back().path + "/" + name;
    }
    std::vector<Level> open_;
};

template <typename T> struct DisplayUnderTest : EffectUnderTest<T> {
    VNK::Ref<VNK::IEffectDisplays> displays;

    explicit DisplayUnderTest(const std::string& name, double rate = 48000)
        : EffectUnderTest<T>(name, rate)
    {
        displays = this->component().template queryInterface<VNK::IEffectDisplays>();
        displays->setDisplaysOpen(true);
    }
    /// Plays in blocks, which come out as they went in, and feeds the displays after each.
    void show(const Channels<T>& x, int block = 512)
    {
        for (std::size_t at = 0; at < x[0].size(); at += std::size_t(block)) {
            const auto n = std::min(std::size_t(block), x[0].size() - at);
            Channels<T> part;
            for (const auto& channel : x) {
                const auto from = channel.begin() + std::ptrdiff_t(at);
                part.emplace_back(from, from + std::ptrdiff_t(n));
            }
            EXPECT_EQ(this->play(part), part);
            displays->updateDisplays();
        }
    }
    void show(const Signal<T>& x, int block = 512) { show(Channels<T>{x}, block); }
    Shown shown(const char* name)
    {
        Shown result;
        EXPECT_TRUE(displays->snapshot(name, &result)) << name;
        return result;
    }
};

}  // namespace quillworks::test
