// SPDX-License-Identifier: ISC
// Texts of an effect: set and told by patch messages, their paths mapped in states.
#include <array>
#include <cstring>
#include <filesystem>
#include <map>

#include <lv2/atom/forge.h>
#include <lv2/atom/util.h>
#include <lv2/patch/patch.h>
#include <unistd.h>

#include "adapters/lv2/instance.h"
#include "tests/framework/probe_effect.h"
#include "tests/lv2/lv2_under_test.h"
#include "vnk/file.h"

namespace quillworks::test {
namespace {

using Stored = std::map<LV2_URID, std::pair<std::string, std::uint32_t>>;  // and flags

/// The small effect of the frame's tests as a plug-in, with a host around it that has a worker and
/// puts one folder in the place of another.
class ProbePlugin {
public:
    explicit ProbePlugin(std::string here = "/here", bool hasWorker = true) : here_(std::move(here))
    {
        const auto algorithm = VNK::Ref<ProbeAlgorithm>::adopt(new ProbeAlgorithm);
        auto* const made = new ProbeComponent(*algorithm);
        effect_ = VNK::HostedEffect::adopt(static_cast<VNK::IEffectComponent*>(made));
        description_.name = VNKGetConstantString("Probe");
        plugin_ = lv2::pluginsOf(description_, effect_).front();
        features_ = {{LV2_URID__map, world().urids().feature()},
                     {LV2_STATE__mapPath, &mapping_},
                     {LV2_WORKER__schedule, &worker_}};
        for (const auto& feature : features_)
            if (hasWorker || feature.data != &worker_) list_.push_back(&feature);
        list_.push_back(nullptr);
        instance_ = std::make_unique<lv2::Instance>(effect_, plugin_, 48000, list_.data());
        for (std::uint32_t i = 0; i < plugin_.ports.size(); ++i) {
            using Role = lv2::Port::Role;
            const auto role = plugin_.ports[i].role;
            if (role == Role::Events) instance_->connect(i, in_);
            if (role == Role::Notify) instance_->connect(i, out_);
        }
        instance_->activate();
        run();  // nothing is heard of it before anybody asks
        EXPECT_EQ(notified(), "");
    }

    const VNK::HostedEffect& effect() { return effect_; }
    const lv2::Plugin& plugin() { return plugin_; }
    std::string text(int i) { return effect_.getText(i); }
    LV2_URID property(const char* key) { return id((plugin_.uri + "#text_" + key).c_str()); }

    /// A patch:Set; with a null value a patch:Get. Property 0: of all.
    void send(LV2_URID property, const char* value, const char* type = LV2_ATOM__Path)
    {
        lv2_atom_forge_set_buffer(&forge_, reinterpret_cast<std::uint8_t*>(in_), sizeof in_);
        LV2_Atom_Forge_Frame sequence, object;
        lv2_atom_forge_sequence_head(&forge_, &sequence, 0);
        lv2_atom_forge_frame_time(&forge_, 0);
        lv2_atom_forge_object(&forge_, &object, 0, id(value ? LV2_PATCH__Set : LV2_PATCH__Get));
        if (property) {
            lv2_atom_forge_key(&forge_, id(LV2_PATCH__property));
            lv2_atom_forge_urid(&forge_, property);
        }
        if (value) {
            lv2_atom_forge_key(&forge_, id(LV2_PATCH__value));
            lv2_atom_forge_typed_string(&forge_, id(type), value,
                                        static_cast<std::uint32_t>(std::strlen(value)));
        }
        lv2_atom_forge_pop(&forge_, &object);
        lv2_atom_forge_pop(&forge_, &sequence);
        run();
        run();  // and the answer
    }
    void run(std::uint32_t room = sizeof out_ - sizeof(LV2_Atom))
    {
        auto* const out = reinterpret_cast<LV2_Atom_Sequence*>(out_);
        out->atom = {room, id(LV2_ATOM__Chunk)};
        {
            const AudioThreadGuard guard;
            instance_->run(64);
        }
        auto* const in = reinterpret_cast<LV2_Atom_Sequence*>(in_);
        in->atom = {sizeof(LV2_Atom_Sequence_Body), id(LV2_ATOM__Sequence)};
        in->body = {0, 0};
        const auto asked = std::exchange(requests_, 0);
        for (std::size_t i = 0; i < asked; ++i)
            instance_->texts().work(
                [](LV2_Worker_Respond_Handle self, std::uint32_t size, const void* data) {
                    static_cast<ProbePlugin*>(self)->instance_->texts().take(data, size);
                    return LV2_WORKER_SUCCESS;
                },
                this, request_[i].data(), static_cast<std::uint32_t>(sizes_[i]));
    }
    /// "source=/a note=b": what the last run has told.
    std::string notified()
    {
        std::string all;
        const auto* const out = reinterpret_cast<const LV2_Atom_Sequence*>(out_);
        LV2_ATOM_SEQUENCE_FOREACH(out, event)
        {
            const LV2_Atom *which = nullptr, *value = nullptr;
            const auto& object = reinterpret_cast<const LV2_Atom_Object&>(event->body);
            EXPECT_EQ(object.body.otype, id(LV2_PATCH__Set));
            lv2_atom_object_get(&object, id(LV2_PATCH__property), &which, id(LV2_PATCH__value),
                                &value, 0);
            const auto urid = reinterpret_cast<const LV2_Atom_URID*>(which)->body;
            const bool isSource = urid == property("source");
            EXPECT_EQ(value->type, id(isSource ? LV2_ATOM__Path : LV2_ATOM__String));
            all += (all.empty() ? "" : " ") + std::string(isSource ? "source=" : "note=") +
                   static_cast<const char*>(LV2_ATOM_BODY_CONST(value));
        }
        return all;
    }

    Stored save()
    {
        Stored stored;
        EXPECT_EQ(instance_->save(
                      [](LV2_State_Handle self, std::uint32_t key, const void* value,
                         std::size_t size, std::uint32_t, std::uint32_t flags) {
                          (*static_cast<Stored*>(self))[key] = {
                              std::string(static_cast<const char*>(value), size), flags};
                          return LV2_STATE_SUCCESS;
                      },
                      &stored, list_.data()),
                  LV2_STATE_SUCCESS);
        return stored;
    }
    void restore(Stored stored)
    {
        EXPECT_EQ(instance_->restore(
                      [](LV2_State_Handle self, std::uint32_t key, std::size_t* size,
                         std::uint32_t* type, std::uint32_t* flags) -> const void* {
                          auto& all = *static_cast<Stored*>(self);
                          const auto at = all.find(key);
                          if (at == all.end()) return nullptr;
                          *size = at->second.first.size();
                          *flags = at->second.second;
                          *type = id(key == id(lv2::kStateChunk)   ? LV2_ATOM__Chunk
                                     : key == id(lv2::kStatePorts) ? LV2_ATOM__String
                                                                   : LV2_ATOM__Path);
                          return at->second.first.data();
                      },
                      &stored, list_.data()),
                  LV2_STATE_SUCCESS);
    }
    static LV2_URID id(const char* uri) { return world().urids().map(uri); }

private:
    static LV2_Worker_Status schedule(LV2_Worker_Schedule_Handle self, std::uint32_t size,
                                      const void* data)
    {
        auto& own = *static_cast<ProbePlugin*>(self);
        if (own.requests_ == kMost || size > own.request_[0].size()) return LV2_WORKER_ERR_NO_SPACE;
        own.sizes_[own.requests_] = size;
        std::memcpy(own.request_[own.requests_++].data(), data, size);
        return LV2_WORKER_SUCCESS;
    }
    /// "/here/x" is "x" in a song.
    static char* abstractPath(LV2_State_Map_Path_Handle self, const char* path)
    {
        const auto& here = static_cast<ProbePlugin*>(self)->here_;
        return strdup(std::string_view(path).starts_with(here) ? path + here.size() + 1 : path);
    }
    static char* absolutePath(LV2_State_Map_Path_Handle self, const char* path)
    {
        return strdup((static_cast<ProbePlugin*>(self)->here_ + "/" + path).c_str());
    }

    std::string here_;
    VNK::ClassDescription description_;
    VNK::HostedEffect effect_;
    lv2::Plugin plugin_;
    LV2_Worker_Schedule worker_{this, schedule};
    LV2_State_Map_Path mapping_{this, abstractPath, absolutePath};
    std::vector<LV2_Feature> features_;
    std::vector<const LV2_Feature*> list_;
    static constexpr std::size_t kMost = 4;  // requests of a run
    std::array<std::array<char, 8192>, kMost> request_{};
    std::array<std::uint32_t, kMost> sizes_{};
    std::size_t requests_ = 0;
    LV2_Atom_Forge forge_ = [] {
        LV2_Atom_Forge forge;
        lv2_atom_forge_init(&forge, static_cast<LV2_URID_Map*>(world().urids().feature()));
        return forge;
    }();
    alignas(8) std::uint64_t in_[1024]{}, out_[4096]{};
    std::unique_ptr<lv2::Instance> instance_;
};

TEST(Lv2Texts, AreSetAndToldByMessages)
{
    ProbePlugin probe;
    probe.send(0, nullptr);
    EXPECT_EQ(probe.notified(), "source=factory:Probe note=");
    probe.run();
    EXPECT_EQ(probe.notified(), "") << "once";
    probe.send(probe.property("source"), "/new hall.wav");
    EXPECT_EQ(probe.text(0), "/new hall.wav");
    EXPECT_EQ(probe.notified(), "source=/new hall.wav");
    probe.send(probe.property("note"), "dry", LV2_ATOM__String);
    probe.send(probe.property("note"), "refused", LV2_ATOM__String);
    EXPECT_EQ(probe.notified(), "note=dry") << "what it has";
    probe.send(probe.property("note"), nullptr);
    EXPECT_EQ(probe.notified(), "note=dry");

    // What is no message to it.
    probe.send(probe.property("none"), "/x");
    probe.send(0, "/x");
    probe.send(probe.property("source"), "/x", LV2_ATOM__Chunk);
    probe.send(probe.property("source"), std::string(VNK::kLongestText + 1, 'x').c_str());
    EXPECT_EQ(probe.notified(), "");
    EXPECT_EQ(probe.text(0), "/new hall.wav");

    // A host without room is told when it has some.
    probe.send(probe.property("source"), std::string(VNK::kLongestText, 'y').c_str());
    EXPECT_EQ(probe.notified().size(), 7 + VNK::kLongestText);
    probe.send(0, nullptr);
    probe.send(0, nullptr);
    probe.run(200);
    EXPECT_EQ(probe.notified(), "");
    ProbePlugin idle("/here", false);
    idle.send(idle.property("source"), "/x");
    EXPECT_EQ(idle.text(0), "factory:Probe") << "without a worker";
}

TEST(Lv2Texts, AreWritableInTheBundle)
{
    const auto* const plugin = world().plugin("urn:quillworks:ir-maker");
    ASSERT_TRUE(plugin);
    const auto node = [](const char* uri) {
        return std::unique_ptr<LilvNode, void (*)(LilvNode*)>(lilv_new_uri(world().get(), uri),
                                                              lilv_node_free);
    };
    LilvNodes* const all = lilv_plugin_get_value(plugin, node(LV2_PATCH__writable).get());
    EXPECT_EQ(lilv_nodes_size(all), 2u);
    LILV_FOREACH(nodes, i, all)
    {
        const std::string uri = lilv_node_as_uri(lilv_nodes_get(all, i));
        const bool isFolder = uri == "urn:quillworks:ir-maker#text_folder";
        LilvNode* const range = lilv_world_get(world().get(), lilv_nodes_get(all, i),
                                               node(LILV_NS_RDFS "range").get(), nullptr);
        EXPECT_STREQ(lilv_node_as_uri(range), isFolder ? LV2_ATOM__Path : LV2_ATOM__String) << uri;
        lilv_node_free(range);
    }
    lilv_nodes_free(all);
}

TEST(Lv2Texts, GoIntoSongsWithTheirPathsMapped)
{
    const auto folder = ::testing::TempDir() + "lv2-texts-" + std::to_string(::getpid());
    std::filesystem::create_directories(folder);
    std::string reason;
    ASSERT_TRUE(VNK::writeFile((folder + "/hall.wav").c_str(), "x", 1, reason));
    ProbePlugin before("/old");
    before.send(before.property("source"), "/old/hall.wav");
    before.send(before.property("note"), "wet", LV2_ATOM__String);
    const auto song = before.save();
    const auto key = before.property("source");
    ASSERT_TRUE(song.contains(key));
    EXPECT_STREQ(song.at(key).first.c_str(), "hall.wav");
    EXPECT_TRUE(song.at(key).second & LV2_STATE_IS_PORTABLE);
    EXPECT_FALSE(song.at(ProbePlugin::id(lv2::kStateChunk)).second & LV2_STATE_IS_PORTABLE)
        << "paths stand in it";

    ProbePlugin moved(folder), gone("/nowhere");
    moved.restore(song);
    EXPECT_EQ(moved.text(0), folder + "/hall.wav");
    moved.run();
    moved.run();
    EXPECT_EQ(moved.notified(), "source=" + folder + "/hall.wav note=wet");
    gone.restore(song);
    EXPECT_EQ(gone.text(0), "/old/hall.wav") << "the effect looks for it itself";
    std::filesystem::remove_all(folder);

    ProbePlugin factory;
    EXPECT_FALSE(factory.save().contains(key)) << "no path of a machine";
}

}  // namespace
}  // namespace quillworks::test
