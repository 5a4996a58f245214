// SPDX-License-Identifier: ISC
#include "benchmarks/peers/contestant.h"

namespace quillworks::peers {
namespace {

class Lv2Peer final : public Contestant {
public:
    Lv2Peer(std::vector<std::unique_ptr<lilv::Instance>> instances, const Format& format,
            Buffers& buffers)
        : instances_(std::move(instances)),
          frames_(format.block),
          silence_(static_cast<std::size_t>(frames_)),
          spare_(silence_)
    {
        std::size_t in = 0, out = 0;
        for (auto& instance : instances_) {
            // What goes beyond the main channels is a side-chain: silent, like one left open.
            const auto mainInputs = instance->audioOutputs().size();
            std::size_t used = 0;
            for (const auto port : instance->audioInputs())
                instance->connect(port, used++ < mainInputs && in < buffers.in.size()
                                            ? buffers.in[in++].data()
                                            : silence_.data());
            for (const auto port : instance->audioOutputs())
                instance->connect(port, out < buffers.out.size() ? buffers.out[out++].data()
                                                                 : spare_.data());
            instance->activate();
        }
    }
    ~Lv2Peer() override
    {
        for (auto& instance : instances_) instance->deactivate();
    }
    void beginBlock() override
    {
        for (auto& instance : instances_) instance->beginBlock();
    }
    void run() noexcept override
    {
        for (auto& instance : instances_) instance->run(frames_);
    }
    void endBlock() override
    {
        for (auto& instance : instances_) instance->endBlock();
    }

private:
    std::vector<std::unique_ptr<lilv::Instance>> instances_;
    int frames_;
    std::vector<float> silence_, spare_;
};

}  // namespace

std::unique_ptr<Contestant> lv2Peer(lilv::World& world, const std::string& uri,
                                    const Settings& settings, const Format& format,
                                    Buffers& buffers, std::string& reason)
{
    std::vector<std::unique_ptr<lilv::Instance>> instances;
    for (int channels = 0; channels < format.channels;) {
        auto instance = lilv::Instance::create(world, uri, format.sampleRate, format.block, reason);
        if (!instance) return nullptr;
        if (instance->audioOutputs().empty()) {
            reason = uri + " has no audio output";
            return nullptr;
        }
        for (const auto& [symbol, value] : settings)
            if (!instance->set(symbol, value)) {
                reason = uri + " has no control " + symbol;
                return nullptr;
            }
        channels += static_cast<int>(instance->audioOutputs().size());
        instances.push_back(std::move(instance));
    }
    return std::make_unique<Lv2Peer>(std::move(instances), format, buffers);
}

}  // namespace quillworks::peers
