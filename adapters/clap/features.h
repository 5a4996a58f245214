// SPDX-License-Identifier: ISC
// Where CLAP hosts file an effect.
#pragma once

#include <vector>

#include "adapters/common/catalogue.h"

namespace quillworks::clap {

/// Keywords of the format, from sub-category, kind and layouts.
std::vector<const char*> featuresOf(const adapters::OfferedEffect& effect);

}  // namespace quillworks::clap
