// SPDX-License-Identifier: ISC
#include "adapters/lv2/text_exchange.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string_view>

#include <lv2/atom/util.h>
#include <lv2/patch/patch.h>

namespace quillworks::lv2 {
namespace {

template <class F> F* feature(const LV2_Feature* const* features, const char* uri)
{
    for (; features && *features; ++features)
        if (!std::strcmp((*features)->URI, uri)) return static_cast<F*>((*features)->data);
    return nullptr;
}

/// A path that the host has made, given back as it wants it.
class HostPath {
public:
    HostPath(char* path, const LV2_Feature* const* features)
        : path_(path), free_(feature<LV2_State_Free_Path>(features, LV2_STATE__freePath))
    {}
    ~HostPath()
    {
        if (free_)
            free_->free_path(free_->handle, path_);
        else
            std::free(path_);
    }
    HostPath(const HostPath&) = delete;
    HostPath& operator=(const HostPath&) = delete;
    const char* get() const noexcept { return path_; }

private:
    char* path_;
    LV2_State_Free_Path* free_;
};

VNK::TextInfo infoOf(const VNK::HostedEffect& effect, int index)
{
    VNK::TextInfo info;
    effect.getTextInfo(index, info);
    return info;
}

}  // namespace

std::string textUri(const Plugin& plugin, const VNK::TextInfo& text)
{
    return plugin.uri + "#text_" + text.key;
}

void TextExchange::prepare(const VNK::HostedEffect& effect, const Plugin& plugin, LV2_URID_Map* map,
                           const LV2_Feature* const* features)
{
    effect_ = &effect;
    map_ = map;
    texts_.resize(static_cast<std::size_t>(effect.countTexts()));
    if (!map_ || texts_.empty()) return;
    const auto id = [&](const char* uri) { return map->map(map->handle, uri); };
    for (int i = 0; i < effect.countTexts(); ++i) {
        auto& text = texts_[static_cast<std::size_t>(i)];
        const auto info = infoOf(effect, i);
        text.property = id(textUri(plugin, info).c_str());
        text.isPath = info.kind != VNK::TextKind::Plain;
    }
    lv2_atom_forge_init(&forge_, map);
    ids_ = {id(LV2_ATOM__Object), id(LV2_ATOM__Blank),     id(LV2_ATOM__Path),
            id(LV2_ATOM__String), id(LV2_ATOM__URID),      id(LV2_PATCH__Set),
            id(LV2_PATCH__Get),   id(LV2_PATCH__property), id(LV2_PATCH__value)};
    worker_ = feature<LV2_Worker_Schedule>(features, LV2_WORKER__schedule);
}

int TextExchange::find(LV2_URID property) const noexcept
{
    const auto at = std::find_if(texts_.begin(), texts_.end(),
                                 [&](const Text& text) { return text.property == property; });
    return at == texts_.end() ? -1 : static_cast<int>(at - texts_.begin());
}

void TextExchange::ask(std::int32_t index, const char* text, std::uint32_t length) noexcept
{
    request_.index = index;
    request_.isSet = text != nullptr;
    if (text) std::memcpy(request_.text.data(), text, length);
    request_.text[length] = 0;
    if (worker_) worker_->schedule_work(worker_->handle, kHead + length + 1, &request_);
}

void TextExchange::begin() noexcept
{
    if (isRestored_.exchange(false, std::memory_order_relaxed)) ask(kAll, nullptr, 0);
    if (!notify_ || !map_) return;
    // The host says in the size how much room there is.
    const auto room = notify_->atom.size;
    lv2_atom_forge_set_buffer(&forge_, reinterpret_cast<std::uint8_t*>(notify_),
                              room + static_cast<std::uint32_t>(sizeof(LV2_Atom)));
    LV2_Atom_Forge_Frame frame;
    if (!lv2_atom_forge_sequence_head(&forge_, &frame, 0)) return;
    for (auto& text : texts_)
        if (text.isNews && tell(text)) text.isNews = false;
    lv2_atom_forge_pop(&forge_, &frame);
}

/// False, and nothing written, where there is no room; there may be in the next block.
bool TextExchange::tell(const Text& text) noexcept
{
    const auto length = static_cast<std::uint32_t>(std::strlen(text.told.data()));
    constexpr std::uint32_t kAround = 128;  // of the message around the text
    if (forge_.size - forge_.offset < length + kAround) return false;
    LV2_Atom_Forge_Frame frame;
    lv2_atom_forge_frame_time(&forge_, 0);
    lv2_atom_forge_object(&forge_, &frame, 0, ids_.set);
    lv2_atom_forge_key(&forge_, ids_.property);
    lv2_atom_forge_urid(&forge_, text.property);
    lv2_atom_forge_key(&forge_, ids_.value);
    lv2_atom_forge_typed_string(&forge_, text.isPath ? ids_.path : ids_.string, text.told.data(),
                                length);
    lv2_atom_forge_pop(&forge_, &frame);
    return true;
}

void TextExchange::read(const LV2_Atom& atom) noexcept
{
    if (ids_.object == 0 || (atom.type != ids_.object && atom.type != ids_.blank) ||
        atom.size < sizeof(LV2_Atom_Object_Body))
        return;
    const auto& object = reinterpret_cast<const LV2_Atom_Object&>(atom);
    const bool isSet = object.body.otype == ids_.set;
    if (!isSet && object.body.otype != ids_.get) return;
    const LV2_Atom *property = nullptr, *value = nullptr;
    lv2_atom_object_get(&object, ids_.property, &property, ids_.value, &value, 0);
    int index = kAll;
    if (property) {
        if (property->type != ids_.urid) return;
        index = find(reinterpret_cast<const LV2_Atom_URID*>(property)->body);
        if (index < 0) return;
    }
    if (!isSet) return ask(index, nullptr, 0);
    if (index < 0 || !value || (value->type != ids_.path && value->type != ids_.string)) return;
    const auto* const text = static_cast<const char*>(LV2_ATOM_BODY_CONST(value));
    const auto length = static_cast<std::uint32_t>(strnlen(text, value->size));
    if (length <= VNK::kLongestText) ask(index, text, length);
}

void TextExchange::work(LV2_Worker_Respond_Function respond, LV2_Worker_Respond_Handle handle,
                        const void* data, std::uint32_t size)
{
    Request request{};
    if (size <= kHead || size > sizeof request) return;
    std::memcpy(&request, data, size);
    const std::lock_guard lock(mutex_);
    // What the effect refuses is answered with what it has.
    if (request.isSet != 0) effect_->setText(request.index, request.text.data());
    const bool isOne = request.index != kAll;
    const int first = isOne ? request.index : 0;
    const int last = isOne ? request.index : effect_->countTexts() - 1;
    for (int i = first; i <= last; ++i) {
        const char* const text = effect_->getText(i);
        if (!text) continue;
        Request answer{i, 0, {}};
        const auto length = std::min(std::strlen(text), VNK::kLongestText);
        std::memcpy(answer.text.data(), text, length);
        respond(handle, kHead + static_cast<std::uint32_t>(length) + 1, &answer);
    }
}

void TextExchange::take(const void* data, std::uint32_t size) noexcept
{
    std::int32_t index = kAll;
    if (size <= kHead || size > sizeof(Request)) return;
    std::memcpy(&index, data, sizeof index);
    if (index < 0 || static_cast<std::size_t>(index) >= texts_.size()) return;
    auto& text = texts_[static_cast<std::size_t>(index)];
    std::memcpy(text.told.data(), static_cast<const char*>(data) + kHead, size - kHead);
    text.told.back() = 0;
    text.isNews = true;
}

LV2_State_Status TextExchange::save(LV2_State_Store_Function store, LV2_State_Handle handle,
                                    const LV2_Feature* const* features) const
{
    const auto* const mapping = feature<LV2_State_Map_Path>(features, LV2_STATE__mapPath);
    if (!mapping) return LV2_STATE_SUCCESS;
    for (std::size_t i = 0; i < texts_.size(); ++i) {
        const std::string path = effect_->getText(static_cast<int>(i));
        if (!texts_[i].isPath || !path.starts_with("/")) continue;
        const HostPath mapped(mapping->abstract_path(mapping->handle, path.c_str()), features);
        if (!mapped.get()) continue;
        const auto status =
            store(handle, texts_[i].property, mapped.get(), std::strlen(mapped.get()) + 1,
                  ids_.path, LV2_STATE_IS_POD | LV2_STATE_IS_PORTABLE);
        if (status != LV2_STATE_SUCCESS) return status;
    }
    return LV2_STATE_SUCCESS;
}

void TextExchange::restore(LV2_State_Retrieve_Function retrieve, LV2_State_Handle handle,
                           const LV2_Feature* const* features)
{
    isRestored_.store(true, std::memory_order_relaxed);
    const auto* const mapping = feature<LV2_State_Map_Path>(features, LV2_STATE__mapPath);
    for (std::size_t i = 0; mapping && i < texts_.size(); ++i) {
        std::size_t size = 0;
        std::uint32_t type = 0, flags = 0;
        const void* const stored = retrieve(handle, texts_[i].property, &size, &type, &flags);
        if (!stored || type != ids_.path || size == 0) continue;
        const std::string abstract(static_cast<const char*>(stored),
                                   strnlen(static_cast<const char*>(stored), size));
        const HostPath path(mapping->absolute_path(mapping->handle, abstract.c_str()), features);
        std::error_code error;
        const int index = static_cast<int>(i);
        // A file that is not there leaves the effect to look for it by what its state knows.
        if (path.get() && std::filesystem::exists(path.get(), error) &&
            std::string_view(path.get()) != effect_->getText(index))
            effect_->setText(index, path.get());
    }
}

}  // namespace quillworks::lv2
