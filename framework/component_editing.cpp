// SPDX-License-Identifier: ISC
// What a component keeps for whoever edits it: two sets to compare, whether a preset has been
// changed, the lock of the mix.
#include <bit>

#include "framework/effect_component.h"

namespace quillworks {
namespace {

// Keys of a song's ComponentData that presets do not have. Each is there only where it says
// something: an effect that nobody has compared is stored as it ever was.
constexpr const char* kOtherSet = "compareState";     // the set that is not heard, a chunk
constexpr const char* kChosenSet = "comparedSet";     // 1: B is heard
constexpr const char* kProgram = "program";           // the preset's name
constexpr const char* kModified = "programModified";  // 1: changed since
constexpr const char* kWetLock = "wetLock";           // 1: locked
constexpr const char* kSongKeys[] = {kOtherSet, kChosenSet, kProgram, kModified, kWetLock};

bool isOne(const StoredState& state, const char* key)
{
    const auto* n = state.attribute<std::int64_t>(key);
    return n && *n == 1;
}

std::string programOf(const StoredState& state)
{
    const auto* name = state.attribute<std::string>(kProgram);
    return name ? name->substr(0, name->find('\0')) : "";
}

/// FNV-1a, 64 bits.
class Hash {
public:
    void add(std::uint64_t word) noexcept
    {
        for (int shift = 0; shift < 64; shift += 8)
            addByte(static_cast<unsigned char>(word >> shift));
    }
    void add(std::string_view text) noexcept
    {
        add(text.size());
        for (const char c : text) addByte(static_cast<unsigned char>(c));
    }
    std::uint64_t value() const noexcept { return value_; }

private:
    void addByte(unsigned char byte) noexcept { value_ = (value_ ^ byte) * 0x100000001B3; }

    std::uint64_t value_ = 0xCBF29CE484222325;
};

}  // namespace

template <class Setting, class Number, class Word>
std::uint64_t AudioEffectComponent::fingerprint(Setting&& setting, Number&& number,
                                                Word&& word) const noexcept
{
    Hash hash;
    std::size_t stored = 0;
    for (std::int32_t i = 0; i < countParameters(); ++i) {
        if (!at(i).isStored()) continue;
        const float v = setting(i, stored++);
        if (!at(i).has(VNK::isBypass)) hash.add(std::bit_cast<std::uint32_t>(v + 0.0f));  // no -0
    }
    for (const auto& [key, attribute] : attributes_)
        if (attribute.isStored) hash.add(static_cast<std::uint64_t>(number(key, attribute)));
    for (const auto& text : texts_) hash.add(std::string_view(word(text)));
    return hash.value();
}

std::uint64_t AudioEffectComponent::fingerprint() const noexcept
{
    return fingerprint(
        [this](std::int32_t i, std::size_t) { return getValue(i); },
        [](const std::string&, const Attribute& a) { return std::get<std::int64_t>(a.value); },
        [](const Text& text) -> const std::string& { return text.value; });
}

std::uint64_t AudioEffectComponent::fingerprint(const StoredState& state) const noexcept
{
    return fingerprint(
        [&](std::int32_t, std::size_t stored) { return state.parameters[stored].second; },
        [&](const std::string& key, const Attribute&) {
            return *state.attribute<std::int64_t>(key);
        },
        [&](const Text& text) -> const std::string& {
            return *state.attribute<std::string>(text.info.key);
        });
}

AudioEffectComponent::Set AudioEffectComponent::presentSet() const
{
    Set set{storedState(), fingerprint(), reference_};
    set.state.name = programName_;
    return set;
}

bool AudioEffectComponent::selectSet(std::int32_t set) noexcept
{
    const CallRules::MainThread rule(algorithm_->rules());
    if (set < 0 || set > 1) return false;
    if (set == comparedSet_) return true;
    try {
        auto present = std::make_unique<Set>(presentSet());
        const auto chosen = std::exchange(other_, std::move(present));
        comparedSet_ = set;
        edited();
        if (!chosen) return tell("processStateChanged"), true;
        nameProgram(chosen->state.name);
        reference_ = chosen->reference;
        apply(chosen->state, Source::Person);
        return true;
    } catch (...) {
        refusal_ = "no memory";
        return false;
    }
}

void AudioEffectComponent::copyToOtherSet() noexcept
{
    const CallRules::MainThread rule(algorithm_->rules());
    try {
        other_ = std::make_unique<Set>(presentSet());
    } catch (...) {  // without memory the other set stays as it is
        return;
    }
    edited();
    tell("processStateChanged");
}

bool AudioEffectComponent::setsDiffer() const noexcept
{
    return other_ && other_->print != fingerprint();
}

bool AudioEffectComponent::isModified() const noexcept
{
    return reference_ != fingerprint();
}

void AudioEffectComponent::setWetLocked(bool locked) noexcept
{
    const CallRules::MainThread rule(algorithm_->rules());
    if (std::exchange(isWetLocked_, locked) == locked) return;
    edited();
    tell("wetLockChanged");
}

void AudioEffectComponent::addToSong(StoredState& song) const
{
    const auto describe = [](StoredState& state, const std::string& program, bool isModified) {
        if (program.empty()) return;
        state.attributes[kProgram] = program;
        if (isModified) state.attributes[kModified] = std::int64_t{1};
    };
    describe(song, programName_, isModified());
    if (isWetLocked_) song.attributes[kWetLock] = std::int64_t{1};
    if (comparedSet_ == 1) song.attributes[kChosenSet] = std::int64_t{1};
    if (!other_) return;
    auto other = other_->state;
    describe(other, other.name, other_->reference != other_->print);
    std::size_t room = kLargestChunkBlobs;
    for (auto& [key, value] : song.attributes) {
        const auto* blob = std::get_if<Blob>(&value);
        if (!blob) continue;
        room -= std::min(room, blob->bytes.size());
        // What both hold stands once: an empty one says so.
        if (const auto same = other.attributes.find(key);
            same != other.attributes.end() && same->second == value)
            same->second = Blob();
    }
    auto chunk = writeChunk(other);
    if (chunk.size() > room) {
        other.dropBlobsBeyond(0);
        chunk = writeChunk(other);
    }
    if (chunk.size() <= room) song.attributes[kOtherSet] = Blob{std::move(chunk)};
}

bool AudioEffectComponent::takeFromSong(const StoredState& song)
{
    other_ = storedSet(song);
    if (!other_ && song.attribute<Blob>(kOtherSet))
        refusal_ += (refusal_.empty() ? "" : ", ") + std::string("the other set is damaged");
    comparedSet_ = isOne(song, kChosenSet) ? 1 : 0;
    nameProgram(programOf(song));
    if (const bool locked = isOne(song, kWetLock); std::exchange(isWetLocked_, locked) != locked)
        tell("wetLockChanged");
    return isOne(song, kModified);
}

std::unique_ptr<AudioEffectComponent::Set>
AudioEffectComponent::storedSet(const StoredState& song) const
{
    const auto* chunk = song.attribute<Blob>(kOtherSet);
    if (!chunk) return nullptr;
    auto set = std::make_unique<Set>();
    auto& state = set->state;
    std::string reason;
    if (!readChunk(chunk->bytes.data(), chunk->bytes.size(), state, reason) || !fit(state, reason))
        return nullptr;
    for (auto& [key, value] : state.attributes) {
        const auto* blob = std::get_if<Blob>(&value);
        const auto* own = song.attribute<Blob>(key);
        if (blob && own && blob->bytes.empty()) value = *own;
    }
    state.name = programOf(state);
    const bool wasModified = isOne(state, kModified);
    for (const char* key : kSongKeys) state.attributes.erase(key);
    set->print = fingerprint(state);
    if (!wasModified) set->reference = set->print;
    return set;
}

}  // namespace quillworks
