// SPDX-License-Identifier: ISC
// What hosts read about a plug-in before they load it.
#pragma once

#include <string>

#include "adapters/lv2/catalogue.h"

namespace quillworks::lv2 {

/// The plug-in's own file: names, classes, ports, groups.
std::string describe(const Catalogue& catalogue, const Plugin& plugin);
/// Its factory presets, which share a file; empty without any.
std::string describePresets(const Catalogue& catalogue, const Plugin& plugin);
/// The manifest's entry for the plug-in and its presets.
std::string announce(const Catalogue& catalogue, const Plugin& plugin, const std::string& binary);
/// The one editor, which serves all plug-ins.
std::string announceEditor(const std::string& binary);
/// Prefixes and the properties that are ours.
std::string turtleHeader();
std::string ownProperties();

}  // namespace quillworks::lv2
