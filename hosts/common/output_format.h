// SPDX-License-Identifier: ISC
// The format and layout of a sound file that is written, and what is said of it.
#pragma once

#include "session.h"
#include "sound_writer.h"

namespace quillhost {

inline constexpr int kAnyFormat = -1;

/// The format of a file: what is asked for, or else `usual` where files of the name hold it.
/// UsageError where they do not hold what is asked for, or nothing of the shape.
SampleFormat chooseFormat(const std::string& path, const SoundShape& shape, int asked,
                          SampleFormat usual);
/// A layout by name or number of channels; UsageError with the names.
VNK::SpeakerArrangement layoutNamed(const std::string& name);
/// Says so where samples were clipped.
void noteClipping(const Session& session, const std::string& path, const SoundWriter& writer);

}  // namespace quillhost
