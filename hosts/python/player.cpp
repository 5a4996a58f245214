// SPDX-License-Identifier: ISC
#include "player.h"

#include <algorithm>
#include <cmath>
#include <optional>

#include "error.h"
#include "host.h"
#include "output_format.h"
#include "text.h"

namespace quillworks::python {

using quillhost::Planes;
using quillhost::UsageError;

namespace {

constexpr int kChunk = 16384;            // frames at a time, if blocks are not longer
constexpr double kLongestAutoTail = 60;  // seconds
constexpr int kLongestBlock = 1 << 20;

quillhost::ChainSetup chainSetup(const PlayerSetup& s)
{
    if (!(s.rate >= quillhost::kLowestRate && s.rate <= quillhost::kHighestRate))
        throw UsageError("a sampling rate of " + quillhost::shortText(s.rate) +
                         " Hz is not one (8000 to 384000)");
    if (s.channels < 1 || s.channels > quillhost::kMostChannels)
        throw UsageError(std::to_string(s.channels) + " channels are none of 1 to " +
                         std::to_string(quillhost::kMostChannels));
    if (s.block < 1 || s.block > kLongestBlock)
        throw UsageError("blocks have 1 to " + std::to_string(kLongestBlock) + " frames");
    if (!(s.tempo >= 10 && s.tempo <= 400))
        throw UsageError("a tempo has 10 to 400 quarter notes per minute");
    if (!std::isfinite(s.position)) throw UsageError("the song's position is not finite");
    quillhost::ChainSetup setup;
    setup.sampleRate = s.rate;
    setup.block = s.block;
    setup.precision = s.isDouble ? VNK::Precision::Double : VNK::Precision::Float;
    setup.input = s.layout.empty() ? VNK::SpeakerArrangement::withChannels(s.channels)
                                   : quillhost::layoutNamed(s.layout);
    if (setup.input.channels != s.channels)
        throw UsageError("the layout " + s.layout + " has " + std::to_string(setup.input.channels) +
                         " channels and the sound " + std::to_string(s.channels));
    if (!s.outputLayout.empty()) setup.output = quillhost::layoutNamed(s.outputLayout);
    setup.sideChainChannels = s.sideChainChannels;
    setup.tempo = s.tempo;
    setup.position = s.position;
    setup.playing = s.isPlaying;
    return setup;
}

std::uint64_t changesOf(const std::vector<std::shared_ptr<BoundEffect>>& effects)
{
    std::uint64_t sum = 0;
    for (const auto& effect : effects) sum += effect->changes();
    return sum;
}

}  // namespace

/// Marks the player and its effects as playing while it lives.
class Player::Playing {
public:
    explicit Playing(Player& player) : player_(player)
    {
        if (player_.isPlaying_)
            throw std::runtime_error("the stream is in use: another thread plays it");
        mark(true);
    }
    ~Playing() { mark(false); }
    Playing(const Playing&) = delete;
    Playing& operator=(const Playing&) = delete;

private:
    void mark(bool playing) noexcept
    {
        player_.isPlaying_ = playing;
        for (const auto& effect : player_.effects_) effect->setPlaying(playing);
    }
    Player& player_;
};

struct Player::Input {
    Input(const py::array& array, const py::object& side) : sound(array, "the sound")
    {
        if (!side.is_none()) sideChain.emplace(side.cast<py::array>(), "the side-chain");
    }
    SoundArray sound;
    std::optional<SoundArray> sideChain;
};

Player::Player(std::vector<std::shared_ptr<BoundEffect>> effects, const PlayerSetup& setup)
    : effects_(std::move(effects)), setup_(setup)
{
    const auto asked = chainSetup(setup);
    std::vector<quillhost::Effect> all;
    try {
        for (const auto& effect : effects_) {
            effect->claim(this);
            all.push_back(effect->effect());
        }
        const Playing playing(*this);
        chain_ = std::make_unique<quillhost::Chain>(all, asked);
        std::vector<std::string> problems;
        {
            const Unlocked unlocked;
            problems = chain_->problems();
        }
        if (!problems.empty() && !setup.allowMissing)
            throw quillhost::WorkError(problems[0] + " (allow_missing does without it)");
        if (setup.sideChainChannels > 0 && !chain_->hasSideChain())
            problems.emplace_back("no effect has a side-chain: the one given has no effect");
        warnOf(problems);
        changes_ = changesOf(effects_);
    } catch (...) {
        letGo();
        throw;
    }
}

void Player::close()
{
    const Playing playing(*this);
    letGo();
}

void Player::letGo() noexcept
{
    for (const auto& effect : effects_) effect->release(this);
    if (process_ != getpid()) (void)chain_.release();  // its threads are in the other process
    chain_.reset();
}

quillhost::Chain& Player::chain()
{
    if (process_ != getpid())
        throw std::runtime_error(
            "the stream was opened in another process (open it after the fork)");
    if (!chain_) throw UsageError("the stream is closed");
    return *chain_;
}

std::int64_t Player::latency()
{
    return chain().latency();
}

std::int64_t Player::tail()
{
    const auto limit = static_cast<std::int64_t>(kLongestAutoTail * setup_.rate);
    const auto own = chain().tail(limit);
    return own == limit ? limit : std::max<std::int64_t>(0, own - latency());
}

int Player::outputs()
{
    return chain().output().channels;
}

void Player::restart()
{
    chain();
    const Playing playing(*this);
    chain_->restart();
}

void Player::requireShape(const SoundArray& array) const
{
    if (array.channels() != setup_.channels)
        throw UsageError("the sound has " + std::to_string(array.channels()) +
                         " channels and the stream " + std::to_string(setup_.channels));
    if (array.isDouble() != setup_.isDouble)
        throw py::type_error(std::string("the stream takes ") +
                             (setup_.isDouble ? "float64" : "float32"));
}

void Player::settle()
{
    const auto changes = changesOf(effects_);
    if (changes != std::exchange(changes_, changes)) chain_->unsettle();
}

template <typename T>
py::array Player::run(const Input& input, std::int64_t tail, std::int64_t skip)
{
    const auto& sound = input.sound;
    const std::int64_t length = sound.frames() + tail;
    const int outputs = chain_->output().channels;
    auto result = newArray<T>(outputs, length, sound.isFlat());
    T* const out = result.mutable_data();
    {
        Unlocked unlocked;
        const int block = setup_.block;
        const int chunk = static_cast<int>(
            std::min<std::int64_t>(length + skip, block * std::max(1, kChunk / block)));
        Planes<T> planes(chain_->planeChannels(), chunk);
        const auto& side = input.sideChain;
        Planes<T> sidePlanes(side ? side->channels() : 0, chunk);
        VNK::LatencyTrim trim(skip);
        std::int64_t written = 0;
        for (std::int64_t at = 0; at < length + skip; at += chunk) {
            const int n = static_cast<int>(std::min<std::int64_t>(chunk, length + skip - at));
            sound.read(planes, 0, at, n);
            if (side) side->read(sidePlanes, 0, at, n);
            chain_->run(planes, side ? &sidePlanes : nullptr, n);
            const int from = trim.skip(n);
            for (int c = 0; c < outputs; ++c)
                std::copy(planes[c] + from, planes[c] + n, out + c * length + written);
            written += n - from;
            unlocked.listen();
        }
        chain_->waitUntilReady();
    }
    return result;
}

py::array Player::render(const py::array& array, const py::object& sideChain, std::int64_t tail,
                         bool keepLatency)
{
    chain();
    const Input input(array, sideChain);
    requireShape(input.sound);
    const Playing playing(*this);
    const auto skip = keepLatency ? 0 : latency();
    if (tail < 0) tail = this->tail();
    return setup_.isDouble ? run<double>(input, tail, skip) : run<float>(input, tail, skip);
}

py::array Player::play(const py::array& block, const py::object& sideChain)
{
    chain();
    const Input input(block, sideChain);
    requireShape(input.sound);
    if (input.sideChain && input.sideChain->channels() != setup_.sideChainChannels)
        throw UsageError("the side-chain has " + std::to_string(input.sideChain->channels()) +
                         " channels and the stream was opened for " +
                         std::to_string(setup_.sideChainChannels));
    const Playing playing(*this);
    settle();
    return setup_.isDouble ? run<double>(input, 0, 0) : run<float>(input, 0, 0);
}

}  // namespace quillworks::python
