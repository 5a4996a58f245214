// SPDX-License-Identifier: ISC
// What is measured: an effect of ours, run through the module, or somebody else's LV2 plug-in.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "hosts/lilv/lilv_host.h"
#include "vnk/class_factory.h"
#include "vnk/effect.h"

namespace quillworks::peers {

using Settings = std::map<std::string, float>;

struct Format {
    double sampleRate = 48000;
    int channels = 2;
    int block = 256;  // frames
};

/// Where the signal stands: buffers that stay where they are, as in a host, which hands the same
/// few to all of its plug-ins.
struct Buffers {
    explicit Buffers(const Format& format)
        : in(static_cast<std::size_t>(format.channels),
             std::vector<float>(static_cast<std::size_t>(format.block))),
          out(in)
    {}

    std::vector<std::vector<float>> in, out;
};

/// The signal is copied in outside the time taken.
class Contestant {
public:
    virtual ~Contestant() = default;

    virtual void beginBlock() {}
    virtual void run() noexcept = 0;  // the time of this is taken
    virtual void endBlock() {}
};

/// Our effect of that display name with parameters by key. Null with a reason: no such effect or
/// key, a value out of range, or an effect that does not process yet.
std::unique_ptr<Contestant> ourEffect(VNK::IClassFactory& factory, const std::string& name,
                                      const Settings& settings, const Format& format,
                                      Buffers& buffers, std::string& reason);

/// A plug-in with control ports by symbol. One with fewer channels than the format runs in several
/// instances. Null with a reason: not installed, or no such port.
std::unique_ptr<Contestant> lv2Peer(lilv::World& world, const std::string& uri,
                                    const Settings& settings, const Format& format,
                                    Buffers& buffers, std::string& reason);

}  // namespace quillworks::peers
