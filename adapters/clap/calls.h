// SPDX-License-Identifier: ISC
// The plain C functions that a host calls.
#pragma once

#include "adapters/clap/instance.h"

namespace quillworks::clap {

/// What a host holds of an instance.
clap_plugin_t callsOf(const Plugin& plugin, Instance& instance) noexcept;

}  // namespace quillworks::clap
