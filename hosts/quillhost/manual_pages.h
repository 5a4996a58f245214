// SPDX-License-Identifier: ISC
// The manual: a folder of pages, one per effect, with their pictures and an index.
#pragma once

#include <string>
#include <vector>

#include "session.h"

namespace quillhost {

/// Writes a page of every effect and an index into `folder`, which must hold the notes
/// ("notes/compressor.md"). WorkError where one is missing or a page cannot be written.
void writeManual(const Session& session, const std::string& folder);

/// What differs in `folder` from what writeManual() would write, and pictures of editors that are
/// missing or of another size than the form; nothing where all is current.
std::vector<std::string> manualFaults(const Session& session, const std::string& folder);

}  // namespace quillhost
