// SPDX-License-Identifier: ISC
// The binary form of an effect's state.
#include <bit>
#include <cmath>
#include <cstring>
#include <set>
#include <string_view>

#include "framework/stored_state.h"

namespace quillworks {
namespace {

constexpr std::string_view kMagic = "FXST";
constexpr std::uint32_t kVersion = 1;
enum EntryType : std::uint8_t { Integer = 1, Float = 2, Text = 3, Bytes = 4 };

class Writer {
public:
    template <class U> void number(U value)
    {
        for (std::size_t i = 0; i < sizeof(U); ++i)
            out_.push_back(static_cast<char>(value >> (8 * i) & 0xFF));
    }
    void bytes(std::string_view s) { out_.append(s); }
    void lengthAndBytes(std::string_view s)
    {
        number(static_cast<std::uint32_t>(s.size()));
        bytes(s);
    }
    void entry(std::string_view key, const AttributeValue& value)
    {
        const auto type = static_cast<std::uint8_t>(value.index() + 1);
        number(type);
        number(static_cast<std::uint16_t>(key.size()));
        bytes(key);
        if (type == Integer)
            number(static_cast<std::uint64_t>(std::get<std::int64_t>(value)));
        else if (type == Float)
            number(std::bit_cast<std::uint32_t>(std::get<float>(value)));
        else
            lengthAndBytes(type == Text ? std::get<std::string>(value)
                                        : std::get<Blob>(value).bytes);
    }
    std::string take() { return std::move(out_); }

private:
    std::string out_;
};

/// Reads within bounds; after the first length that passes the end everything fails.
class Reader {
public:
    explicit Reader(std::string_view data) : data_(data) {}

    template <class U> U number()
    {
        const auto raw = bytes(sizeof(U));
        U value = 0;
        for (std::size_t i = 0; i < raw.size(); ++i)
            value = static_cast<U>(value | U(static_cast<unsigned char>(raw[i])) << (8 * i));
        return value;
    }
    std::string_view bytes(std::size_t n)
    {
        if (n > data_.size()) {
            ok_ = false;
            n = 0;
        }
        const auto part = data_.substr(0, n);
        data_.remove_prefix(n);
        return part;
    }
    std::string_view lengthAndBytes() { return bytes(number<std::uint32_t>()); }
    bool ok() const { return ok_; }
    bool atEnd() const { return data_.empty(); }

private:
    std::string_view data_;
    bool ok_ = true;
};

std::string section(std::string_view name,
                    const std::vector<std::pair<std::string, AttributeValue>>& entries)
{
    Writer payload;
    payload.number(static_cast<std::uint32_t>(entries.size()));
    for (const auto& [key, value] : entries) payload.entry(key, value);
    Writer out;
    out.lengthAndBytes(name);
    out.lengthAndBytes(payload.take());
    return out.take();
}

/// Entries of one section; false if a length passes the end or a key stands twice.
template <class F> bool readEntries(std::string_view payload, F&& f)
{
    Reader in(payload);
    std::set<std::string_view> seen;
    const auto count = in.number<std::uint32_t>();
    for (std::uint32_t i = 0; i < count && in.ok(); ++i) {
        const auto type = in.number<std::uint8_t>();
        const auto key = in.bytes(in.number<std::uint16_t>());
        AttributeValue value;
        switch (type) {
        case Integer:
            value = static_cast<std::int64_t>(in.number<std::uint64_t>());
            break;
        case Float:
            value = std::bit_cast<float>(in.number<std::uint32_t>());
            break;
        case Text:
            value = std::string(in.lengthAndBytes());
            break;
        case Bytes: {
            const auto bytes = in.lengthAndBytes();
            if (bytes.size() > kLargestChunkBlobs) return false;
            value = Blob{std::string(bytes)};
            break;
        }
        default:
            return false;
        }
        if (!in.ok() || !seen.insert(key).second) return false;
        f(std::string(key), value);
    }
    return in.ok() && in.atEnd();
}

}  // namespace

std::string writeChunk(const StoredState& state)
{
    Writer out;
    out.bytes(kMagic);
    out.number(kVersion);
    out.bytes({reinterpret_cast<const char*>(state.classId.bytes), 16});
    out.number(std::uint32_t{3});
    std::vector<std::pair<std::string, AttributeValue>> entries;
    if (state.algorithmVersion) entries.emplace_back("algorithmVersion", *state.algorithmVersion);
    out.bytes(section("AlgorithmData", entries));
    out.bytes(section("ParameterData", {state.parameters.begin(), state.parameters.end()}));
    out.bytes(section("ComponentData", {state.attributes.begin(), state.attributes.end()}));
    return out.take();
}

bool readChunk(const void* data, std::size_t bytes, StoredState& state, std::string& reason)
{
    Reader in({static_cast<const char*>(data), data ? bytes : 0});
    StoredState read;
    if (in.bytes(kMagic.size()) != kMagic) return reason = "not a state of an effect", false;
    if (in.number<std::uint32_t>() > kVersion)
        return reason = "the state is of a newer version", false;
    const auto id = in.bytes(16);
    std::memcpy(read.classId.bytes, id.data(), id.size());
    const auto sections = in.number<std::uint32_t>();
    bool good = true;
    for (std::uint32_t i = 0; i < sections && in.ok() && good; ++i) {
        const auto name = in.lengthAndBytes();
        const auto payload = in.lengthAndBytes();
        if (!in.ok()) break;
        good = readEntries(payload, [&](std::string key, const AttributeValue& value) {
            const auto* f = std::get_if<float>(&value);
            const auto* n = std::get_if<std::int64_t>(&value);
            if (name == "AlgorithmData" && key == "algorithmVersion" && n)
                read.algorithmVersion = *n;
            else if (name == "ParameterData" && f)
                read.parameters.emplace_back(key, *f);
            else if (name == "ComponentData" && (!f || std::isfinite(*f)))
                read.attributes[key] = value;
        });
    }
    if (!in.ok() || !good || !in.atEnd()) return reason = "the state is damaged", false;
    state = std::move(read);
    return true;
}

}  // namespace quillworks
