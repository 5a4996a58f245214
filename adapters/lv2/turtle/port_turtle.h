// SPDX-License-Identifier: ISC
// Ports and port groups in Turtle.
#pragma once

#include <string>
#include <vector>

#include "adapters/lv2/catalogue.h"

namespace quillworks::lv2 {

/// All ports, as objects of lv2:port.
std::vector<std::string> describePorts(const VNK::HostedEffect& effect, const Plugin& plugin);
/// The groups that the ports are in, a subject each.
std::string describeGroups(const VNK::HostedEffect& effect, const Plugin& plugin);
/// URI of a group, in angle brackets.
std::string groupUri(const Plugin& plugin, const std::string& group);

}  // namespace quillworks::lv2
