// SPDX-License-Identifier: ISC
#include "reverb/response_search.h"

#include <algorithm>
#include <bit>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <string_view>

#include "framework/resources.h"
#include "vnk/effect_texts.h"
#include "vnk/file.h"

namespace quillworks {
namespace {

namespace fs = std::filesystem;

constexpr int kDeepest = 6;
constexpr int kMostEntries = 20000;
constexpr double kLoudest = 1e6;  // of a sample; what is beyond is no response
constexpr std::string_view kFactory = VNK::kFactoryPrefix;
constexpr const char* kFactoryFolder = "/responses";

bool isFile(const fs::path& path)
{
    std::error_code error;
    return fs::is_regular_file(path, error);
}

/// The file of the right channel for that of the left one, empty where the name is not such.
fs::path twinOf(const fs::path& left)
{
    constexpr std::pair<std::string_view, std::string_view> kEndings[] = {
        {"Left", "Right"}, {"left", "right"}, {"L", "R"}, {"l", "r"}};
    const std::string stem = left.stem().string();
    for (const auto& [ours, other] : kEndings) {
        if (!stem.ends_with(ours)) continue;
        const auto rest = stem.substr(0, stem.size() - ours.size());
        const bool isPartOfAWord =
            ours == "l" && !rest.empty() && std::isalpha(static_cast<unsigned char>(rest.back()));
        if (isPartOfAWord) continue;
        return left.parent_path() / (rest + std::string(other) + left.extension().string());
    }
    return {};
}

/// Makes one sound of two channels, the shorter one ending in silence.
void join(VNK::Sound<float>& left, VNK::Sound<float> right)
{
    left.framesInFile = std::max(left.framesInFile, right.framesInFile);
    left.channels.push_back(std::move(right.channels.front()));
    const auto longest = std::max(left.channels[0].size(), left.channels[1].size());
    for (auto& x : left.channels) x.resize(longest);
}

/// Why a sound that was decoded is no response; empty where it is one.
std::string faultOf(const VNK::Sound<float>& sound)
{
    double peak = 0;
    for (const auto& x : sound.channels)
        for (const float v : x) peak = std::max(peak, std::abs(double(v)));
    if (peak == 0) return "it holds silence only";
    return peak > kLoudest ? "its samples are beyond 120 dB above full scale" : "";
}

void check(const IsCancelled& isCancelled)
{
    if (isCancelled && isCancelled()) throw Cancelled();
}

/// As it is, or with its twin. False with a reason where it cannot be read.
bool read(const fs::path& path, VNK::Sound<float>& sound, std::string& reason,
          const IsCancelled& isCancelled)
{
    const bool isRead = VNK::readSoundFile(path.c_str(), {}, sound, reason, isCancelled);
    check(isCancelled);
    if (!isRead) return false;
    if (const auto twin = twinOf(path); sound.channels.size() == 1 && isFile(twin)) {
        VNK::Sound<float> other;
        std::string ignored;
        if (VNK::readSoundFile(twin.c_str(), {}, other, ignored, isCancelled) &&
            other.channels.size() == 1 && other.sampleRate == sound.sampleRate)
            join(sound, std::move(other));
        check(isCancelled);
    }
    reason = faultOf(sound);
    return reason.empty();
}

void identify(LoadedResponse& loaded, const fs::path& path, const ResponsePlaces& places)
{
    auto& id = loaded.identity;
    id.path = path.string();
    id.relative = places.relative(id.path);
    id.name = path.filename().string();
    id.hash = responseHash(loaded.sound);
    id.frames = loaded.sound.frames();
    id.sampleRate = static_cast<int>(std::lround(loaded.sound.sampleRate));
    id.channels = static_cast<int>(loaded.sound.channels.size());
}

class Search {
public:
    Search(const ResponseIdentity& known, const ResponsePlaces& places,
           const IsCancelled& isCancelled)
        : known_(known), places_(places), isCancelled_(isCancelled)
    {}

    /// Whether the file is there; it is read then, for better or worse.
    bool take(const fs::path& path, LoadedResponse& loaded) const
    {
        if (!isFile(path)) return false;
        if (read(path, loaded.sound, loaded.reason, isCancelled_)) {
            loaded.outcome = LoadedResponse::Outcome::Loaded;
            identify(loaded, path, places_);
        } else {
            loaded.outcome = LoadedResponse::Outcome::Unreadable;
            loaded.reason = path.string() + ": " + loaded.reason;
        }
        return true;
    }

    /// Where it lay relative to what is looked through.
    bool findRelative(LoadedResponse& loaded) const
    {
        if (known_.relative.empty()) return false;
        for (const auto& folder : folders())
            if (take(fs::path(folder) / known_.relative, loaded) &&
                loaded.outcome == LoadedResponse::Outcome::Loaded)
                return true;
        return false;
    }

    /// By name, and the content decides.
    bool findByContent(LoadedResponse& loaded) const
    {
        if (known_.channels == 0 || known_.name.empty()) return false;
        int entries = 0;
        for (const auto& folder : folders()) {
            std::error_code error;
            fs::recursive_directory_iterator at(
                folder, fs::directory_options::skip_permission_denied, error);
            for (; !error && at != fs::recursive_directory_iterator(); at.increment(error)) {
                check(isCancelled_);
                if (++entries > kMostEntries) return false;
                if (at.depth() >= kDeepest - 1) at.disable_recursion_pending();
                if (at->path().filename() != known_.name || !take(at->path(), loaded)) continue;
                if (loaded.outcome == LoadedResponse::Outcome::Loaded &&
                    loaded.identity.hash == known_.hash)
                    return true;
            }
        }
        return false;
    }

private:
    std::vector<std::string> folders() const
    {
        std::vector<std::string> all;
        if (!places_.baseFolder.empty()) all.push_back(places_.baseFolder);
        all.insert(all.end(), places_.roots.begin(), places_.roots.end());
        return all;
    }

    const ResponseIdentity& known_;
    const ResponsePlaces& places_;
    const IsCancelled& isCancelled_;
};

}  // namespace

void ResponseIdentity::store(StoredState& state) const
{
    if (channels == 0) return;
    auto& a = state.attributes;
    a["irpath"] = path;
    a["irrel"] = relative;
    a["irname"] = name;
    a["irhash"] = std::bit_cast<std::int64_t>(hash);
    a["irframes"] = frames;
    a["irrate"] = std::int64_t{sampleRate};
    a["irchannels"] = std::int64_t{channels};
}

ResponseIdentity ResponseIdentity::of(const StoredState& state)
{
    const auto text = [&](const char* key) {
        const auto* value = state.attribute<std::string>(key);
        return value ? *value : std::string();
    };
    const auto whole = [&](const char* key) {
        const auto* value = state.attribute<std::int64_t>(key);
        return value ? *value : 0;
    };
    constexpr std::int64_t kMost = 1 << 30;
    const auto small = [&](const char* key) {
        return static_cast<int>(std::clamp<std::int64_t>(whole(key), 0, kMost));
    };
    return {text("irpath"),     text("irrel"),
            text("irname"),     std::bit_cast<std::uint64_t>(whole("irhash")),
            whole("irframes"),  small("irrate"),
            small("irchannels")};
}

std::uint64_t responseHash(const VNK::Sound<float>& sound)
{
    constexpr std::int64_t kFrames = 1 << 20;
    std::uint64_t hash = 0xCBF29CE484222325u;
    const auto n = static_cast<std::size_t>(std::min(sound.frames(), kFrames));
    for (std::size_t i = 0; i < n; ++i)
        for (const auto& x : sound.channels) {
            const auto bits = std::bit_cast<std::uint32_t>(x[i]);
            for (int shift = 0; shift < 32; shift += 8)
                hash = (hash ^ (bits >> shift & 0xFF)) * 0x100000001B3u;
        }
    return hash;
}

ResponsePlaces ResponsePlaces::usual(std::string baseFolder)
{
    const auto variable = [](const char* name) {
        const char* value = std::getenv(name);
        return std::string(value ? value : "");
    };
    ResponsePlaces places{std::move(baseFolder), {}};
    if (const auto data = VNK::userFolder(VNK::UserFolder::Data); !data.empty())
        places.roots.push_back(data + "/quillworks/ir");
    if (const auto resources = resourcesFolder(); !resources.empty())
        places.roots.push_back(resources + kFactoryFolder);
    const auto listed = variable("QUILLWORKS_IR_PATH");
    for (std::string_view rest = listed; !rest.empty();) {
        const auto part = rest.substr(0, rest.find(':'));
        if (!part.empty()) places.roots.emplace_back(part);
        rest.remove_prefix(std::min(rest.size(), part.size() + 1));
    }
    return places;
}

std::string ResponsePlaces::relative(const std::string& path) const
{
    const auto within = [&](const std::string& folder) -> std::string {
        if (folder.empty()) return {};
        const auto relative = fs::path(path).lexically_relative(folder);
        return relative.empty() || *relative.begin() == ".." ? "" : relative.string();
    };
    auto found = within(baseFolder);
    for (auto root = roots.begin(); root != roots.end() && found.empty(); ++root)
        found = within(*root);
    return found;
}

std::string factoryResponse(const std::string& name)
{
    return resourcesFolder() + kFactoryFolder + "/" + name + ".flac";
}

LoadedResponse loadResponse(const std::string& file, const ResponseIdentity& known,
                            const ResponsePlaces& places, const IsCancelled& isCancelled)
{
    LoadedResponse loaded;
    const Search search(known, places, isCancelled);
    const bool isFactory = file.starts_with(kFactory);
    const auto name = isFactory ? file.substr(kFactory.size()) : "";
    const bool isName = !name.empty() && name.find('/') == name.npos;
    const auto path = isFactory ? isName ? factoryResponse(name) : "" : file;
    if (!path.empty() && search.take(path, loaded)) return loaded;
    if (!isFactory && search.findRelative(loaded)) return loaded;
    if (!isFactory && search.findByContent(loaded)) return loaded;
    loaded = {};
    loaded.reason = file.empty() ? "no response is chosen" : file + ": there is no such file";
    return loaded;
}

LoadedResponse decodedResponse(const std::string& bytes, const ResponseIdentity& known,
                               const IsCancelled& isCancelled)
{
    LoadedResponse loaded;
    loaded.identity = known;
    const bool isRead = VNK::readSoundData(bytes.data(), bytes.size(), {}, loaded.sound,
                                           loaded.reason, isCancelled);
    check(isCancelled);
    if (isRead) loaded.reason = faultOf(loaded.sound);
    loaded.outcome = isRead && loaded.reason.empty() ? LoadedResponse::Outcome::Loaded
                                                     : LoadedResponse::Outcome::Unreadable;
    if (!loaded.reason.empty()) loaded.reason = "the embedded response: " + loaded.reason;
    return loaded;
}

}  // namespace quillworks
